// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/utils/Complex.hpp"
#ifdef MIVO_WITH_CUDA
#include "mivo/spm/impls/Cuda.hpp"
#endif

/// The types for which the class templates of the library exist. A list calls M(T) for each of
/// them; the lists ending in _WITH hand further arguments on: M(T, ...).
#define MIVO_FOR_EACH_VALUE(M) \
  M(int) M(long) M(float) M(double) M(::mivo::Complex<float>) M(::mivo::Complex<double>)
#define MIVO_FOR_EACH_VALUE_WITH(M, ...) \
  M(int, __VA_ARGS__)                    \
  M(long, __VA_ARGS__)                   \
  M(float, __VA_ARGS__)                  \
  M(double, __VA_ARGS__)                 \
  M(::mivo::Complex<float>, __VA_ARGS__) \
  M(::mivo::Complex<double>, __VA_ARGS__)

/// The four types in which systems are solved.
#define MIVO_FOR_EACH_SCALAR(M) \
  M(float) M(double) M(::mivo::Complex<float>) M(::mivo::Complex<double>)
#define MIVO_FOR_EACH_SCALAR_WITH(M, ...) \
  M(float, __VA_ARGS__)                   \
  M(double, __VA_ARGS__)                  \
  M(::mivo::Complex<float>, __VA_ARGS__)  \
  M(::mivo::Complex<double>, __VA_ARGS__)

/// The same lists for definitions: a build that splits a family by value type narrows them to
/// MIVO_ONLY_VALUE.
#ifdef MIVO_ONLY_VALUE
#define MIVO_INSTANTIATE_VALUES(M) M(MIVO_ONLY_VALUE)
#define MIVO_INSTANTIATE_VALUES_WITH(M, ...) M(MIVO_ONLY_VALUE, __VA_ARGS__)
#define MIVO_INSTANTIATE_SCALARS(M) M(MIVO_ONLY_VALUE)
#define MIVO_INSTANTIATE_SCALARS_WITH(M, ...) M(MIVO_ONLY_VALUE, __VA_ARGS__)
#else
#define MIVO_INSTANTIATE_VALUES MIVO_FOR_EACH_VALUE
#define MIVO_INSTANTIATE_VALUES_WITH MIVO_FOR_EACH_VALUE_WITH
#define MIVO_INSTANTIATE_SCALARS MIVO_FOR_EACH_SCALAR
#define MIVO_INSTANTIATE_SCALARS_WITH MIVO_FOR_EACH_SCALAR_WITH
#endif

/// M(T, U) for each pair of value types.
#define MIVO_PAIRS_WITH_FIRST(T, M) \
  M(T, int)                         \
  M(T, long) M(T, float) M(T, double) M(T, ::mivo::Complex<float>) M(T, ::mivo::Complex<double>)
#define MIVO_INSTANTIATE_PAIRS(M) MIVO_INSTANTIATE_VALUES_WITH(MIVO_PAIRS_WITH_FIRST, M)

#define MIVO_CLASS_INSTANCE(T, KIND, CLASS, ...) KIND class CLASS<T, __VA_ARGS__>;

/// One line for a class: MIVO_EXTERN_SCALARS(SolverPCG_T, long, int) declares SolverPCG_T<T, long,
/// int> for the four scalar types in its header, MIVO_INSTANCE_SCALARS defines them in a source.
#define MIVO_EXTERN_VALUES(...) \
  MIVO_FOR_EACH_VALUE_WITH(MIVO_CLASS_INSTANCE, extern template, __VA_ARGS__)
#define MIVO_EXTERN_SCALARS(...) \
  MIVO_FOR_EACH_SCALAR_WITH(MIVO_CLASS_INSTANCE, extern template, __VA_ARGS__)
#define MIVO_INSTANCE_VALUES(...) \
  MIVO_INSTANTIATE_VALUES_WITH(MIVO_CLASS_INSTANCE, template, __VA_ARGS__)
#define MIVO_INSTANCE_SCALARS(...) \
  MIVO_INSTANTIATE_SCALARS_WITH(MIVO_CLASS_INSTANCE, template, __VA_ARGS__)

/// Kernels for the CUDA space, listed once, at the end of the header with their bodies: its .cu
/// file defines MIVO_CUDA_UNIT first and makes them, other units only declare them, and builds
/// without CUDA know nothing of them.
#ifdef MIVO_WITH_CUDA
#ifdef MIVO_CUDA_UNIT
#define MIVO_CUDA_TEMPLATE template
#else
#define MIVO_CUDA_TEMPLATE extern template
#endif
#define MIVO_CUDA_VALUES(...) \
  MIVO_INSTANTIATE_VALUES_WITH(MIVO_CLASS_INSTANCE, MIVO_CUDA_TEMPLATE, __VA_ARGS__, spm::Cuda)
#define MIVO_CUDA_SCALARS(...) \
  MIVO_INSTANTIATE_SCALARS_WITH(MIVO_CLASS_INSTANCE, MIVO_CUDA_TEMPLATE, __VA_ARGS__, spm::Cuda)
#else
#define MIVO_CUDA_VALUES(...)
#define MIVO_CUDA_SCALARS(...)
#endif
