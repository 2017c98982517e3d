// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/files.hpp"
#include "tests/support/ranks.hpp"

namespace mivo::test {
namespace {

using Matrix = ParCSRMatrixT<double, long, int>;
using Vector = ParMatrixT<double, long, int>;

/// A name that the runs on other rank counts do not use.
std::string fileName(const std::string& stem, const std::string& ext) {
  return tempFile("ranks" + std::to_string(worldSize()) + "_" + stem) + "." + ext;
}

/// The file of a part, as the guide gives its name.
std::string partName(const std::string& stem, const std::string& ext, int part) {
  if (worldSize() == 1) return fileName(stem, ext);
  const std::string whole = fileName(stem, ext);
  return whole.substr(0, whole.size() - ext.size() - 1) + "-size_" + std::to_string(worldSize()) +
         "-rank_" + std::to_string(worldRank()) + "-part_" + std::to_string(part) + "." + ext;
}

template <class Local>
void saveOnRoot(const std::string& name, const Local& m) {
  if (worldRank() == 0) m.saveToFile(name, 0);
  MPI_Barrier(kCommWorld);
}

void removeOnRoot(const std::string& name) {
  MPI_Barrier(kCommWorld);
  if (worldRank() == 0) std::filesystem::remove_all(name);
}

/// What the file holds, which is removed.
template <class Local>
Local taken(const std::string& name) {
  Local out;
  std::ifstream stream(name);
  out.loadFromStream(stream);
  std::remove(name.c_str());
  return out;
}

TEST(FilesOverRanks, AMatrixFileIsReadOnceAndSpreadEvenly) {
  std::mt19937 rng(2);
  // The last one has fewer rows than there are ranks.
  for (const auto& [rows, cols] : std::vector<std::pair<int, int>>{{20, 20}, {9, 4}, {2, 5}}) {
    const HostCsr<double> a = randomCsr<double>(rng, rows, cols).sorted();
    const std::string name = fileName("A" + std::to_string(rows), "mtx");
    saveOnRoot(name, sparseOf(Device(), a));
    const auto row_part = worldCuts<long>(rows, rng)[0], col_part = worldCuts<long>(cols, rng)[0];
    for (const Device& device : rankDevices()) {
      Matrix A;
      A.loadFromFile(name, device);
      // Nothing happens on any rank without a file.
      A.loadFromFile(fileName("missing", "mtx"), device);
      std::istringstream ended("x");
      ended.clear(std::ios::eofbit);
      A.loadFromStream(ended, device);
      EXPECT_EQ(A.getDevice(), device);
      EXPECT_TRUE(A.getRowPartitioner() == row_part);
      EXPECT_TRUE(A.getColPartitioner() == col_part);
      EXPECT_EQ(ownEntries(A), ownEntries(row_part, a)) << rows << " rows";

      // Each rank writes its blocks under names of its own, none for an empty block.
      A.saveToFile(fileName("parts", "mtx"), 17);
      for (int p = 0; p < worldSize(); ++p) {
        const std::string part = partName("parts", "mtx", p);
        const auto block = A.getLocalMatrix(p);
        EXPECT_EQ(std::ifstream(part).good(), block.getNnz() > 0) << part;
        if (block.getNnz() == 0) continue;
        EXPECT_EQ(plainOf(taken<CSRMatrixT<double, int>>(part)), plainOf(block));
      }
    }
    removeOnRoot(name);
  }
}

TEST(FilesOverRanks, VectorsTravelThroughFiles) {
  std::mt19937 rng(8);
  // The point of a folder begins no extension.
  const std::string folder = fileName("folder", "d"), name = fileName("b", "mtx");
  std::filesystem::create_directories(folder);
  for (const long n : {13L, 2L}) {
    const auto values = smallVector<double>(rng, static_cast<std::size_t>(n));
    saveOnRoot(name, matrixOf<double>(Device(), static_cast<int>(n), 1, values));
    for (const Device& device : rankDevices()) {
      Vector x;
      x.loadFromFile(name, device);
      x.loadFromFile(fileName("missing", "mtx"), device);  // changes nothing
      EXPECT_EQ(x.getRows(), n);
      const auto own = ownPart(x.getRowPartitioner(), values);
      EXPECT_EQ(valuesOf(x), own);
      x.saveToFile(fileName("x", "mtx"));
      x.saveToFile(folder + "/plain");
      const std::string ending =
          worldSize() == 1 ? "" : partName("", "", 0).substr(fileName("", "").size() - 1);
      for (const std::string& part : {partName("x", "mtx", 0), folder + "/plain" + ending}) {
        EXPECT_EQ(valuesOf(taken<MatrixT<double, int>>(part)), own) << part;
      }
    }
    removeOnRoot(name);
  }
  removeOnRoot(folder);
}

}  // namespace
}  // namespace mivo::test
