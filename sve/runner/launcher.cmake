# sve-run itself, of which one serves all lengths.
find_path(SVE_CLI11_DIR CLI/CLI.hpp HINTS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
# A directory of its own, since the headers beside it may be another architecture's.
file(MAKE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/cli11)
file(CREATE_LINK ${SVE_CLI11_DIR}/CLI ${CMAKE_CURRENT_BINARY_DIR}/cli11/CLI SYMBOLIC)

sve_layer(sve_launcher
  SOURCES
    launcher/check.cpp
    launcher/code.cpp
    launcher/command_line.cpp
    launcher/dynamorio.cpp
    launcher/elf_file.cpp
    launcher/library.cpp
    launcher/program.cpp
    launcher/reporting.cpp
  BELOW sve_words)
set_source_files_properties(launcher/command_line.cpp PROPERTIES COMPILE_OPTIONS $<$<CONFIG:Release>:-O1>)
target_include_directories(sve_launcher SYSTEM PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/cli11)
target_compile_definitions(sve_launcher PRIVATE SVE_VERSION="${PROJECT_VERSION}")

if(NOT CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$" OR NOT CMAKE_SYSTEM_NAME STREQUAL "Linux")
  return()
endif()
add_executable(sve-run launcher/main.cpp)
target_link_libraries(sve-run PRIVATE sve_launcher sve_options sve_warnings)
# Without a loader, so that what a user preloads into the program is not loaded into sve-run, where nobody would serve its
# SVE code.
include(CheckCXXSourceCompiles)
set(CMAKE_REQUIRED_LINK_OPTIONS -static)
check_cxx_source_compiles("int main() {}" SVE_HAVE_STATIC_LIBC)
unset(CMAKE_REQUIRED_LINK_OPTIONS)
target_link_options(sve-run PRIVATE $<IF:$<BOOL:${SVE_HAVE_STATIC_LIBC}>,-static,-static-libstdc++;-static-libgcc>)
target_compile_definitions(sve-run PRIVATE
  SVE_LIBRARY_FROM_PROGRAM="../${CMAKE_INSTALL_LIBDIR}"
  SVE_CLIENT_FROM_PROGRAM="../${CMAKE_INSTALL_LIBDIR}/sve_client"
  SVE_CLIENT_FROM_BUILD="../../client")

add_dependencies(sve-run sve_run_preload)

install(TARGETS sve-run RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runner)
install(FILES ${PROJECT_SOURCE_DIR}/docs/sve-run.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runner)
install(FILES launcher/sve-run.bash-completion RENAME sve-run
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT runner)
