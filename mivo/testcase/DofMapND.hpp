// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "mivo/utils/Complex.hpp"
#include "mivo/utils/export.hpp"

namespace mivo {

/// Numbering of the points of a regular grid, the first coordinate running fastest. T is a value
/// type that the numbering does not depend on; G is the type of global indices.
template <class T, class G>
class MIVO_API DofMapND {
 public:
  /// Points per dimension
  explicit DofMapND(const std::vector<G>& points);

  /// Number of a grid point. Coordinates are not checked.
  G grid2idx(const std::vector<G>& grid) const;
  /// Coordinates of point `index`; `grid` takes one element per dimension.
  void idx2grid(G index, std::vector<G>& grid) const;

  G getSize() const { return strides.back(); }
  G getDim() const { return count; }
  const std::vector<G>& getDims() const { return dims; }
  const std::vector<G>& getStrides() const { return strides; }

 private:
  std::vector<G> dims;
  std::vector<G>
      strides;  ///< strides[k + 1] = strides[k] dims[k]; the last is the number of points
  G count;
};

extern template class DofMapND<double, long>;
extern template class DofMapND<double, int>;
extern template class DofMapND<Complex<double>, long>;
extern template class DofMapND<Complex<double>, int>;

}  // namespace mivo
