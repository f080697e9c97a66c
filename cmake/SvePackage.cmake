# The shared library, its headers, the CMake package and the pkg-config file.
add_library(${SVE_LIBRARY} SHARED $<TARGET_OBJECTS:sve_fault_posix>)
add_library(${SVE_LIBRARY}::${SVE_LIBRARY} ALIAS ${SVE_LIBRARY})
target_link_libraries(${SVE_LIBRARY} PRIVATE sve_decode INTERFACE $<BUILD_INTERFACE:sve_options>)
target_include_directories(${SVE_LIBRARY} INTERFACE $<INSTALL_INTERFACE:${SVE_INCLUDE_FOLDER}>)
target_compile_features(${SVE_LIBRARY} INTERFACE cxx_std_20)
sve_link_whole_model(${SVE_LIBRARY} sve_veclib_values)
set_target_properties(${SVE_LIBRARY} PROPERTIES
  LINKER_LANGUAGE CXX
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
target_link_options(${SVE_LIBRARY} PRIVATE
  -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map -Wl,-Bsymbolic-functions)

# The headers that describe what is exported, and what these include.
set(public_headers
  decode/dispatch.h
  insn/functions.h insn/functions.inc insn/signatures.h insn/stubs.inc
  state/cpu_state.h lanes/forget_repeat.h lanes/repeat.h state/integers.h state/operands.h state/register_names.h
  state/vector_length.h
  stats/stats.h
  veclib/initialize.h veclib/routines.h veclib/routines.inc veclib/signatures.h veclib/signatures.inc veclib/types.h)
list(TRANSFORM public_headers PREPEND ${PROJECT_SOURCE_DIR}/sve/)
target_sources(${SVE_LIBRARY} PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${public_headers})

include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${SVE_LIBRARY})
install(TARGETS ${SVE_LIBRARY} EXPORT ${SVE_LIBRARY}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
        FILE_SET HEADERS DESTINATION ${SVE_INCLUDE_FOLDER} COMPONENT development)
install(EXPORT ${SVE_LIBRARY} NAMESPACE ${SVE_LIBRARY}:: DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/sve_stats-config.cmake.in
  ${PROJECT_BINARY_DIR}/${SVE_LIBRARY}-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/${SVE_LIBRARY}-config-version.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/${SVE_LIBRARY}-config.cmake ${PROJECT_BINARY_DIR}/${SVE_LIBRARY}-config-version.cmake
        DESTINATION ${package_dir} COMPONENT development)

# Found from where it lies, so that an installation can be moved.
file(RELATIVE_PATH SVE_PREFIX_FROM_PC /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/sve_stats.pc.in ${PROJECT_BINARY_DIR}/${SVE_LIBRARY}.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/${SVE_LIBRARY}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
# What the build wrote; no file set takes a folder below that of the sources.
install(FILES ${PROJECT_BINARY_DIR}/include/sve/state/built_length.h DESTINATION ${SVE_INCLUDE_FOLDER}/sve/state
        COMPONENT development)
