// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/precond/ParSmootherSOR.hpp"

namespace mivo {

/// Symmetric SOR: each sweep is an SOR sweep in the direction that "forward" names and then one in
/// the other direction. From zero, on one rank, a symmetric operator for symmetric A, and so fit
/// for conjugate gradients.
///
/// Registered as "SmootherSSOR", "PrecondSSOR" and "SolverSSOR". Keys: those of SOR. The two halves
/// count as one sweep, and each makes its own halo exchange.
template <class T, class G, class L>
class MIVO_API ParSmootherSSOR_T : public ParSmootherSOR_T<T, G, L> {
 public:
  using Base = ParSmootherSOR_T<T, G, L>;
  using Base::create;
  using typename Base::Vector;

  ~ParSmootherSSOR_T() override;

  void create(const json& params);
  void sor_step(const Vector& b, Vector& x, double omega, bool ascending, int* rowOrder) override;
};

MIVO_EXTERN_SCALARS(ParSmootherSSOR_T, long, int)

}  // namespace mivo
