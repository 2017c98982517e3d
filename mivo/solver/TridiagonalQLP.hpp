// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>

#include "mivo/utils/export.hpp"

namespace mivo {

/// QLP factorisation of the growing tridiagonal matrix T of a Lanczos process, and the solution of
/// min |beta_1 e_1 - T y| of least length (Choi, Paige and Saunders, MINRES-QLP, SIAM J. Sci.
/// Comput. 33, 2011).
///
/// Column k of T holds beta_k, alpha_k and beta_{k+1}. Reflections from the left make T upper
/// triangular, Q T = R, then reflections from the right lower triangular, R P = L. With t = Q
/// beta_1 e_1, L m = t gives y = P m. A new column changes the last two rows of L, and the rows
/// before k - 2 no more. All in double, whatever the vectors hold. A copy is cheap: a column can be
/// tried on one.
class MIVO_API TridiagonalQLP {
 public:
  /// [c s; s -c]; as it stands it changes the sign of the second part only.
  struct Reflection {
    double c = -1;
    double s = 0;
  };
  /// Row of L with its right-hand side and its component of m.
  struct Row {
    double tau = 0;    ///< right-hand side
    double eta = 0;    ///< two before the diagonal
    double theta = 0;  ///< one before the diagonal
    double gamma = 0;  ///< on the diagonal
    double mu = 0;     ///< component of m
  };

  explicit TridiagonalQLP(double beta1) : phi_(beta1), beta1_(beta1) {}

  /// Appends column k with alpha_k and beta_{k+1} >= 0.
  void addColumn(double alpha, double betaNext);
  /// Sets the last component of m to 0, and counts what is then left in its row to the residual.
  /// Gives the solution of least length when the last diagonal element of L is negligible.
  void leaveOutLast();

  /// Acts on columns k - 2 and k of the basis first, then `right1` on columns k - 1 and k.
  const Reflection& right2() const { return right2_; }
  const Reflection& right1() const { return right1_; }
  const Row& row2() const { return row2_; }  ///< row k - 2, final
  const Row& row1() const { return row1_; }  ///< row k - 1
  const Row& row0() const { return row0_; }  ///< row k

  double residual() const { return phi_; }        ///< |beta_1 e_1 - T y|
  double solutionNorm() const;                    ///< |y|
  double operatorNorm() const { return normT_; }  ///< estimate of |T| from below
  double condition() const;                       ///< estimate of the condition from below
  /// Residual relative to |T| |y| + beta_1: small when the system is compatible and solved.
  double compatibility() const;
  /// |T r| of the residual r before the last column.
  double imageOfLastResidual() const { return imageOfLastResidual_; }
  /// That relative to |T| |r|: small when that r was the least there is.
  double leastSquares() const { return imageOfLastResidual_ / (normT_ * lastPhi_); }

 private:
  long count_ = 0;
  double phi_;
  double beta1_;
  double lastPhi_ = 0;
  double beta_ = 0;     // beta_k, 0 for the first column
  Reflection left_;     // of the last column
  double dbar_ = 0;     // above the diagonal of the next column, after the left reflection
  double epsilon_ = 0;  // one above that
  Reflection right2_, right1_;
  Row row2_, row1_, row0_;
  double mu3_ = 0, mu4_ = 0;  // components k - 3 and k - 4 of m
  double rest_ = 0;           // row k without its diagonal term
  double finalNorm_ = 0;      // of the components up to k - 2
  double finalGamma_ =
      std::numeric_limits<double>::infinity();  // least diagonal element of the rows up to k - 2
  double normT_ = 0;
  double imageOfLastResidual_ = 0;
};

}  // namespace mivo
