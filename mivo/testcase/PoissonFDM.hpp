// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "mivo/testcase/TestCase.hpp"
#include "mivo/utils/export.hpp"

namespace mivo {

/// Poisson equation -Laplace(u) = f with u = 0 on the boundary of the unit cube, in any number of
/// dimensions, by second-order finite differences on N^dim grid points with spacing 1/N. Registered
/// as "PoissonFDM".
///
/// Boundary rows hold a single 1. Inner rows hold the full stencil, columns of boundary points
/// included, so that the matrix is not symmetric, while a conjugate gradient run that starts from
/// zero on the boundary never notices. `generate` makes A, b and the exact solution as x: fill x
/// before using it as a start.
///
/// Keys: "device" (see `TestCaseT`), "dim" (int, 2), "N" (int, 100), "rhs" (text): "sin(pi*x)"
/// (default) for f = dim pi^2 prod sin(pi x_k); "random" for random b and zero x; with any other
/// text b and x stay undefined.
template <class T, class G, class L>
class MIVO_API PoissonFDM_T : public TestCaseT<T, G, L> {
 public:
  std::int32_t dim = 2;
  std::int32_t N = 100;
  std::string rhs = "sin(pi*x)";

  ~PoissonFDM_T() override;

  void create(const json& params);
  void generate(ParCSRMatrixT<T, G, L>& A, ParMatrixT<T, G, L>& x, ParMatrixT<T, G, L>& b) override;
};

extern template class PoissonFDM_T<double, long, int>;
extern template class PoissonFDM_T<Complex<double>, long, int>;
extern template class PoissonFDM_T<double, int, int>;
extern template class PoissonFDM_T<Complex<double>, int, int>;

}  // namespace mivo
