# Compresses what distributions compress, in the folder that a package is made from.
file(GLOB_RECURSE files "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*")
list(FILTER files INCLUDE REGEX "/share/(man/.*\\.1|doc/.*/changelog)$")
foreach(file ${files})
  execute_process(COMMAND gzip -9n ${file} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
