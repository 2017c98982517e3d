# SPDX-License-Identifier: Apache-2.0
# The three forms of a build, by MIVO_CUDA:
#   OFF      host only, no CUDA header anywhere
#   ON       kernels compiled by nvcc for CMAKE_CUDA_ARCHITECTURES (80 unless set); the runtime is linked statically
#   EMULATE  the same sources compiled as C++ against a stand-in for the runtime on the CPU, for tests
#
# Only the units that name the CUDA runtime are told the form, so that a compiler cache serves all others to every form.

set(MIVO_CUDA OFF CACHE STRING "CUDA kernels: OFF, ON (nvcc) or EMULATE (on the CPU, for tests)")
set_property(CACHE MIVO_CUDA PROPERTY STRINGS OFF ON EMULATE)

set(mivo_cuda_definitions "")
set(mivo_cuda_includes "")
if(MIVO_CUDA STREQUAL "EMULATE")
  set(mivo_cuda_definitions MIVO_WITH_CUDA MIVO_CUDA_EMULATE)
  set(mivo_cuda_includes ${PROJECT_SOURCE_DIR}/mivo/spm/cuda_emulation)
elseif(MIVO_CUDA)
  # Finds a toolkit in its usual place also when nvcc is not on the PATH.
  find_package(CUDAToolkit)
  if(NOT CUDAToolkit_FOUND)
    message(FATAL_ERROR "MIVO_CUDA=ON needs the CUDA toolkit, which is not found. Point CUDAToolkit_ROOT to it, or "
      "build with MIVO_CUDA=OFF.")
  endif()
  if(NOT CMAKE_CUDA_COMPILER)
    set(CMAKE_CUDA_COMPILER ${CUDAToolkit_NVCC_EXECUTABLE})
  endif()
  if(NOT CMAKE_CUDA_ARCHITECTURES)
    set(CMAKE_CUDA_ARCHITECTURES 80 CACHE STRING "Architectures of the CUDA kernels")
  endif()
  if(CMAKE_CXX_COMPILER_LAUNCHER AND NOT DEFINED CMAKE_CUDA_COMPILER_LAUNCHER)
    set(CMAKE_CUDA_COMPILER_LAUNCHER ${CMAKE_CXX_COMPILER_LAUNCHER})
  endif()
  enable_language(CUDA)
  set(CMAKE_CUDA_STANDARD 17)
  set(CMAKE_CUDA_STANDARD_REQUIRED ON)
  set(CMAKE_CUDA_EXTENSIONS OFF)
  set(mivo_cuda_definitions MIVO_WITH_CUDA)
  set(mivo_cuda_includes ${CUDAToolkit_INCLUDE_DIRS})
endif()

# mivo_cuda_units(FILE...): sources of the library in the current folder that include the CUDA runtime.
function(mivo_cuda_units)
  if(MIVO_CUDA)
    set_source_files_properties(${ARGN} TARGET_DIRECTORY mivo PROPERTIES
      COMPILE_DEFINITIONS "${mivo_cuda_definitions}" INCLUDE_DIRECTORIES "${mivo_cuda_includes}")
  endif()
endfunction()

# mivo_use_cuda(TARGET): the same for all sources of a target.
function(mivo_use_cuda target)
  target_compile_definitions(${target} PRIVATE ${mivo_cuda_definitions})
  target_include_directories(${target} SYSTEM PRIVATE ${mivo_cuda_includes})
endfunction()

# mivo_kernels(NAME [TYPES TYPE...]): NAME.cu, the instantiations of a kernel family for CUDA, compiled once for each
# value type when types are given. Nothing in a build without CUDA.
function(mivo_kernels name)
  cmake_parse_arguments(ARG "" "" "TYPES" ${ARGN})
  if(NOT MIVO_CUDA)
    return()
  endif()
  if(MIVO_CUDA STREQUAL "EMULATE")
    set_source_files_properties(${name}.cu PROPERTIES LANGUAGE CXX)
  endif()
  if(NOT ARG_TYPES)
    set(ARG_TYPES all)
  endif()
  foreach(type IN LISTS ARG_TYPES)
    mivo_unit_of_type(mivo_${name}_cuda_${type} ${name}.cu ${type})
  endforeach()
endfunction()
