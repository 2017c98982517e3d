// SPDX-License-Identifier: Apache-2.0

// Classical splitting and direct interpolation on one matrix.

#include "mivo/level_transfer/ruge_stuben/LevelTransferOps_RS.hpp"

#include <limits>

#include "mivo/mat/CrossData.hpp"
#include "mivo/ops/SpBlasOps.hpp"
#include "mivo/ops/SpLevelTransferOps.hpp"
#include "mivo/utils/Utils.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {
namespace {

/// The transpose of the strong entries, sorted.
template <class L>
CSRMatrixT<int, L> strongTranspose(const CSRMatrixT<int, L>& S) {
  CSRMatrixT<int, L> strong, turned;
  if (S.getNnz() > 0) strong = S.sparsify(0);
  turned.create(S.getCols(), S.getRows(), strong.getNnz(), S.getDevice());
  if (strong.getNnz() == 0) return turned;
  SpBlasOps<int, L>::csr_transpose(S.getDevice(), strong.getRows(), strong.getCols(),
                                   strong.getRowPtr(), strong.getColIdx(), strong.getValues(),
                                   turned.getRowPtr(), turned.getColIdx(), turned.getValues());
  turned.sortRows();
  return turned;
}

/// Runs one of the two kernels of the splitting.
template <class L, class Kernel>
void splitLocally(const CSRMatrixT<int, L>& S, MatrixT<int, L, MatrixLayoutRowMajor>& cf,
                  const Kernel& kernel) {
  const L n = S.getRows();
  if (n == 0) return;
  // There are buckets for twice the number of rows.
  MIVO_CHECK(n <= (std::numeric_limits<L>::max() - 2) / 2)
      << "splitting: " << n << " rows of a rank exceed the index type";
  const auto turned = strongTranspose(S);
  IndexVector lambda, ptr, cnt, i2n, n2i;
  for (IndexVector* v : {&lambda, &i2n, &n2i}) v->create(n, 1, S.getDevice());
  for (IndexVector* v : {&ptr, &cnt}) v->create(2 * n + 2, 1, S.getDevice());
  kernel(S.getDevice(), S.getRawMat(), turned.getRawMat(), cf.getData(), lambda.getData(),
         ptr.getData(), cnt.getData(), i2n.getData(), n2i.getData());
}

}  // namespace

template <class T, class G, class L>
void LevelTransferOps_RS<T, G, L>::connect(const Local& A, double eps_strong, LocalStrength& S,
                                           LocalMarks& cf) {
  A.copyStructure(S);
  cf.resize(A.getRows(), 1, A.getDevice());
  cf.fill('U');
  if (A.getRows() == 0) return;
  SpLevelTransferOps<T, G, L>::rs_connect(A.getDevice(), A.getRawMat(), static_cast<R>(eps_strong),
                                          S.getRawMat(), cf.getData());
}

template <class T, class G, class L>
void LevelTransferOps_RS<T, G, L>::par_connect(const Matrix& A, double eps_strong, Strength& S,
                                               Marks& cf) {
  A.copyStructure(S);
  cf.create(A.getRowPartitioner(), A.getDevice(), A.getComm());
  cf.fill('U');
  const auto a = A.getRawMatOnDev();
  const auto s = S.getRawMatOnDev();
  SpLevelTransferOps<T, G, L>::par_rs_connect(A.getDevice(), A.getLocalRows(), a.getSize(),
                                              a.getData(), static_cast<R>(eps_strong), s.getData(),
                                              cf.getLocalMatrix(-1).getData());
}

template <class T, class G, class L>
void LevelTransferOps_RS<T, G, L>::cfsplit(const Local& A, const LocalStrength& S, LocalMarks& cf) {
  splitLocally(S, cf, [&](const Device& device, auto s, auto st, int* marks, auto... scratch) {
    SpLevelTransferOps<T, G, L>::rs_cfsplit(device, A.getRawMat(), s, marks, st, scratch...);
  });
}

template <class T, class G, class L>
void LevelTransferOps_RS<T, G, L>::par_rs_cfsplit(const Matrix& A, const Strength& S, Marks& cf) {
  const int rank = rankOf(A.getComm());
  LocalStrength own = S.getLocalMatrix(rank);
  if (own.getNnz() == 0) {
    own = LocalStrength();
    own.create(A.getLocalRows(), A.getLocalRows(), 0, A.getDevice());
  }
  auto marks = cf.getLocalMatrix(-1);
  splitLocally(own, marks,
               [](auto... args) { SpLevelTransferOps<T, G, L>::par_rs_cfsplit(args...); });
}

template <class T, class G, class L>
void LevelTransferOps_RS<T, G, L>::interpolation(const Local& A, const LocalStrength& S,
                                                 const LocalMarks& cf, bool do_trunc,
                                                 double eps_trunc, int cmark, int /*fmark*/,
                                                 G& ncoarse, Local& P) {
  const Device device = A.getDevice();
  const L rows = A.getRows();
  IndexVector cidx;
  MatrixT<R, L, MatrixLayoutRowMajor> bounds;
  cidx.create(rows, 1, device);
  bounds.create(2 * rows, 1, device);
  CrossData<int> number(device, 0);
  DirectRows<T, L> m;
  m.rows = rows;
  m.a = A.getRawMat();
  m.s = S.getRawMat();
  m.cf = cf.getData();
  m.cmark = cmark;
  m.do_trunc = do_trunc;
  m.eps_trunc = static_cast<R>(eps_trunc);
  m.cidx = cidx.getData();
  m.ncoarse = number.device.getData();
  m.bounds = bounds.getData();
  P = Local();
  P.resize(rows, 0, device);
  m.p = P.getRawMat();
  SpLevelTransferOps<T, G, L>::rs_interpolation(device, true, m);
  number.toHost();
  ncoarse = *number.host.getData();
  const L nnz = P.evaluateNnzs();
  MIVO_LOG(3, Utils::getVerboseLevel() >= 3)
      << "num nodes " << rows << ", the naggr is " << ncoarse << ", the nnz of P is " << nnz;
  P.resizeNnz(nnz, static_cast<L>(ncoarse));
  m.p = P.getRawMat();
  if (nnz > 0) SpLevelTransferOps<T, G, L>::rs_interpolation(device, false, m);
}

MIVO_INSTANCE_SCALARS(LevelTransferOps_RS, long, int)

}  // namespace mivo
