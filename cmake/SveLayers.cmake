# One library a folder of sve/. A layer links only what lies below it; tests/layering holds what it includes.

option(SVE_SANITIZE "Build with the address and undefined behaviour sanitizers" OFF)
option(SVE_HOST_ARCH_FLAGS "On x86-64 build for AVX2 and its companions (x86-64-v3)" OFF)

# The vector length is a header, so that what is installed has it too.
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/include/sve/state/built_length.h CONTENT
  "// The vector length that this model is built for.\n#pragma once\n#define SVE_VECTOR_BITS @SVE_VECTOR_BITS@\n" @ONLY)
# Beside those of another length.
set(SVE_INCLUDE_FOLDER ${CMAKE_INSTALL_INCLUDEDIR})
if(SVE_MAIN_BUILD)
  string(APPEND SVE_INCLUDE_FOLDER /${SVE_LIBRARY})
endif()

add_library(sve_options INTERFACE)
target_include_directories(sve_options INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
  $<INSTALL_INTERFACE:${SVE_INCLUDE_FOLDER}>)
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
  add_compile_options(-O1 -g1 -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# In a release build of GCC the three layers of the model are optimised as one, so that handlers take in what they call:
# a third of the time of a short instruction goes into the call. Their archives hold no ordinary code, which would take as
# long again: everything links the merged object.
include(CheckIPOSupported)
set(merge_default OFF)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_BUILD_TYPE STREQUAL "Release" AND NOT SVE_SANITIZE)
  check_ipo_supported(RESULT merge_default OUTPUT ipo_output LANGUAGES CXX)
endif()
option(SVE_MERGE_MODEL "Optimise the model's layers as one (half a minute at each change of the model)" ${merge_default})
set(sve_merged_layers sve_insn sve_veclib sve_decode)
set(sve_merged_object ${PROJECT_BINARY_DIR}/sve_model.o)
if(SVE_MERGE_MODEL)
  add_link_options(-fno-lto)
endif()
# What is the same at every length is built once: a further length's build takes the main build's.
add_custom_target(sve_for_every_length)
# sve_take_from_main_build(NAME PATH BELOW...): the archive PATH of the main build.
function(sve_take_from_main_build name path)
  add_library(${name} STATIC IMPORTED GLOBAL)
  set_target_properties(${name} PROPERTIES IMPORTED_LOCATION ${SVE_MAIN_BUILD}/${path})
  target_link_libraries(${name} INTERFACE ${ARGN})
endfunction()

# sve_layer(NAME [EVERY_LENGTH] SOURCES... BELOW layers...)
function(sve_layer name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "EVERY_LENGTH" "" "SOURCES;BELOW")
  if(arg_EVERY_LENGTH AND SVE_MAIN_BUILD)
    file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
    sve_take_from_main_build(${name} ${folder}/${CMAKE_STATIC_LIBRARY_PREFIX}${name}${CMAKE_STATIC_LIBRARY_SUFFIX}
                             sve_options ${arg_BELOW})
    return()
  elseif(arg_EVERY_LENGTH)
    add_dependencies(sve_for_every_length ${name})
  endif()
  if(arg_SOURCES)
    add_library(${name} STATIC ${arg_SOURCES})
    target_link_libraries(${name} PUBLIC sve_options ${arg_BELOW}
                          PRIVATE $<BUILD_INTERFACE:sve_warnings> $<BUILD_INTERFACE:sve_model_flags>)
    if(SVE_MERGE_MODEL AND name IN_LIST sve_merged_layers)
      target_compile_options(${name} PRIVATE -flto -fno-fat-lto-objects)
    endif()
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE sve_options ${arg_BELOW})
  endif()
endfunction()

# Makes one object of the merged layers; once, after all of them.
function(sve_merge_layers)
  if(NOT SVE_MERGE_MODEL)
    return()
  endif()
  set(objects)
  foreach(layer ${sve_merged_layers})
    list(APPEND objects $<TARGET_OBJECTS:${layer}>)
  endforeach()
  get_directory_property(options COMPILE_OPTIONS)
  separate_arguments(flags NATIVE_COMMAND "${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_RELEASE}")
  add_custom_command(
    OUTPUT ${sve_merged_object}
    COMMAND ${CMAKE_CXX_COMPILER} ${flags} ${options} $<TARGET_PROPERTY:sve_model_flags,INTERFACE_COMPILE_OPTIONS>
            -fPIC -flto=auto -flinker-output=nolto-rel -r -o ${sve_merged_object} ${objects}
    DEPENDS ${sve_merged_layers} ${objects}
    COMMENT "Optimising the model as one" VERBATIM COMMAND_EXPAND_LISTS)
  add_custom_target(sve_merged_model DEPENDS ${sve_merged_object})
endfunction()

# sve_link_whole_model(NAME [further layers...]): every instruction function, handler and name table is part of the
# result, reached or not. What links the model takes the merged object, which leaves the archives nothing to add.
function(sve_link_whole_model name)
  get_target_property(libraries ${name} LINK_LIBRARIES)
  set(whole sve_stats sve_state ${ARGN})
  if(SVE_MERGE_MODEL AND "sve_decode" IN_LIST libraries)
    set_source_files_properties(${sve_merged_object} PROPERTIES GENERATED TRUE EXTERNAL_OBJECT TRUE)
    target_sources(${name} PRIVATE ${sve_merged_object})
    add_dependencies(${name} sve_merged_model)
  else()
    list(PREPEND whole ${sve_merged_layers})
  endif()
  list(JOIN whole "," whole)
  set_target_properties(${name} PROPERTIES LINK_LIBRARY_OVERRIDE "WHOLE_ARCHIVE,${whole}")
endfunction()
