// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

/// The steps of classical multigrid: strength of connection, splitting into C points, which the
/// coarse level keeps, and F points, and interpolation from C points.
///
/// Strength matrices hold 1 for strong entries and 0 for weak ones. Where a complex matrix is asked
/// for signs and order, its real part answers; where it is asked for sizes, the modulus. Members
/// with `par` are collective. C points become coarse unknowns in the order of their rows, spread
/// evenly over the ranks wherever the points live. Results stand on the device of the operands.
template <class T, class G, class L>
class MIVO_API LevelTransferOps_RS {
 public:
  using R = RealType<T>;
  using Local = CSRMatrixT<T, L>;
  using LocalStrength = CSRMatrixT<int, L>;
  using LocalMarks = MatrixT<int, L, MatrixLayoutRowMajor>;
  using Matrix = ParCSRMatrixT<T, G, L>;
  using Strength = ParCSRMatrixT<int, G, L>;
  using Vector = ParMatrixT<T, G, L>;
  using Marks = ParMatrixT<int, G, L>;

  // Ruge and Stueben 1987 (`LevelTransferOps_RS.cpp`). Marks 'C', 'F', and 'U' for undecided.

  /// s_ij = 1 where a_ij < eps_strong min_k a_ik, k != i; rows without such entries are F, others
  /// U.
  static void connect(const Local& A, double eps_strong, LocalStrength& S, LocalMarks& cf);
  static void par_connect(const Matrix& A, double eps_strong, Strength& S, Marks& cf);
  /// The first pass of the classical splitting, on undecided points; there is no second one.
  static void cfsplit(const Local& A, const LocalStrength& S, LocalMarks& cf);
  /// The same on each rank's own block, whatever the others do.
  static void par_rs_cfsplit(const Matrix& A, const Strength& S, Marks& cf);
  /// Direct interpolation from the strong points with mark `cmark`. With `do_trunc` strong entries
  /// between eps_trunc times the least and the greatest of a row are left out, and the others
  /// scaled. S has the pattern of A.
  static void interpolation(const Local& A, const LocalStrength& S, const LocalMarks& cf,
                            bool do_trunc, double eps_trunc, int cmark, int fmark, G& ncoarse,
                            Local& P);
  /// The same on distributed matrices; S has its entries in the order of A and may lack some
  /// (`LevelTransferOps_RS_direct.cpp`).
  static void par_interpolation(const Matrix& A, const Strength& S, const Marks& cf, bool do_trunc,
                                double eps_trunc, int cmark, int fmark, G& ncoarse, Matrix& P);

  // Strength (`LevelTransferOps_RS_strength.cpp`) and independent sets
  // (`LevelTransferOps_RS_PMIS.cpp`), De Sterck, Yang and Heys 2006.

  /// s_ij = 1 where a_ij is beyond strong_threshold times the row's extreme entry on the other side
  /// of zero than the diagonal; none in rows with |sum| > max_row_sum |a_ii|, unless that is 1 or
  /// more. With several functions, of which row g has number g % num_functions, entries within one
  /// count.
  static void par_BoomerAMGStrength(const Matrix& A, const Vector& diag, double strong_threshold,
                                    double max_row_sum, int num_functions, Strength& S);
  /// Marks C points 1, F points -1 and points without strong entries -3 by parallel modified
  /// independent sets with random weights. The same ranks give the same marks each time. CF_init 1
  /// starts from the marks given; 2 and 4 draw the weights of one rank, whatever the ranks; 3 and 4
  /// mark points without strong entries as C points.
  static void par_BoomerAMGCoarsenPMIS(const Matrix& A, const Strength& S, Marks& cf, int CF_init);

  // Extended+i, De Sterck, Falgout, Nolting and Yang 2008 (`LevelTransferOps_RS_extended.cpp`).

  /// Interpolation from C points within distance two, through strong F points, truncated with the
  /// largest modulus as norm and the sums of rows kept. `dof` gives the function of each own row
  /// and is empty for one function. Prints its times at MIVO_VERBOSE_LEVEL 3; `debug` is not used.
  static void par_BoomerAMGInterpolationExtendedPI(const Matrix& A, const Strength& S,
                                                   const Marks& cf, int num_functions,
                                                   const LocalMarks& dof, double trunc_factor,
                                                   int p_max_elmts, G& ncoarse, bool debug,
                                                   Matrix& P);
  /// Drops from each row entries below trunc_factor times its norm (0 largest modulus, 1 sum of
  /// moduli, 2 Euclidean), then all but the max_elmts (if that is at least 1) of largest modulus;
  /// `rescale` keeps the sum of the row.
  static void par_BoomerAMGCSRMatrixTruncate(const Local& P, double trunc_factor, int max_elmts,
                                             bool rescale, int nrm_type, Local& Pout);
};

MIVO_EXTERN_SCALARS(LevelTransferOps_RS, long, int)

}  // namespace mivo
