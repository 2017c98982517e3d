// SPDX-License-Identifier: Apache-2.0
#include "mivo/testcase/PoissonFDM.hpp"

#include <cmath>
#include <cstddef>
#include <vector>

#include "mivo/mat/assembly/RowAssembly.hpp"
#include "mivo/testcase/DofMapND.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/Utils.hpp"
#include "mivo/utils/json.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/strings.hpp"

namespace mivo {

namespace {

constexpr double kPi = 3.141592653589793;

/// Walks the points of a grid in the order of their numbers.
template <class T, class G>
class GridWalk {
 public:
  GridWalk(const DofMapND<T, G>& map, G first) : map_(map) {
    if (first < map.getSize()) map.idx2grid(first, grid_);
  }
  const std::vector<G>& grid() const { return grid_; }
  void next() {
    for (std::size_t k = 0; k < grid_.size(); ++k) {
      if (++grid_[k] < map_.getDims()[k]) return;
      grid_[k] = 0;
    }
  }
  bool onBoundary() const {
    for (std::size_t k = 0; k < grid_.size(); ++k) {
      if (grid_[k] == 0 || grid_[k] == map_.getDims()[k] - 1) return true;
    }
    return false;
  }

 private:
  const DofMapND<T, G>& map_;
  std::vector<G> grid_;
};

template <class T, class G, class L>
void addStencils(const DofMapND<T, G>& map, const std::vector<double>& h, ParCSRMatrixT<T, G, L>& A,
                 RowAssembly<T, G, L>& rows) {
  const std::size_t dims = h.size();
  std::vector<T> centre(dims), neighbour(dims);
  for (std::size_t k = 0; k < dims; ++k) {
    centre[k] = T(2 / (h[k] * h[k]));
    neighbour[k] = T(-1 / (h[k] * h[k]));
  }
  G begin = 0, end = 0;
  A.getOwnerShipRange(&begin, &end);
  GridWalk<T, G> walk(map, begin);
  for (G i = begin; i < end; ++i, walk.next()) {
    rows.beginRow(i);
    if (walk.onBoundary()) {
      rows.add(i, T(1));
      continue;
    }
    for (std::size_t k = 0; k < dims; ++k) {
      rows.add(i, centre[k]);
      rows.add(i - map.getStrides()[k], neighbour[k]);
      rows.add(i + map.getStrides()[k], neighbour[k]);
    }
  }
}

/// Exact solution prod sin(pi x_k) in every owned point, and the right-hand side that belongs to
/// it.
template <class T, class G, class L>
void fillSine(const DofMapND<T, G>& map, const std::vector<double>& h, ParMatrixT<T, G, L>& x,
              ParMatrixT<T, G, L>& b) {
  const std::size_t dims = h.size();
  const double c = static_cast<double>(dims) * kPi * kPi;
  // The sine depends on one coordinate alone.
  std::vector<std::vector<double>> sines(dims);
  for (std::size_t k = 0; k < dims; ++k) {
    for (G g = 0; g < map.getDims()[k]; ++g) {
      sines[k].push_back(std::sin(kPi * (static_cast<double>(g) * h[k])));
    }
  }
  G begin = 0, end = 0;
  x.getOwnerShipRange(&begin, &end);
  T* local_x = x.getLocalMatrix().getData();
  T* local_b = b.getLocalMatrix().getData();
  GridWalk<T, G> walk(map, begin);
  for (G i = begin; i < end; ++i, walk.next()) {
    double s = 1;
    for (std::size_t k = 0; k < dims; ++k) {
      s *= sines[k][static_cast<std::size_t>(walk.grid()[k])];
    }
    local_x[i - begin] = T(s);
    local_b[i - begin] = walk.onBoundary() ? T(0) : T(c * s);
  }
}

template <class T, class G, class L>
void fillRandom(const DofMapND<T, G>& map, ParMatrixT<T, G, L>& b) {
  using Local = typename ParMatrixT<T, G, L>::Local;
  G begin = 0, end = 0;
  b.getOwnerShipRange(&begin, &end);
  Local local = Local::rand(b.getLocalMatrix().getRows(), b.getLocalMatrix().getCols());
  GridWalk<T, G> walk(map, begin);
  for (G i = begin; i < end; ++i, walk.next()) {
    if (walk.onBoundary()) local.getData()[i - begin] = T(0);
  }
  b.setLocalMatrix({local});
}

}  // namespace

template <class T, class G, class L>
PoissonFDM_T<T, G, L>::~PoissonFDM_T() = default;

template <class T, class G, class L>
void PoissonFDM_T<T, G, L>::create(const json& params) {
  TestCaseT<T, G, L>::create(params);
  readJsonKey(params, "dim", dim);
  readJsonKey(params, "N", N);
  readJsonKey(params, "rhs", rhs);
}

template <class T, class G, class L>
void PoissonFDM_T<T, G, L>::generate(ParCSRMatrixT<T, G, L>& A, ParMatrixT<T, G, L>& x,
                                     ParMatrixT<T, G, L>& b) {
  MIVO_CHECK(dim >= 0 && N >= 0) << "PoissonFDM: dim " << dim << " and N " << N
                                 << " must not be negative";
  const bool trace = this->rank == 0 && Utils::getVerboseLevel() >= 3;
  const Device host;
  const std::vector<G> dims(static_cast<std::size_t>(dim), static_cast<G>(N));
  const DofMapND<T, G> map(dims);
  const G n = map.getSize();
  std::vector<double> h;
  for (const G points : dims) h.push_back(1.0 / static_cast<double>(points));

  MIVO_LOG_AT(3, trace, "TestCase", 45)
      << "Begin assembling poission A and b, size " << listText(dims);
  A.create(n, n, host, this->comm);
  b.create(n, host, this->comm);
  {
    RowAssembly<T, G, L> rows(A);
    addStencils(map, h, A, rows);
    MIVO_LOG_AT(3, trace, "TestCase", 81) << "finish add values to A";
    rows.finish();
  }
  MIVO_LOG_AT(3, trace, "TestCase", 85) << "finish assemble to A";

  x.create(n, host, this->comm);
  if (rhs == "sin(pi*x)") {
    // Every rank sets its own rows only, so that the assembly has nothing to carry and the values
    // can be written in place behind it.
    b.beginAssemble();
    MIVO_LOG_AT(3, trace, "TestCase", 109) << "finish add values to b";
    b.endAssemble();
    fillSine(map, h, x, b);
    MIVO_LOG_AT(3, trace, "TestCase", 114) << "finish assemble to b";
  } else if (rhs == "random") {
    b.create(n, host, this->comm);
    fillRandom(map, b);
    x.fill(T(0));
  }

  MIVO_LOG_AT(3, trace, "TestCase", 138) << "End assembling poisson A and b";
  const G nnz = A.getNnzs();  // collective, so not inside the message
  MIVO_LOG_AT(3, trace, "TestCase", 140) << "A nnz " << nnz;

  A = A.toDevice(this->device);
  x = x.toDevice(this->device);
  b = b.toDevice(this->device);
}

template class PoissonFDM_T<double, long, int>;
template class PoissonFDM_T<Complex<double>, long, int>;
template class PoissonFDM_T<double, int, int>;
template class PoissonFDM_T<Complex<double>, int, int>;

#define MIVO_REGISTER_TYPE(T, G) \
  MIVO_REGISTER(TestCaseT, "PoissonFDM", T, G, int, PoissonFDM_T<T, G, int>)
MIVO_REGISTER_TYPE(double, long)
MIVO_REGISTER_TYPE(Complex<double>, long)
MIVO_REGISTER_TYPE(double, int)
MIVO_REGISTER_TYPE(Complex<double>, int)
#undef MIVO_REGISTER_TYPE

}  // namespace mivo
