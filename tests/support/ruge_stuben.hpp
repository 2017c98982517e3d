// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "tests/support/graphs.hpp"
#include "tests/support/parsparse.hpp"

// For the tests of direct interpolation.
namespace mivo::test {

/// What is interpolated from: sorted rows, strength of their pattern, marks.
template <class T>
struct DirectProblem {
  using R = RealType<T>;
  HostCsr<T> a;
  HostCsr<int> s;
  std::vector<int> cf;

  /// Entries of both signs, most of them negative, off diagonals that do not vanish; two of three
  /// are strong.
  static DirectProblem random(std::mt19937& rng, int n, int cmark, int fmark) {
    DirectProblem out;
    out.a = HostCsr<T>::build(n, n, [&](int i, HostCsr<T>& row) {
      for (int j = 0; j < n; ++j) {
        if (j == i) {
          row.push(j, T(R(7)) + smallValue<T>(rng) * T(R(0.5)));
        } else if (i % 5 != 4 && rng() % 4 == 0) {
          // No bound of truncation is met exactly.
          const R size = R(1) + static_cast<R>(rng()) / R(1u << 28);
          T v = T(rng() % 3 == 0 ? size : -size);
          if constexpr (kIsComplex<T>) v.im = static_cast<R>(rng() % 7) - R(3);
          row.push(j, v);
        }
      }
    });
    out.s = HostCsr<int>::build(n, n, [&](int i, HostCsr<int>& row) {
      for (const auto& entry : out.a.row(i))
        row.push(entry.first, entry.first != i && rng() % 3 != 0 ? 1 : 0);
    });
    for (int i = 0; i < n; ++i) out.cf.push_back(rng() % 3 == 0 ? cmark : fmark);
    return out;
  }

  /// The prolongation, from the entries of each row sorted into classes.
  HostCsr<T> reference(bool do_trunc, double eps_trunc, int cmark) const {
    std::vector<int> coarse;
    int ncoarse = 0;
    for (const int mark : cf) coarse.push_back(mark == cmark ? ncoarse++ : -1);
    const auto strong = s.filtered([](int, int, int v) { return v != 0; });
    HostCsr<T> out = HostCsr<T>::build(a.rows, ncoarse, [&](int i, HostCsr<T>& p) {
      if (coarse[static_cast<std::size_t>(i)] >= 0) {
        p.push(coarse[static_cast<std::size_t>(i)], T(1));
        return;
      }
      // Entries by sign (0 negative, 1 other) and by being strong to a C point.
      std::vector<std::pair<int, T>> all[2], used[2], kept[2];
      T diagonal(0);
      for (const auto& [j, v] : a.row(i)) {
        if (j == i) {
          diagonal += v;
          continue;
        }
        const int sign = realPart(v) < R(0) ? 0 : 1;
        all[sign].emplace_back(j, v);
        const auto row = strong.row(i);
        const bool isStrong =
            std::any_of(row.begin(), row.end(), [j = j](const auto& e) { return e.first == j; });
        if (isStrong && coarse[static_cast<std::size_t>(j)] >= 0) used[sign].emplace_back(j, v);
      }
      T factor[2];
      for (const int sign : {0, 1}) {
        R extreme(0);
        for (const auto& [j, v] : used[sign])
          extreme = std::max(extreme, R(std::fabs(realPart(v))));
        for (const auto& entry : used[sign]) {
          if (!do_trunc || std::fabs(realPart(entry.second)) > static_cast<R>(eps_trunc) * extreme)
            kept[sign].push_back(entry);
        }
      }
      const auto sum = [](const auto& entries) {
        T total(0);
        for (const auto& entry : entries) total += entry.second;
        return total;
      };
      if (used[1].empty()) diagonal += sum(all[1]);
      for (const int sign : {0, 1}) {
        // Dropping scales what is kept so that the share of the sign stays.
        if (!kept[sign].empty())
          factor[sign] = -T(abs(sum(all[sign])) / abs(sum(kept[sign]))) / diagonal;
      }
      std::vector<std::pair<int, T>> entries;
      for (const int sign : {0, 1}) {
        for (const auto& [j, v] : kept[sign]) entries.emplace_back(j, factor[sign] * v);
      }
      std::sort(entries.begin(), entries.end(),
                [](const auto& x, const auto& y) { return x.first < y.first; });
      for (const auto& [j, v] : entries) p.push(coarse[static_cast<std::size_t>(j)], v);
    });
    return out;
  }
};

/// The same pattern, and values to rounding.
template <class T>
void expectSameEntries(const HostCsr<T>& a, const HostCsr<T>& b) {
  ASSERT_EQ(a.rowptr, b.rowptr);
  ASSERT_EQ(a.col_idx, b.col_idx);
  const double eps = std::is_same_v<RealType<T>, float> ? 3e-5 : 1e-13;
  for (std::size_t k = 0; k < a.values.size(); ++k) {
    EXPECT_LE(static_cast<double>(abs(a.values[k] - b.values[k])),
              eps * (1 + static_cast<double>(abs(b.values[k]))))
        << k;
  }
}

}  // namespace mivo::test
