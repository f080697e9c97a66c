# The shared library, its headers, the CMake package and the pkg-config file.
add_library(sve_stats_896 SHARED $<TARGET_OBJECTS:sve_fault_posix>)
add_library(sve_stats_896::sve_stats_896 ALIAS sve_stats_896)
target_link_libraries(sve_stats_896 PRIVATE sve_decode INTERFACE $<BUILD_INTERFACE:sve_options>)
target_compile_features(sve_stats_896 INTERFACE cxx_std_20)
sve_link_whole_model(sve_stats_896)
set_target_properties(sve_stats_896 PROPERTIES
  LINKER_LANGUAGE CXX
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
target_link_options(sve_stats_896 PRIVATE
  -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map -Wl,-Bsymbolic-functions)

# The headers that describe what is exported, and what these include.
set(public_headers
  decode/dispatch.h
  insn/functions.h insn/functions.inc insn/signatures.h insn/stubs.inc
  state/cpu_state.h lanes/forget_repeat.h lanes/repeat.h state/operands.h state/register_names.h state/vector_length.h
  stats/stats.h
  veclib/initialize.h veclib/routines.h veclib/routines.inc veclib/signatures.h veclib/signatures.inc veclib/types.h)
list(TRANSFORM public_headers PREPEND ${PROJECT_SOURCE_DIR}/sve/)
target_sources(sve_stats_896 PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${public_headers})

include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/sve_stats_896)
install(TARGETS sve_stats_896 EXPORT sve_stats_896
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(EXPORT sve_stats_896 NAMESPACE sve_stats_896:: DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/sve_stats_896-config.cmake.in
  ${PROJECT_BINARY_DIR}/sve_stats_896-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/sve_stats_896-config-version.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/sve_stats_896-config.cmake ${PROJECT_BINARY_DIR}/sve_stats_896-config-version.cmake
        DESTINATION ${package_dir} COMPONENT development)

# Found from where it lies, so that an installation can be moved.
file(RELATIVE_PATH SVE_PREFIX_FROM_PC /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/sve_stats_896.pc.in ${PROJECT_BINARY_DIR}/sve_stats_896.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/sve_stats_896.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
