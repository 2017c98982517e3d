// SPDX-License-Identifier: Apache-2.0
#include "mivo/solver/TridiagonalQLP.hpp"

#include <algorithm>
#include <cmath>

namespace mivo {
namespace {

/// The reflection that maps (a, b) to (length, 0).
TridiagonalQLP::Reflection reflectionOf(double a, double b, double length) {
  if (length == 0) return {};
  return {a / length, b / length};
}

}  // namespace

void TridiagonalQLP::addColumn(double alpha, double betaNext) {
  ++count_;
  // Left: the last two reflections on this column, (epsilon, delta, gbar), and one of its own.
  const double epsilon = epsilon_;
  double delta = left_.c * dbar_ + left_.s * alpha;
  const double gbar = left_.s * dbar_ - left_.c * alpha;
  epsilon_ = left_.s * betaNext;
  dbar_ = -left_.c * betaNext;
  imageOfLastResidual_ = phi_ * std::hypot(gbar, dbar_);
  lastPhi_ = phi_;
  double gamma = std::hypot(gbar, betaNext);
  // A column of zeros leaves the residual as it is.
  left_ = gamma == 0 ? Reflection{0, 1} : reflectionOf(gbar, betaNext, gamma);
  normT_ = std::max(normT_, std::hypot(beta_, alpha, betaNext));
  beta_ = betaNext;

  mu4_ = mu3_;
  mu3_ = row2_.mu;
  row2_ = row1_;
  row1_ = row0_;
  row0_ = Row();
  row0_.tau = left_.c * phi_;
  phi_ = left_.s * phi_;

  // Right: epsilon against row k - 2, then delta against row k - 1.
  right2_ = right1_ = Reflection();
  if (count_ > 2) {
    const double length = std::hypot(row2_.gamma, epsilon);
    right2_ = reflectionOf(row2_.gamma, epsilon, length);
    row2_.gamma = length;
    finalGamma_ = std::min(finalGamma_, length);
  }
  const double theta = row1_.theta;
  row1_.theta = right2_.c * theta + right2_.s * delta;
  delta = right2_.s * theta - right2_.c * delta;
  row0_.eta = right2_.s * gamma;
  gamma = -right2_.c * gamma;
  if (count_ > 1) {
    const double length = std::hypot(row1_.gamma, delta);
    right1_ = reflectionOf(row1_.gamma, delta, length);
    row1_.gamma = length;
  }
  row0_.theta = right1_.s * gamma;
  row0_.gamma = -right1_.c * gamma;
  normT_ = std::max({normT_, row2_.gamma, row1_.gamma, std::fabs(row0_.gamma)});

  // The last three components of L m = t.
  if (count_ > 2) row2_.mu = (row2_.tau - row2_.eta * mu4_ - row2_.theta * mu3_) / row2_.gamma;
  if (count_ > 1) row1_.mu = (row1_.tau - row1_.eta * mu3_ - row1_.theta * row2_.mu) / row1_.gamma;
  rest_ = row0_.tau - row0_.eta * row2_.mu - row0_.theta * row1_.mu;
  row0_.mu = rest_ / row0_.gamma;
  finalNorm_ = std::hypot(finalNorm_, row2_.mu);
}

void TridiagonalQLP::leaveOutLast() {
  row0_.mu = 0;
  phi_ = std::hypot(phi_, rest_);
}

double TridiagonalQLP::solutionNorm() const { return std::hypot(finalNorm_, row1_.mu, row0_.mu); }

double TridiagonalQLP::condition() const {
  double least = finalGamma_;
  if (count_ > 1) least = std::min(least, row1_.gamma);
  if (count_ > 0) least = std::min(least, std::fabs(row0_.gamma));
  return count_ > 0 ? normT_ / least : 1;
}

double TridiagonalQLP::compatibility() const { return phi_ / (normT_ * solutionNorm() + beta1_); }

}  // namespace mivo
