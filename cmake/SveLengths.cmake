# The further vector lengths: each is a build of its own below this one, with its settings, since everything but the
# launcher and the programs of tests follows from the length. Its products come to lie beside this build's, are installed
# with them, and its tests are among this build's.
set(further_lengths)
foreach(length ${SVE_VECTOR_LENGTHS})
  if(NOT length STREQUAL SVE_VECTOR_BITS AND NOT length IN_LIST further_lengths)
    list(APPEND further_lengths ${length})
  endif()
endforeach()

set(settings "")
get_cmake_property(variables CACHE_VARIABLES)
foreach(variable ${variables})
  if(NOT variable MATCHES "^(SVE_.*|CMAKE_BUILD_TYPE|CMAKE_TOOLCHAIN_FILE|CMAKE_INSTALL_.*DIR|CMAKE_INSTALL_PREFIX|DynamoRIO_DIR|CMAKE_C(XX)?_(COMPILER|COMPILER_LAUNCHER|FLAGS.*))$"
     OR variable MATCHES "^SVE_(MAIN_BUILD|VECTOR_.*|BUILD_BENCH)$"
     OR (CMAKE_TOOLCHAIN_FILE AND variable MATCHES "_COMPILER$"))
    continue()
  endif()
  get_property(type CACHE ${variable} PROPERTY TYPE)
  get_property(value CACHE ${variable} PROPERTY VALUE)
  if(type STREQUAL "UNINITIALIZED")
    set(type STRING)
  endif()
  string(APPEND settings "set(${variable} [==[${value}]==] CACHE ${type} \"\" FORCE)\n")
endforeach()

cmake_host_system_information(RESULT processors QUERY NUMBER_OF_LOGICAL_CORES)
foreach(length ${further_lengths})
  set(folder ${PROJECT_BINARY_DIR}/lengths/${length})
  file(CONFIGURE OUTPUT ${folder}.cmake @ONLY CONTENT "${settings}\
set(SVE_VECTOR_BITS ${length} CACHE STRING \"\" FORCE)
set(SVE_VECTOR_LENGTHS ${length} CACHE STRING \"\" FORCE)
set(SVE_BUILD_BENCH OFF CACHE BOOL \"\" FORCE)
set(SVE_MAIN_BUILD [==[${PROJECT_BINARY_DIR}]==] CACHE PATH \"\" FORCE)
")
  add_custom_command(
    OUTPUT ${folder}/CMakeCache.txt
    COMMAND ${CMAKE_COMMAND} -G ${CMAKE_GENERATOR} -C ${folder}.cmake -S ${PROJECT_SOURCE_DIR} -B ${folder}
            > ${folder}.log
    COMMAND ${CMAKE_COMMAND} -E touch ${folder}/CMakeCache.txt
    DEPENDS ${folder}.cmake
    COMMENT "Configuring for ${length} bits" VERBATIM)
  # One after the other, each on all processors.
  add_custom_target(length_${length} ALL
    COMMAND ${CMAKE_COMMAND} --build ${folder} -j ${processors}
    DEPENDS ${folder}/CMakeCache.txt sve_for_every_length
    COMMENT "Building for ${length} bits" VERBATIM USES_TERMINAL)

  foreach(component library development runner Unspecified)
    install(CODE "
      set(strip)
      if(CMAKE_INSTALL_DO_STRIP)
        set(strip --strip)
      endif()
      execute_process(COMMAND \"${CMAKE_COMMAND}\" --install \"${folder}\" --prefix \"\${CMAKE_INSTALL_PREFIX}\"
        --component ${component} \${strip} COMMAND_ERROR_IS_FATAL ANY)" COMPONENT ${component})
  endforeach()
  if(SVE_BUILD_TESTS)
    file(CONFIGURE OUTPUT ${folder}-tests.cmake @ONLY CONTENT "\
if(EXISTS \"${folder}/CTestTestfile.cmake\")
  subdirs(\"${folder}\")
else()
  add_test(${length}.is_built \"${CMAKE_COMMAND}\" -E cat \"${folder}/CTestTestfile.cmake\")
endif()
")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${folder}-tests.cmake)
  endif()
endforeach()
