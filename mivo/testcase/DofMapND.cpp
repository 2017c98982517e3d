// SPDX-License-Identifier: Apache-2.0
#include "mivo/testcase/DofMapND.hpp"

#include <cstddef>

#include "mivo/utils/logging.hpp"

namespace mivo {

template <class T, class G>
DofMapND<T, G>::DofMapND(const std::vector<G>& points)
    : dims(points), strides(1, G(1)), count(static_cast<G>(points.size())) {
  for (const G n : dims) {
    G stride = 0;
    const bool fits = !__builtin_mul_overflow(strides.back(), n, &stride);
    MIVO_CHECK(fits) << "DofMapND: the number of grid points exceeds the index type";
    strides.push_back(stride);
  }
}

template <class T, class G>
G DofMapND<T, G>::grid2idx(const std::vector<G>& grid) const {
  G index = 0;
  for (std::size_t k = 0; k < dims.size(); ++k) index += grid[k] * strides[k];
  return index;
}

template <class T, class G>
void DofMapND<T, G>::idx2grid(G index, std::vector<G>& grid) const {
  grid.resize(dims.size());
  for (std::size_t k = dims.size(); k-- > 0;) {
    grid[k] = index / strides[k];
    index -= grid[k] * strides[k];
  }
}

template class DofMapND<double, long>;
template class DofMapND<double, int>;
template class DofMapND<Complex<double>, long>;
template class DofMapND<Complex<double>, int>;

}  // namespace mivo
