# One library a folder of sve/. A layer links only what lies below it, so a wrong include fails to link.

option(SVE_SANITIZE "Build with the address and undefined behaviour sanitizers" OFF)
option(SVE_HOST_ARCH_FLAGS "On x86-64 build for AVX2 and its companions (x86-64-v3)" OFF)

add_library(sve_options INTERFACE)
target_include_directories(sve_options INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(sve_options INTERFACE cxx_std_20)

add_library(sve_warnings INTERFACE)
# GCC 12 reports -Wrestrict in its own std::string (GCC bug 105329).
target_compile_options(sve_warnings INTERFACE -Wall -Wextra -Wshadow $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict> $<$<BOOL:${SVE_WERROR}>:-Werror>)

# How every part of the model is compiled: contraction and folding would change results and status bits.
add_library(sve_model_flags INTERFACE)
target_compile_options(sve_model_flags INTERFACE
  -ffp-contract=off -frounding-math -fno-semantic-interposition -fstrict-aliasing
  $<$<CONFIG:Release>:-O3>)

if(SVE_HOST_ARCH_FLAGS AND CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  add_compile_options(-march=x86-64-v3)
  # GCC copies in 16-byte pieces by default. A 32-byte read of what two such pieces wrote has to wait until both are in
  # the cache, which costs more than most instructions.
  include(CheckCXXCompilerFlag)
  check_cxx_compiler_flag("-mmove-max=256 -mstore-max=256" SVE_HAVE_MOVE_MAX)
  if(SVE_HAVE_MOVE_MAX)
    add_compile_options(-mmove-max=256 -mstore-max=256)
  endif()
endif()
if(SVE_SANITIZE)
  add_compile_options(-O1 -g -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# sve_layer(NAME SOURCES... BELOW layers...)
function(sve_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;BELOW")
  if(arg_SOURCES)
    add_library(${name} STATIC ${arg_SOURCES})
    target_link_libraries(${name} PUBLIC sve_options ${arg_BELOW}
                          PRIVATE $<BUILD_INTERFACE:sve_warnings> $<BUILD_INTERFACE:sve_model_flags>)
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE sve_options ${arg_BELOW})
  endif()
endfunction()

# Every routine and instruction function is part of the result, reached or not: link the model whole.
function(sve_link_whole_model name)
  set_target_properties(${name} PROPERTIES LINK_LIBRARY_OVERRIDE "WHOLE_ARCHIVE,sve_insn,sve_veclib,sve_decode,sve_stats")
endfunction()
