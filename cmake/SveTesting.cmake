# Tests: GoogleTest from the system, or from Debian's sources when cross building.
include(GoogleTest)
if(CMAKE_CROSSCOMPILING AND SVE_MAIN_BUILD AND EXISTS ${SVE_MAIN_BUILD}/googletest)
  sve_take_from_main_build(GTest::gtest lib/libgtest.a pthread)
  target_include_directories(GTest::gtest INTERFACE /usr/src/googletest/googletest/include)
  sve_take_from_main_build(GTest::gtest_main lib/libgtest_main.a GTest::gtest)
elseif(CMAKE_CROSSCOMPILING AND EXISTS /usr/src/googletest/CMakeLists.txt)
  set(INSTALL_GTEST OFF)
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  if(NOT TARGET GTest::gtest_main)
    add_library(GTest::gtest ALIAS gtest)
    add_library(GTest::gtest_main ALIAS gtest_main)
  endif()
  target_compile_options(gtest PRIVATE $<$<CONFIG:Release>:-O1>)
  add_dependencies(sve_for_every_length gtest gtest_main)
else()
  find_package(GTest REQUIRED)
endif()

# What GoogleTest prints last when tests were skipped and none failed. A failure's list would follow it, so that a skipped
# test can never hide one. Under sve-run its total comes behind that.
set(SVE_SKIPPED "\\[  SKIPPED \\] [^\n]*, listed below:\n(\\[  SKIPPED \\] [^\n]*\n)+([^\n]*: [0-9]+ SVE instructions executed\n)?$")

# sve_add_test(NAME [OPTIMISED] SOURCES... LINK libraries... [TIMEOUT seconds] [LABELS ...])
# One executable; one ctest entry per GoogleTest suite executable, so that start-up under an emulator is paid once.
function(sve_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "OPTIMISED" "TIMEOUT" "SOURCES;LINK;LABELS;ARGS")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 600)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LINK} GTest::gtest_main sve_warnings)
  # Most are compiled for longer than they run; what they test has been optimised already.
  target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:$<IF:$<BOOL:${arg_OPTIMISED}>,-O1,-O0>>)
  sve_link_whole_model(${name})
  add_test(NAME ${SVE_TEST_PREFIX}${name} COMMAND ${name} ${arg_ARGS})
  set_tests_properties(${SVE_TEST_PREFIX}${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}"
                       SKIP_REGULAR_EXPRESSION "${SVE_SKIPPED}")
endfunction()
