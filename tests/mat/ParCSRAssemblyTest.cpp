// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <vector>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/parsparse.hpp"

namespace mivo::test {
namespace {

using Matrix = ParSparse<double>;

// Entries of all types from several ranks and threads are assembled in tests/mpi.

TEST(ParCSRAssembly, BothWaysOfAssemblyAddInTheOrderGiven) {
  const Device device;
  // Sums that depend on their order, and zeros of both signs.
  const std::vector<std::vector<std::pair<int, double>>> rows = {
      {{1, 1e16}, {0, -0.0}, {1, 1.}, {1, -1e16}, {2, 0.1}, {2, 0.2}, {2, 0.3}},
      {{2, 0.3}, {2, 0.2}, {0, 1.}, {2, 0.1}, {0, -1.}, {1, 1e-320}}};
  HostCsr<double, long> given;
  given.cols = 3;
  Matrix byValue, byMatrix;
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
  byMatrix.createByAssemble(sparseOf(device, given), kCommWorld);
  const HostCsr<double> expected =
      plainRows<double>(3, {{{0, 0.0}, {1, (1e16 + 1.) - 1e16}, {2, (0.1 + 0.2) + 0.3}},
                            {{0, 0.0}, {1, 1e-320}, {2, (0.3 + 0.2) + 0.1}}});
  for (const Matrix& A : {byValue, byMatrix}) {
    const HostCsr<double> result = plainOf(A.getLocalMatrix(0));
    EXPECT_EQ(result, expected);
    expectSameBits(result.values, expected.values);
  }
}

TEST(ParCSRAssembly, ColumnsMayExceedTheLocalIndexType) {
  const long half = 2000000000;
  Matrix A;
  A.create(partsAt<long>({0, 2}), partsAt<long>({0, half, 2 * half}), {}, Device());
  A.beginAssemble();
  A.setValue(1, 2 * half - 1, 4., SetValueMode::Set);
  A.setValue(1, 3, 5., SetValueMode::Set);
  A.endAssemble();
  EXPECT_EQ(A.getElementValue(1, 2 * half - 1, nullptr), 4.);
  EXPECT_EQ(A.getLocalMatrix(1).getColIdx()[0], half - 1);
  EXPECT_EQ(A.getElementValue(1, 3, nullptr), 5.);
}

TEST(ParCSRAssembly, EachBeginningForgetsWhatWasSetAndEachEndReplacesTheMatrix) {
  for (const Device& device : testDevices()) {
    Matrix A;
    A.create(2, 2, device);
    A.beginAssemble();
    A.setValue(0, 0, 9., SetValueMode::Set);
    A.beginAssemble();
    A.setValue(1, 0, 2., SetValueMode::Set);
    A.endAssemble();
    EXPECT_EQ(A.getNnzs(), 1);
    const auto x = columnOf(device, A.getColPartitioner(), std::vector<double>{1., 10.});
    EXPECT_EQ(valuesOf(A.matVec(x)), (std::vector<double>{0., 2.}));
    A.beginAssemble();
    A.endAssemble();
    EXPECT_EQ(A.getNnzs(), 0);
    EXPECT_EQ(valuesOf(A.matVec(x)), (std::vector<double>{0., 0.}));
  }
}

TEST(ParCSRAssembly, TraversalVisitsAndChangesAnOpenAssembly) {
  Matrix A;
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

TEST(ParCSRAssembly, WhatLiesOutsideTheMatrixEndsTheProcess) {
  Matrix A;
  A.create(4, 4, Device());
  MIVO_EXPECT_FATAL_TEXT(A.setValue(0, 0, 1., SetValueMode::Set),
                         "setValue: beginAssemble must come first");
  MIVO_EXPECT_FATAL_TEXT(A.endAssemble(), "endAssemble: beginAssemble must come first");
  const std::string outside = " lies outside the matrix";
  for (const long at : {4L, -1L}) {
    A.beginAssemble();
    A.setValue(0, at, 1., SetValueMode::Set);
    MIVO_EXPECT_FATAL_TEXT(A.endAssemble(), "endAssemble: column " + std::to_string(at) + outside);
    A.beginAssemble();
    A.setValue(at, 0, 1., SetValueMode::Set);
    MIVO_EXPECT_FATAL_TEXT(A.endAssemble(), "endAssemble: row " + std::to_string(at) + outside);
  }
  Matrix narrow;
  narrow.create(3, 0, Device());
  narrow.beginAssemble();
  narrow.setValue(0, 0, 1., SetValueMode::Set);
  MIVO_EXPECT_FATAL_TEXT(narrow.endAssemble(), "endAssemble: column 0 lies outside the matrix");
}

}  // namespace
}  // namespace mivo::test
