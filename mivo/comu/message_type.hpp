// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <type_traits>

#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/Complex.hpp"

namespace mivo::comu {

/// Message type of a value or index type. Internal, like the header of the message layer.
template <class T>
constexpr MPI_Datatype messageType() {
  if constexpr (std::is_same_v<T, int>) {
    return MPI_INT;
  } else if constexpr (std::is_same_v<T, long>) {
    return MPI_LONG;
  } else if constexpr (std::is_same_v<T, float>) {
    return MPI_FLOAT;
  } else if constexpr (std::is_same_v<T, double>) {
    return MPI_DOUBLE;
  } else if constexpr (std::is_same_v<T, Complex<float>>) {
    return MPI_COMPLEX;
  } else {
    static_assert(std::is_same_v<T, Complex<double>>, "no message type");
    return MPI_DOUBLE_COMPLEX;
  }
}

}  // namespace mivo::comu
