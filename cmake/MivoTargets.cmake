# SPDX-License-Identifier: Apache-2.0
# Compile options shared by all targets, and helpers that keep the CMakeLists of the folders short.

add_library(mivo_options INTERFACE)
set(mivo_cxx_options -Wall -Wextra -Wshadow -ffp-contract=off)
# Nothing is contracted on a device either, so that products agree with the host's to the bit.
set(mivo_cuda_options --extended-lambda --fmad=false -Xcompiler=-Wall,-Wextra,-ffp-contract=off)
if(MIVO_WERROR)
  list(APPEND mivo_cxx_options -Werror)
  list(APPEND mivo_cuda_options --Werror=all-warnings)
endif()
if(MIVO_NATIVE)
  list(APPEND mivo_cxx_options -march=native)
endif()
if(MIVO_PLAIN_FORMS)
  target_compile_definitions(mivo_options INTERFACE MIVO_PLAIN_FORMS)
endif()
target_compile_options(mivo_options INTERFACE
  "$<$<COMPILE_LANGUAGE:CXX>:${mivo_cxx_options}>" "$<$<COMPILE_LANGUAGE:CUDA>:${mivo_cuda_options}>")

# mivo_compile_as_library(TARGET): the options with which every unit of the library is compiled.
function(mivo_compile_as_library target)
  target_include_directories(${target} PRIVATE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
  target_compile_features(${target} PRIVATE cxx_std_17)
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:mivo_options>)
  set_target_properties(${target} PROPERTIES
    CXX_VISIBILITY_PRESET hidden
    CUDA_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON
    DEFINE_SYMBOL "")
  if(NOT CMAKE_BUILD_TYPE OR CMAKE_BUILD_TYPE STREQUAL "Release")
    target_compile_options(${target} PRIVATE -O3)
  endif()
endfunction()

# mivo_sources(FILE...): adds sources of the current folder to the library.
function(mivo_sources)
  foreach(file IN LISTS ARGN)
    target_sources(mivo PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/${file})
  endforeach()
endfunction()

# mivo_unit_of_type(UNIT FILE TYPE): an object library of its own for one unit of the library, with MIVO_ONLY_VALUE
# defined as TYPE unless that is `all`. No generated file: a compiler cache then serves every build tree.
function(mivo_unit_of_type unit file type)
  set(value_cfloat "::mivo::Complex<float>")
  set(value_cdouble "::mivo::Complex<double>")
  set(value ${type})
  if(DEFINED value_${type})
    set(value ${value_${type}})
  endif()
  add_library(${unit} OBJECT ${file})
  mivo_compile_as_library(${unit})
  mivo_use_cuda(${unit})
  if(NOT type STREQUAL "all")
    target_compile_definitions(${unit} PRIVATE "MIVO_ONLY_VALUE=${value}")
  endif()
  target_link_libraries(${unit} PRIVATE nlohmann_json::nlohmann_json Threads::Threads)
  target_sources(mivo PRIVATE $<TARGET_OBJECTS:${unit}>)
endfunction()

# mivo_sources_by_type(FILE TYPES TYPE...): compiles a template family once for each value type, so that a
# heavy family spreads over the cores. TYPES are taken from int long float double cfloat cdouble.
function(mivo_sources_by_type file)
  cmake_parse_arguments(ARG "" "" "TYPES" ${ARGN})
  get_filename_component(stem ${file} NAME_WE)
  foreach(type IN LISTS ARG_TYPES)
    mivo_unit_of_type(mivo_${stem}_${type} ${file} ${type})
  endforeach()
endfunction()

set(MIVO_VALUE_TYPES int long float double cfloat cdouble)
set(MIVO_SCALAR_TYPES float double cfloat cdouble)

# mivo_internal_headers(FILE...): headers of the current folder that are not part of the public interface and are not
# installed. Files named *Impl.hpp or *_impl.hpp need no such line.
function(mivo_internal_headers)
  set_property(GLOBAL APPEND PROPERTY MIVO_INTERNAL_HEADERS ${ARGN})
endfunction()

# mivo_test(NAME FILE...): a GoogleTest program of the current folder, with one ctest entry a case.
function(mivo_test name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE mivo mivo_options GTest::gmock GTest::gtest GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  # Suites over all value types cost compile time far more than run time; optimising them takes four times as long.
  target_compile_options(${name} PRIVATE -O0)
  if(MIVO_CUDA)
    target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/cuda_device.cpp)
    target_compile_definitions(${name} PRIVATE MIVO_TEST_PROGRAM=${name})
  endif()
  # Files of fixed names stay in the build, which neither other users nor other builds share.
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT 300 ENVIRONMENT TEST_TMPDIR=${CMAKE_CURRENT_BINARY_DIR}/)
endfunction()
