// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "mivo/testcase/TestCase.hpp"
#include "mivo/utils/Factory.hpp"
#include "mivo/utils/json.hpp"
#include "tests/support/files.hpp"
#include "tests/support/ranks.hpp"

namespace mivo {
namespace {

using test::HostCsr;
using test::ownPart;
using test::rankDevices;
using test::readFile;
using test::worldRank;
using test::worldSize;

using Matrix = ParCSRMatrixT<double, long, int>;
using Vector = ParMatrixT<double, long, int>;

/// A name that the runs on other rank counts do not use.
std::string fileName(const std::string& stem, const std::string& ext) {
  return test::tempFile("ranks" + std::to_string(worldSize()) + "_" + stem) + "." + ext;
}

/// The file of a part, as the guide gives its name.
std::string partName(const std::string& stem, const std::string& ext, int part) {
  if (worldSize() == 1) return fileName(stem, ext);
  const std::string whole = fileName(stem, ext);
  return whole.substr(0, whole.size() - ext.size() - 1) + "-size_" + std::to_string(worldSize()) +
         "-rank_" + std::to_string(worldRank()) + "-part_" + std::to_string(part) + "." + ext;
}

void writeOnRoot(const std::string& name, const std::string& text) {
  if (worldRank() == 0) std::ofstream(name) << text;
  MPI_Barrier(kCommWorld);
}

/// Coordinate text with values that all formats keep.
std::string coordinateText(const HostCsr<double>& a) {
  std::string text = "%%MatrixMarket matrix coordinate real general\n" + std::to_string(a.rows) +
                     " " + std::to_string(a.cols) + " " + std::to_string(a.values.size()) + "\n";
  for (int i = 0; i < a.rows; ++i) {
    for (const auto& [j, v] : a.row(i)) {
      text += std::to_string(i + 1) + " " + std::to_string(j + 1) + " " + std::to_string(v) + "\n";
    }
  }
  return text;
}

test::EntryMap<double> entriesOf(const HostCsr<double>& a, long begin, long end) {
  test::EntryMap<double> out;
  for (long i = begin; i < end; ++i) {
    for (const auto& [j, v] : a.row(static_cast<int>(i))) out[{i, j}] = v;
  }
  return out;
}

TEST(FilesOverRanks, AMatrixFileIsReadOnceAndSpreadEvenly) {
  std::mt19937 rng(2);
  // The last one has fewer rows than there are ranks.
  for (const auto& [rows, cols] : std::vector<std::pair<int, int>>{{20, 20}, {9, 4}, {2, 5}}) {
    const HostCsr<double> a = test::randomCsr<double>(rng, rows, cols);
    const std::string name = fileName("A" + std::to_string(rows), "mtx");
    writeOnRoot(name, coordinateText(a));
    PartitionerT<long, int> row_part, col_part;
    row_part.create(rows, worldSize());
    col_part.create(cols, worldSize());
    for (const Device& device : rankDevices()) {
      Matrix A;
      A.loadFromFile(name, device);
      EXPECT_EQ(A.getDevice(), device);
      EXPECT_TRUE(A.getRowPartitioner() == row_part);
      EXPECT_TRUE(A.getColPartitioner() == col_part);
      long begin = 0, end = 0;
      A.getOwnerShipRange(&begin, &end);
      EXPECT_EQ(test::ownEntries(A), entriesOf(a, begin, end)) << rows << " rows";
      // Nothing happens on any rank without a file.
      A.loadFromFile(fileName("missing", "mtx"), device);
      EXPECT_EQ(A.getRows(), rows);

      // Each rank writes its blocks under names of its own, none for an empty block.
      A.saveToFile(fileName("parts", "mtx"), 17);
      for (int p = 0; p < worldSize(); ++p) {
        const std::string part = partName("parts", "mtx", p);
        if (A.getLocalMatrix(p).getNnz() == 0) {
          EXPECT_FALSE(std::ifstream(part).good()) << part;
          continue;
        }
        CSRMatrixT<double, int> block;
        std::ifstream stream(part);
        block.loadFromStream(stream);
        EXPECT_EQ(test::plainOf(block), test::plainOf(A.getLocalMatrix(p))) << part;
        std::remove(part.c_str());
      }
    }
    MPI_Barrier(kCommWorld);
    if (worldRank() == 0) std::remove(name.c_str());
  }
}

TEST(FilesOverRanks, VectorsTravelThroughFiles) {
  std::mt19937 rng(8);
  for (const long n : {13L, 2L}) {
    const auto values = test::smallVector<double>(rng, static_cast<std::size_t>(n));
    std::string text = "%%MatrixMarket matrix array real general\n" + std::to_string(n) + " 1\n";
    for (const double v : values) text += std::to_string(v) + "\n";
    const std::string name = fileName("b", "mtx");
    writeOnRoot(name, text);
    for (const Device& device : rankDevices()) {
      Vector x;
      x.loadFromFile(name, device);
      EXPECT_EQ(x.getRows(), n);
      EXPECT_EQ(test::valuesOf(x.getLocalMatrix()), ownPart(x.getRowPartitioner(), values));
      x.saveToFile(fileName("x", "mtx"));
      const std::string part = partName("x", "mtx", 0);
      MatrixT<double, int> local;
      std::ifstream stream(part);
      local.loadFromStream(stream);
      EXPECT_EQ(test::valuesOf(local), ownPart(x.getRowPartitioner(), values)) << part;
      std::remove(part.c_str());
    }
    MPI_Barrier(kCommWorld);
    if (worldRank() == 0) std::remove(name.c_str());
  }
}

TEST(FilesOverRanks, ASystemOfFilesIsATestCase) {
  const std::string A_name = fileName("system_A", "mtx"), b_name = fileName("system_b", "mtx");
  writeOnRoot(
      A_name,
      "%%MatrixMarket matrix coordinate real symmetric\n3 3 4\n1 1 4\n2 2 5\n3 3 6\n3 1 -1\n");
  writeOnRoot(b_name, "%%MatrixMarket matrix array real general\n3 1\n1\n2\n3\n");
  auto problem = TestCaseT<double, long, int>::getFactory().createInstance(
      {{"testcase_type", "MatrixMarket"},
       {"MatrixMarket_params", {{"filename_A", A_name}, {"filename_b", b_name}}}});
  Matrix A;
  Vector x, b;
  problem->generate(A, x, b);
  EXPECT_EQ(A.getNnzs(), 5);
  EXPECT_EQ(test::valuesOf(A.matVec(b).getLocalMatrix()),
            ownPart(A.getRowPartitioner(), std::vector<double>{1, 10, 17}));
  EXPECT_EQ(x.getRows(), 0);
  MPI_Barrier(kCommWorld);
  if (worldRank() == 0) {
    std::remove(A_name.c_str());
    std::remove(b_name.c_str());
  }
}

}  // namespace
}  // namespace mivo
