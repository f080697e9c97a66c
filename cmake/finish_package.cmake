# In the folder that a package is made from.
# gdb looks for an extension by the place of its library, which a package puts below /usr.
file(GLOB places LIST_DIRECTORIES TRUE "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr/share/gdb/auto-load/usr")
foreach(place ${places})
  if(EXISTS ${place}/local)
    file(RENAME ${place}/local ${place}.part)
    file(REMOVE_RECURSE ${place})
    file(RENAME ${place}.part ${place})
  endif()
endforeach()

# What distributions compress.
file(GLOB_RECURSE files "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*")
list(FILTER files INCLUDE REGEX "/share/(man/.*\\.1|doc/.*/changelog)$")
foreach(file ${files})
  execute_process(COMMAND gzip -9n ${file} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
