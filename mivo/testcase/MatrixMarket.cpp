// SPDX-License-Identifier: Apache-2.0
#include "mivo/testcase/MatrixMarket.hpp"

#include <fstream>

#include "mivo/utils/Factory.hpp"
#include "mivo/utils/Utils.hpp"
#include "mivo/utils/json.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

namespace {

/// Reads one file, unless its name is empty. `line` belongs to the message.
template <class Holder>
void load(const char* what, int line, const std::string& file, Holder& holder) {
  if (file.empty()) return;
  MIVO_LOG_AT(3, Utils::getVerboseLevel() >= 3, "TestCase", line)
      << "Load " << what << " from " << file;
  std::ifstream stream(file);
  holder.loadFromStream(stream);
}

}  // namespace

template <class T, class G, class L>
MatrixMarket_T<T, G, L>::~MatrixMarket_T() = default;

template <class T, class G, class L>
void MatrixMarket_T<T, G, L>::create(const json& params) {
  TestCaseT<T, G, L>::create(params);
  readJsonKey(params, "filename_A", filename_A);
  readJsonKey(params, "filename_b", filename_b);
  readJsonKey(params, "filename_x", filename_x);
}

template <class T, class G, class L>
void MatrixMarket_T<T, G, L>::generate(ParCSRMatrixT<T, G, L>& A, ParMatrixT<T, G, L>& x,
                                       ParMatrixT<T, G, L>& b) {
  CSRMatrixT<T, L> root_A;
  typename ParMatrixT<T, G, L>::Local root_x, root_b;
  if (this->rank == 0) {
    load("A", 156, filename_A, root_A);
    load("x", 160, filename_x, root_x);
    load("b", 164, filename_b, root_b);
  }
  A = ParCSRMatrixT<T, G, L>::scatter(this->comm, 0, root_A);
  x.scatter(this->comm, 0, root_x);
  b.scatter(this->comm, 0, root_b);

  A = A.toDevice(this->device);
  x = x.toDevice(this->device);
  b = b.toDevice(this->device);
}

template class MatrixMarket_T<double, long, int>;
template class MatrixMarket_T<Complex<double>, long, int>;

MIVO_REGISTER(TestCaseT, "MatrixMarket", double, long, int, MatrixMarket_T<double, long, int>)
MIVO_REGISTER(TestCaseT, "MatrixMarket", Complex<double>, long, int,
              MatrixMarket_T<Complex<double>, long, int>)

}  // namespace mivo
