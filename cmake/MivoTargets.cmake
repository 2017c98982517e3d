# SPDX-License-Identifier: Apache-2.0
# Compile options shared by all targets, and helpers that keep the CMakeLists of the folders short.

add_library(mivo_options INTERFACE)
target_compile_options(mivo_options INTERFACE -Wall -Wextra -Wshadow -ffp-contract=off)
if(MIVO_WERROR)
  target_compile_options(mivo_options INTERFACE -Werror)
endif()
if(MIVO_NATIVE)
  target_compile_options(mivo_options INTERFACE -march=native)
endif()

# mivo_sources(FILE...): adds sources of the current folder to the library.
function(mivo_sources)
  foreach(file IN LISTS ARGN)
    target_sources(mivo PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/${file})
  endforeach()
endfunction()

# mivo_sources_by_type(FILE TYPES TYPE...): compiles a template family once for each value type, so that a
# heavy family spreads over the cores. Each unit includes FILE with MIVO_ONLY_VALUE set to its type. TYPES are
# taken from int long float double cfloat cdouble.
function(mivo_sources_by_type file)
  cmake_parse_arguments(ARG "" "" "TYPES" ${ARGN})
  get_filename_component(stem ${file} NAME_WE)
  file(RELATIVE_PATH path ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR}/${file})
  set(name_cfloat "mivo::Complex<float>")
  set(name_cdouble "mivo::Complex<double>")
  foreach(type IN LISTS ARG_TYPES)
    set(value ${type})
    if(DEFINED name_${type})
      set(value ${name_${type}})
    endif()
    set(unit ${CMAKE_CURRENT_BINARY_DIR}/${stem}_${type}.cpp)
    file(CONFIGURE OUTPUT ${unit} CONTENT
      "#define MIVO_ONLY_VALUE ::${value}\n#include \"${path}\"\n")
    if(NOT DEFINED name_${type})
      file(CONFIGURE OUTPUT ${unit} CONTENT
        "#define MIVO_ONLY_VALUE ${value}\n#include \"${path}\"\n")
    endif()
    target_sources(mivo PRIVATE ${unit})
  endforeach()
endfunction()

set(MIVO_VALUE_TYPES int long float double cfloat cdouble)
set(MIVO_SCALAR_TYPES float double cfloat cdouble)

# mivo_test(NAME FILE...): a GoogleTest program of the current folder, with one ctest entry a case.
function(mivo_test name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE mivo mivo_options GTest::gmock GTest::gtest GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
endfunction()
