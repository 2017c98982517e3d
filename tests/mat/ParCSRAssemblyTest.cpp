// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <thread>
#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/parsparse.hpp"

namespace mivo {
namespace {

using test::columnOf;
using test::EntryMap;
using test::HostCsr;
using test::partsAt;
using test::plainOf;
using test::plainRows;
using test::smallValue;
using test::testDevices;

template <class T>
using Matrix = ParCSRMatrixT<T, long, int>;

template <class Types>
class ParCSRAssemblyTest : public testing::Test {};
template <class Value, class Global>
struct Types {
  using T = Value;
  using G = Global;
};
using TypePairs =
    testing::Types<Types<int, int>, Types<long, long>, Types<float, long>, Types<double, int>,
                   Types<double, long>, Types<Complex<float>, int>, Types<Complex<double>, long>>;
TYPED_TEST_SUITE(ParCSRAssemblyTest, TypePairs);

/// Rows in order, each by ascending column.
template <class T>
HostCsr<T> plainOf(const EntryMap<T>& entries, int rows, int cols) {
  HostCsr<T> out;
  out.cols = cols;
  auto next = entries.begin();
  for (int i = 0; i < rows; ++i) {
    for (; next != entries.end() && next->first.first == i; ++next) {
      out.push(static_cast<int>(next->first.second), next->second);
    }
    out.endRow();
  }
  return out;
}

/// The bits of a value, so that zeros of different sign differ.
template <class T>
std::vector<unsigned char> bitsOf(const std::vector<T>& values) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(values.data());
  return std::vector<unsigned char>(bytes, bytes + values.size() * sizeof(T));
}

TYPED_TEST(ParCSRAssemblyTest, EntriesInAnyOrderBecomeSortedRows) {
  using T = typename TypeParam::T;
  using G = typename TypeParam::G;
  std::mt19937 rng(3);
  for (const Device& device : testDevices()) {
    for (const auto& [rows, cols] : test::testShapes()) {
      ParCSRMatrixT<T, G, int> A;
      A.create(rows, cols, device);
      A.beginAssemble();
      EntryMap<T> expected;
      for (int k = 0; k < 3 * rows * (cols > 0 ? 1 : 0); ++k) {
        const G i = static_cast<G>(rng() % rows);
        const G j = static_cast<G>(rng() % cols);
        const T v = smallValue<T>(rng);
        if (rng() % 3 == 0) {
          expected[{i, j}] = v;
          A.setValue(i, j, v, SetValueMode::Set);
        } else {
          expected[{i, j}] += v;
          A.setValue(i, j, v, SetValueMode::Add);
        }
        A.setValue(i, j, T(99), static_cast<SetValueMode>(2));
      }
      A.endAssemble();
      EXPECT_EQ(A.getNnzs(), static_cast<G>(expected.size()));
      const auto local = A.getLocalMatrix(0);
      if (expected.empty()) {
        EXPECT_EQ(local.getNnz(), 0);
        continue;
      }
      EXPECT_EQ(local.getDevice(), device);
      EXPECT_EQ(local.getCols(), cols);
      EXPECT_EQ(plainOf(local), plainOf(expected, rows, cols)) << rows << " x " << cols;
    }
  }
}

TYPED_TEST(ParCSRAssemblyTest, AssemblyFillsColumnBlocksAndLeavesEmptyOnesOut) {
  using T = typename TypeParam::T;
  using G = typename TypeParam::G;
  for (const Device& device : testDevices()) {
    ParCSRMatrixT<T, G, int> A;
    A.create(partsAt<G>({0, 3}), partsAt<G>({0, 2, 2, 4, 7}), {}, device);
    A.beginAssemble();
    A.setValue(2, 6, T(5), SetValueMode::Add);
    A.setValue(2, 4, T(4), SetValueMode::Add);
    A.setValue(0, 1, T(2), SetValueMode::Add);
    A.setValue(0, 5, T(3), SetValueMode::Add);
    A.setValue(0, 0, T(1), SetValueMode::Add);
    A.endAssemble();
    EXPECT_EQ(plainOf(A.getLocalMatrix(0)), (plainRows<T>(2, {{{0, T(1)}, {1, T(2)}}, {}, {}})));
    EXPECT_EQ(plainOf(A.getLocalMatrix(3)),
              (plainRows<T>(3, {{{1, T(3)}}, {}, {{0, T(4)}, {2, T(5)}}})));
    EXPECT_EQ(A.getLocalMatrix(0).getCols(), 2);
    EXPECT_EQ(A.getLocalMatrix(3).getCols(), 3);
    typename ParCSRMatrixT<T, G, int>::BlockTable table;
    A.getRawMat(table);
    EXPECT_EQ(table.getSize(), 2);
  }
}

TYPED_TEST(ParCSRAssemblyTest, MatrixWithGlobalColumnsIsSummed) {
  using T = typename TypeParam::T;
  using G = typename TypeParam::G;
  std::mt19937 rng(8);
  for (const Device& device : testDevices()) {
    for (const auto& [rows, cols] : test::testShapes()) {
      // Unsorted rows with repeated columns, some of them long, some empty.
      EntryMap<T> expected;
      HostCsr<T, G> given;
      given.cols = cols;
      for (int i = 0; i < rows; ++i) {
        const int count = cols == 0 || i % 4 == 3 ? 0 : (i % 5 == 2 ? 2 * cols : 3);
        for (int k = 0; k < count; ++k) {
          const G j = static_cast<G>(rng() % cols);
          const T v = smallValue<T>(rng);
          given.push(j, v);
          expected[{i, j}] += v;
        }
        given.endRow();
      }
      ParCSRMatrixT<T, G, int> A;
      A.createByAssemble(test::sparseOf(device, given), kCommWorld);
      EXPECT_EQ(A.getRows(), rows);
      EXPECT_EQ(A.getCols(), cols);
      EXPECT_EQ(A.getNnzs(), static_cast<G>(expected.size()));
      if (expected.empty()) continue;
      EXPECT_EQ(A.getDevice(), device);
      EXPECT_EQ(plainOf(A.getLocalMatrix(0)), plainOf(expected, rows, cols));
    }
  }
}

TEST(ParCSRAssembly, BothWaysOfAssemblyAddInTheOrderGiven) {
  const Device device;
  // Sums that depend on their order, and zeros of both signs.
  const std::vector<std::vector<std::pair<int, double>>> rows = {
      {{1, 1e16}, {0, -0.0}, {1, 1.}, {1, -1e16}, {2, 0.1}, {2, 0.2}, {2, 0.3}},
      {{2, 0.3}, {2, 0.2}, {0, 1.}, {2, 0.1}, {0, -1.}, {1, 1e-320}}};
  HostCsr<double, long> given;
  given.cols = 3;
  Matrix<double> byValue, byMatrix;
  byValue.create(2, 3, device);
  byValue.beginAssemble();
  for (std::size_t i = 0; i < rows.size(); ++i) {
    for (const auto& entry : rows[i]) {
      given.push(entry.first, entry.second);
      byValue.setValue(static_cast<long>(i), entry.first, entry.second, SetValueMode::Add);
    }
    given.endRow();
  }
  byValue.endAssemble();
  byMatrix.createByAssemble(test::sparseOf(device, given), kCommWorld);
  const HostCsr<double> expected =
      plainRows<double>(3, {{{0, 0.0}, {1, (1e16 + 1.) - 1e16}, {2, (0.1 + 0.2) + 0.3}},
                            {{0, 0.0}, {1, 1e-320}, {2, (0.3 + 0.2) + 0.1}}});
  for (const Matrix<double>& A : {byValue, byMatrix}) {
    const HostCsr<double> result = plainOf(A.getLocalMatrix(0));
    EXPECT_EQ(result, expected);
    EXPECT_EQ(bitsOf(result.values), bitsOf(expected.values));
  }
}

TEST(ParCSRAssembly, ColumnsMayExceedTheLocalIndexType) {
  const long half = 2000000000;
  Matrix<double> A;
  A.create(partsAt<long>({0, 2}), partsAt<long>({0, half, 2 * half}), {}, Device());
  A.beginAssemble();
  A.setValue(1, 2 * half - 1, 4., SetValueMode::Set);
  A.setValue(1, 3, 5., SetValueMode::Set);
  A.endAssemble();
  EXPECT_EQ(A.getElementValue(1, 2 * half - 1, nullptr), 4.);
  EXPECT_EQ(A.getLocalMatrix(1).getColIdx()[0], half - 1);
  EXPECT_EQ(A.getElementValue(1, 3, nullptr), 5.);
}

TEST(ParCSRAssembly, EachAssemblyReplacesTheMatrix) {
  for (const Device& device : testDevices()) {
    Matrix<double> A;
    A.create(2, 2, device);
    A.beginAssemble();
    A.setValue(0, 0, 9., SetValueMode::Set);
    A.beginAssemble();  // the first one is forgotten
    A.setValue(1, 0, 2., SetValueMode::Set);
    A.endAssemble();
    EXPECT_EQ(A.getNnzs(), 1);
    const auto x = columnOf(device, A.getColPartitioner(), std::vector<double>{1., 10.});
    EXPECT_EQ(test::valuesOf(A.matVec(x).getLocalMatrix()), (std::vector<double>{0., 2.}));
    A.beginAssemble();
    A.setValue(0, 1, 3., SetValueMode::Set);
    A.endAssemble();
    EXPECT_EQ(test::valuesOf(A.matVec(x).getLocalMatrix()), (std::vector<double>{30., 0.}));
    A.beginAssemble();
    A.endAssemble();
    EXPECT_EQ(A.getNnzs(), 0);
    EXPECT_EQ(test::valuesOf(A.matVec(x).getLocalMatrix()), (std::vector<double>{0., 0.}));
  }
}

TEST(ParCSRAssembly, TraversalVisitsAndChangesAnOpenAssembly) {
  Matrix<double> A;
  A.create(3, 3, Device());
  int visits = 0;
  const auto countRow = [&](long, long) { return ++visits == 0; };
  A.traversal(countRow, nullptr);
  EXPECT_EQ(visits, 0);
  A.beginAssemble();
  A.setValue(2, 1, 4., SetValueMode::Set);
  A.setValue(0, 0, 1., SetValueMode::Set);
  A.setValue(2, 2, 5., SetValueMode::Set);
  std::map<long, long> counts;
  A.traversal(
      [&](long row, long count) {
        counts[row] = count;
        return false;  // does not stop the walk
      },
      [](long, long col, double& value) {
        value += 100. * static_cast<double>(col);
        return false;
      });
  EXPECT_EQ(counts, (std::map<long, long>{{0, 1}, {2, 2}}));
  A.endAssemble();
  EXPECT_EQ(plainOf(A.getLocalMatrix(0)),
            (plainRows<double>(3, {{{0, 1.}}, {}, {{1, 104.}, {2, 205.}}})));
  A.traversal(countRow, nullptr);
  EXPECT_EQ(visits, 0);
}

TEST(ParCSRAssembly, ThreadsMayShareRows) {
  constexpr int kThreads = 4, kRows = 50, kRounds = 40;
  Matrix<long> A;
  A.create(kRows, kRows, Device());
  A.beginAssemble();
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&A, t] {
      for (int r = 0; r < kRounds; ++r) {
        for (int i = 0; i < kRows; ++i) {
          A.setValue((i + 7 * t) % kRows, (i + r) % kRows, 1, SetValueMode::Add);
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  A.endAssemble();
  const auto meta = A.computeMeta();
  EXPECT_EQ(meta.row_sum_sum, kThreads * kRounds * kRows);
  EXPECT_EQ(meta.row_sum_min, kThreads * kRounds);
}

TEST(ParCSRAssembly, WhatLiesOutsideTheMatrixEndsTheProcess) {
  Matrix<double> A;
  A.create(3, 4, Device());
  MIVO_EXPECT_FATAL_TEXT(A.setValue(0, 0, 1., SetValueMode::Set),
                         "setValue: beginAssemble must come first");
  MIVO_EXPECT_FATAL_TEXT(A.endAssemble(), "endAssemble: beginAssemble must come first");
  for (const long row : {3L, -1L}) {
    A.beginAssemble();
    A.setValue(row, 0, 1., SetValueMode::Set);
    MIVO_EXPECT_FATAL_TEXT(A.endAssemble(),
                           "endAssemble: row " + std::to_string(row) + " lies outside the matrix");
  }
  for (const long col : {4L, -1L}) {
    A.beginAssemble();
    A.setValue(0, col, 1., SetValueMode::Set);
    MIVO_EXPECT_FATAL_TEXT(
        A.endAssemble(), "endAssemble: column " + std::to_string(col) + " lies outside the matrix");
  }
  Matrix<double> narrow;
  narrow.create(3, 0, Device());
  narrow.beginAssemble();
  narrow.setValue(0, 0, 1., SetValueMode::Set);
  MIVO_EXPECT_FATAL_TEXT(narrow.endAssemble(), "endAssemble: column 0 lies outside the matrix");
}

}  // namespace
}  // namespace mivo
