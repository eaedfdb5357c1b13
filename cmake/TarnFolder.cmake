# One static library per source folder, made of every .cpp in it; every *_test.cpp becomes part of one test program.

# Flags that every target of ours gets.
add_library(tarn_flags INTERFACE)
target_compile_features(tarn_flags INTERFACE cxx_std_20)
target_include_directories(tarn_flags INTERFACE ${CMAKE_SOURCE_DIR} ${CMAKE_BINARY_DIR}/generated)
target_compile_options(tarn_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wcast-align -Wimplicit-fallthrough
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual>
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety -Wno-gnu-zero-variadic-macro-arguments>
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>  # GCC 12 sees overlaps in std::string that cannot be (its bug 105651)
  $<$<BOOL:${TARN_WERROR}>:-Werror>)
if(TARN_SANITIZE)
  target_compile_options(tarn_flags INTERFACE -fsanitize=${TARN_SANITIZE} -fno-omit-frame-pointer
    -fno-sanitize-recover=all)
  target_link_options(tarn_flags INTERFACE -fsanitize=${TARN_SANITIZE})
endif()

# tarn_precompile(<target> <first> [<header>]): where TARN_PRECOMPILE asks for it, the headers that most
# sources include are parsed once, by the target `first`, and taken from there by others of the same flags.
function(tarn_precompile target first)
  if(NOT TARN_PRECOMPILE)
    return()
  elseif(target STREQUAL first)
    target_precompile_headers(${target} PRIVATE ${CMAKE_SOURCE_DIR}/cmake/precompiled.h ${ARGN})
  else()
    target_precompile_headers(${target} REUSE_FROM ${first})
  endif()
  target_compile_options(${target} PRIVATE -fpch-preprocess)  # without it a compiler cache gives up
endfunction()

# tarn_folder(<name> <folder>... [TEST_ENVIRONMENT <NAME=value>] [LINK <target>...])
# Library tarn_<name> from the sources of the folders; tests go to the target tarn_<name>_test.
function(tarn_folder name)
  cmake_parse_arguments(ARG "" "TEST_ENVIRONMENT" "LINK" ${ARGN})
  set(sources)
  set(tests)
  foreach(folder IN LISTS ARG_UNPARSED_ARGUMENTS)
    file(GLOB found CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${folder}/*.cpp)
    list(APPEND sources ${found})
  endforeach()
  set(tests ${sources})
  list(FILTER tests INCLUDE REGEX "_test\\.cpp$")
  list(FILTER sources EXCLUDE REGEX "_test\\.cpp$")
  if(sources)
    add_library(tarn_${name} STATIC ${sources})
    target_link_libraries(tarn_${name} PUBLIC tarn_flags ${ARG_LINK})
    tarn_precompile(tarn_${name} tarn_base)
  else()
    add_library(tarn_${name} INTERFACE)
    target_link_libraries(tarn_${name} INTERFACE tarn_flags ${ARG_LINK})
  endif()
  if(tests AND TARN_TESTS)
    add_executable(tarn_${name}_test ${tests})
    target_link_libraries(tarn_${name}_test PRIVATE tarn_${name} GTest::gmock GTest::gtest_main)
    tarn_precompile(tarn_${name}_test tarn_base_test <gtest/gtest.h>)
    gtest_discover_tests(tarn_${name}_test DISCOVERY_TIMEOUT 60
      PROPERTIES ENVIRONMENT "${ARG_TEST_ENVIRONMENT}")
  endif()
endfunction()

# tarn_shared(<target> <file name> SOURCES ... LINK ...): a library of the package, found beside the modules.
function(tarn_shared target output)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_library(${target} SHARED ${ARG_SOURCES})
  target_link_libraries(${target} PRIVATE tarn_flags ${ARG_LINK})
  target_link_options(${target} PRIVATE -Wl,--exclude-libs,ALL -Wl,-z,defs)
  set_target_properties(${target} PROPERTIES PREFIX "" OUTPUT_NAME ${output} DEFINE_SYMBOL ""
    LIBRARY_OUTPUT_DIRECTORY ${TARN_PACKAGE_DIR} BUILD_RPATH "$ORIGIN" INSTALL_RPATH "$ORIGIN"
    BUILD_WITH_INSTALL_RPATH ON)
  if(target MATCHES _311)
    tarn_precompile(${target} _tarn_311 <Python.h>)
  endif()
  install(TARGETS ${target} LIBRARY DESTINATION tarn NAMELINK_SKIP)
endfunction()
