// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include "mivo/operators/ParSmoother.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

/// Smoothers one after the other, registered as "SmootherList"; not for float.
///
/// Its parameters are an array of smoothers, which may be lists. Each starts from the x that the
/// one before it left. Members of unknown name are passed over. Collective as the members are.
template <class T, class G, class L>
class MIVO_API ParSmootherList_T : public ParSmootherT<T, G, L> {
 public:
  using Vector = ParMatrixT<T, G, L>;

  ~ParSmootherList_T() override;

  void create(const json& params);
  void setup(const ParMatrixFreeT<T, G, L>& A) override;
  void smooth(const Vector& b, Vector& x) override;
  void smoothFromZero(const Vector& b, Vector& x) override;

 private:
  std::vector<std::shared_ptr<ParSmootherT<T, G, L>>> members_;
};

extern template class ParSmootherList_T<double, long, int>;
extern template class ParSmootherList_T<Complex<float>, long, int>;
extern template class ParSmootherList_T<Complex<double>, long, int>;

}  // namespace mivo
