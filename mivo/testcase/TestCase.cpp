// SPDX-License-Identifier: Apache-2.0
#include "mivo/testcase/TestCase.hpp"

#include <string>

#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

template <class T, class G, class L>
TestCaseT<T, G, L>::~TestCaseT() = default;

template <class T, class G, class L>
void TestCaseT<T, G, L>::create(const json& params) {
  std::string text;
  if (readJsonKey(params, "device", text)) device = Device(text);
}

template <class T, class G, class L>
void TestCaseT<T, G, L>::setDeviceAndComm(const Device& where, int communicator) {
  device = where;
  comm = communicator;
  size = sizeOf(comm);
  rank = rankOf(comm);
}

template <class T, class G, class L>
Factory<TestCaseT<T, G, L>>& TestCaseT<T, G, L>::getFactory() {
  static Factory<TestCaseT> factory("testcase_type");
  return factory;
}

MIVO_INSTANCE_SCALARS(TestCaseT, long, int)
MIVO_INSTANCE_SCALARS(TestCaseT, int, int)

}  // namespace mivo
