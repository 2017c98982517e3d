// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "mivo/testcase/TestCase.hpp"
#include "mivo/utils/export.hpp"

namespace mivo {

/// A linear system from Matrix Market files, which rank 0 reads and spreads over the ranks.
/// Registered as "MatrixMarket".
///
/// Keys: "device" (see `TestCaseT`), "filename_A", "filename_b", "filename_x" (texts, empty by
/// default): an empty name leaves that result empty.
template <class T, class G, class L>
class MIVO_API MatrixMarket_T : public TestCaseT<T, G, L> {
 public:
  std::string filename_A;
  std::string filename_b;
  std::string filename_x;

  ~MatrixMarket_T() override;

  void create(const json& params);
  void generate(ParCSRMatrixT<T, G, L>& A, ParMatrixT<T, G, L>& x, ParMatrixT<T, G, L>& b) override;
};

extern template class MatrixMarket_T<double, long, int>;
extern template class MatrixMarket_T<Complex<double>, long, int>;

}  // namespace mivo
