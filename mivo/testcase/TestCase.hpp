// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/communicator.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/json_fwd.hpp"

namespace mivo {

template <class Base>
class Factory;

/// A linear system made in one call: matrix, right-hand side and a vector for the solution, on a
/// given device and communicator.
///
/// Key of all test cases: "device" (text such as "cuda:0", default "cpu:0"). To work on another
/// device or communicator, call `setDeviceAndComm` between creation and `generate`. The family
/// exists for the four scalar types with global indices long and int; those that no test case
/// serves are empty.
template <class T, class G, class L>
class MIVO_API TestCaseT : public virtual ParOperator {
 public:
  Device device;
  std::int32_t rank = 0;
  std::int32_t size = 1;
  int comm = kCommWorld;

  /// Reads "device".
  void create(const json& params);
  void setDeviceAndComm(const Device& where, int communicator);

  /// Replaces all three. Collective over `comm`.
  virtual void generate(ParCSRMatrixT<T, G, L>& A, ParMatrixT<T, G, L>& x,
                        ParMatrixT<T, G, L>& b) = 0;

  ~TestCaseT() override;

  /// Family of the key "testcase_type".
  static Factory<TestCaseT>& getFactory();
};

MIVO_EXTERN_SCALARS(TestCaseT, long, int)
MIVO_EXTERN_SCALARS(TestCaseT, int, int)

}  // namespace mivo
