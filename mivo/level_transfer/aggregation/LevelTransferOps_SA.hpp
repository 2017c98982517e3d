// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// The steps of smoothed aggregation (Vanek, Mandel and Brezina 1996): strength of connection,
/// aggregates, the piecewise constant prolongation and its smoothing by one step of damped Jacobi.
///
/// Strength matrices S have the pattern of A and hold 1 for strong entries and 0 for weak ones.
/// Aggregate vectors hold one number per row, negative for a row in no aggregate. The members with
/// `seq` work on one local matrix; those with `par` are collective. Results stand on the device of
/// the operands.
template <class T, class G, class L>
class MIVO_API LevelTransferOps_SA {
 public:
  using R = RealType<T>;
  using Local = CSRMatrixT<T, L>;
  using LocalStrength = CSRMatrixT<int, L>;
  using LocalVector = MatrixT<T, L, MatrixLayoutRowMajor>;
  using LocalAggregates = MatrixT<int, L, MatrixLayoutRowMajor>;
  using Matrix = ParCSRMatrixT<T, G, L>;
  using Strength = ParCSRMatrixT<int, G, L>;
  using Vector = ParMatrixT<T, G, L>;
  using Aggregates = ParMatrixT<int, G, L>;

  /// s_ij = 1 where a_ij^2 > eps^2 d_i d_j, i != j. D is the diagonal of A.
  static void seq_strength(const Local& A, const LocalVector& D, LocalStrength& S, double eps);
  /// The same on column blocks, with no exchange: column j of another rank's block takes this
  /// rank's diag at the block's number of the column, and 0 beyond its end.
  static void par_strength(const Matrix& A, const Vector& diag, Strength& S, double eps);

  // Aggregation (`LevelTransferOps_SA_aggregate.cpp`).

  /// Greedy pass over the nodes in ascending order: a seed takes its strong neighbours, even those
  /// of earlier aggregates, then their free strong neighbours as long as the aggregate has fewer
  /// than `maxAggregation` nodes (no limit below 1). Numbers are compact, `naggr` their count.
  static void seq_aggregate(const LocalStrength& S, int maxAggregation, LocalAggregates& aggr,
                            G& naggr);
  /// Greedy aggregation on all ranks at once over S and S S: of two undone nodes within distance
  /// two on different ranks the one on the higher rank goes first. Decisions travel as records.
  /// Ranks number their aggregates alike, and nodes of the same number form one aggregate.
  static void par_aggregate(const Strength& S, Aggregates& aggr, G& naggr);
  /// The same, the decisions travelling backwards through the halo exchange plan of S S.
  static void par_aggregate_comm_pattern(const Strength& S, Aggregates& aggr, G& naggr);
  /// Makes numbers compact over all ranks, equal ones staying equal. `owner` is not used.
  static void par_renumber(const Aggregates& aggr, const Aggregates& owner, G& naggr);

  // Prolongation.

  /// T (rows by naggr): row i is 1 in column aggr_i, empty where that is negative.
  static void seq_tentative_prolongation(L rows, G naggr, const LocalAggregates& aggr, Local& T_);
  /// The same with `rows` rows in all, cut like `aggr`; the columns are spread evenly over the
  /// ranks, wherever the nodes of an aggregate live.
  static void par_tentative_prolongation(G rows, G naggr, const Aggregates& aggr, Matrix& T_);
  /// Af = A with its weak entries made 0 and their sum taken from the diagonal.
  static void seq_tentative_filter(const Local& A, const LocalStrength& S, Local& Af);
  static void par_tentative_filter(const Matrix& A, const Strength& S, Matrix& Af);
  /// P = (I - omega Df^-1 Af) T with the weak entries of A added to the diagonal of Af. Rows are in
  /// order of first appearance. Prints the entry count of P.
  static void seq_tentative_smooth(const Local& A, G naggr, const Local& T_, const LocalStrength& S,
                                   Local& P, double omega);
  /// P = (I - omega Df^-1 Af) T with Af from `par_tentative_filter`, or A where S stores no entry.
  static void par_tentative_smooth(const Matrix& A, G naggr, const Matrix& T_, const Strength& S,
                                   Matrix& P, double omega);
};

MIVO_EXTERN_SCALARS(LevelTransferOps_SA, long, int)

}  // namespace mivo
