// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "tests/support/RandomCsr.hpp"

// References for the tests of classical coarsening, written from the formulas on dense matrices.
namespace mivo::test {

/// Random M-matrix: symmetric negative couplings of differing size, rows that sum to 0 or a little
/// more.
inline HostCsr<double> randomMMatrix(std::mt19937& rng, int n) {
  const std::size_t size = static_cast<std::size_t>(n);
  std::vector<double> dense(size * size, 0.0);
  for (int e = 0; e < 3 * n; ++e) {
    const std::size_t i = rng() % size, j = rng() % size;
    if (i == j || dense[i * size + j] != 0) continue;
    const double v = std::pow(10.0, -static_cast<double>(rng() % 3)) *
                     (1.0 + static_cast<double>(rng() % 100) / 100);
    for (const std::size_t at : {i * size + j, j * size + i}) dense[at] = -v;
    dense[i * size + i] += v;
    dense[j * size + j] += v;
  }
  for (std::size_t i = 0; i < size; ++i) {
    if (i % 5 == 0 || dense[i * size + i] == 0) dense[i * size + i] += 0.5;
  }
  return HostCsr<double>::fromDense(n, n, dense);
}

/// Classical strength by its formula.
inline HostCsr<int> classicalStrength(const HostCsr<double>& a, double threshold,
                                      double max_row_sum, int functions) {
  return HostCsr<int>::build(a.rows, a.cols, [&](int i, HostCsr<int>& out) {
    double d = 0, least = 0, greatest = 0, sum = 0;
    for (const auto& [j, v] : a.row(i)) d = j == i ? v : d;
    sum = d;
    for (const auto& [j, v] : a.row(i)) {
      if (j == i || j % functions != i % functions) continue;
      least = std::min(least, v);
      greatest = std::max(greatest, v);
      sum += v;
    }
    const bool dominant = max_row_sum < 1 && std::fabs(sum) > std::fabs(d) * max_row_sum;
    for (const auto& [j, v] : a.row(i)) {
      const bool counts = !dominant && j != i && j % functions == i % functions;
      out.push(j, counts && (d < 0 ? v > threshold * greatest : v < threshold * least) ? 1 : 0);
    }
  });
}

/// Extended+i interpolation as a dense matrix, by the formula of De Sterck et al. (2008): w_ij =
/// -(a_ij + sum_k a_ik abar_kj / b_ik) / a~_ii. Columns are numbered by the C points.
inline std::vector<double> extendedInterpolation(const HostCsr<double>& a, const HostCsr<int>& s,
                                                 const std::vector<int>& cf, std::size_t* cols) {
  const std::size_t n = cf.size();
  const auto A = a.dense();
  const auto S = s.dense();
  std::map<std::size_t, std::size_t> number;
  for (std::size_t i = 0; i < n; ++i) {
    if (cf[i] >= 0) number.emplace(i, number.size());
  }
  *cols = number.size();
  std::vector<double> P(n * *cols, 0.0);
  const auto strong = [&](std::size_t i, std::size_t j) { return S[i * n + j] != 0; };
  for (std::size_t i = 0; i < n; ++i) {
    if (cf[i] >= 0) P[i * *cols + number[i]] = 1;
    if (cf[i] >= 0 || cf[i] == -3) continue;
    std::set<std::size_t> C, F;  // interpolatory set, strong F neighbours
    for (std::size_t j = 0; j < n; ++j) {
      if (!strong(i, j)) continue;
      if (cf[j] >= 0) {
        C.insert(j);
      } else if (cf[j] != -3) {
        F.insert(j);
        for (std::size_t k = 0; k < n; ++k) {
          if (strong(j, k) && cf[k] >= 0) C.insert(k);
        }
      }
    }
    const auto bar = [&](std::size_t k, std::size_t j) {
      const double v = A[k * n + j];
      return v * A[k * n + k] < 0 ? v : 0.0;
    };
    double diagonal = A[i * n + i];
    std::map<std::size_t, double> w;
    for (const std::size_t j : C) w[j] = A[i * n + j];
    for (std::size_t j = 0; j < n; ++j) {
      if (j != i && C.count(j) + F.count(j) == 0 && cf[j] != -3) diagonal += A[i * n + j];
    }
    for (const std::size_t k : F) {
      double b = bar(k, i);
      for (const std::size_t j : C) b += bar(k, j);
      if (b == 0) {
        diagonal += A[i * n + k];
        continue;
      }
      diagonal += A[i * n + k] * bar(k, i) / b;
      for (const std::size_t j : C) w[j] += A[i * n + k] * bar(k, j) / b;
    }
    for (const auto& [j, v] : w) P[i * *cols + number[j]] = -v / diagonal;
  }
  return P;
}

}  // namespace mivo::test
