// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "tests/support/files.hpp"
#include "tests/support/parsparse.hpp"

namespace mivo {
namespace {

using test::partsAt;
using test::plainOf;
using test::plainRows;
using test::readFile;
using test::sparseOf;
using test::tempFile;
using test::testDevices;

using Matrix = ParCSRMatrixT<double, long, int>;

/// Columns in two blocks, the first without entries.
Matrix twoBlocks(const Device& device) {
  Matrix A;
  A.create(partsAt<long>({0, 2}), partsAt<long>({0, 3, 5}),
           {CSRMatrixT<double, int>(),
            sparseOf(device, plainRows<double>(2, {{}, {{1, -2.5}, {0, 1.}}}))},
           device);
  return A;
}

constexpr const char* kBlock =
    "%%MatrixMarket matrix coordinate real general\n"
    "2 2 2\n"
    "2 2 -2.50e+00\n"
    "2 1 1.00e+00\n";

TEST(ParCSRMatrixFile, DumpShowsStoredBlocks) {
  for (const Device& device : testDevices()) {
    std::ostringstream os;
    twoBlocks(device).saveToStream(os, 2);
    EXPECT_EQ(os.str(), std::string("the matrix for process 0/1 is\nblock 1\n") + kBlock);
  }
}

TEST(ParCSRMatrixFile, OneRankWritesTheFileOfTheGivenName) {
  for (const Device& device : testDevices()) {
    const std::string name = tempFile("parcsr_one.rank.mtx");
    twoBlocks(device).saveToFile(name, 2);
    EXPECT_EQ(readFile(name), kBlock);
    std::remove(name.c_str());
    Matrix empty;
    empty.create(2, 2, device);
    empty.saveToFile(name, 2);
    EXPECT_EQ(std::fopen(name.c_str(), "r"), nullptr) << "no entries, no file";
  }
}

TEST(ParCSRMatrixFile, LoadedMatrixStandsOnTheDeviceAskedFor) {
  std::istringstream text(
      "%%MatrixMarket matrix coordinate real symmetric\n"
      "3 3 3\n"
      "3 1 4.5\n"
      "1 1 1\n"
      "2 2 -2e0\n");
  for (const Device& device : testDevices()) {
    text.clear();
    text.seekg(0);
    Matrix A;
    A.loadFromStream(text, device);
    EXPECT_EQ(A.getRows(), 3);
    EXPECT_EQ(A.getDevice(), device);
    EXPECT_EQ(plainOf(A.getLocalMatrix(0)),
              (plainRows<double>(3, {{{0, 1.}, {2, 4.5}}, {{1, -2.}}, {{0, 4.5}}})));
    const std::string name = tempFile("parcsr_round.mtx");
    A.saveToFile(name, 0);
    Matrix B;
    B.loadFromFile(name, device);
    EXPECT_TRUE(A == B);
    // Nothing happens without a file.
    B.loadFromFile(tempFile("parcsr_missing.mtx"), device);
    EXPECT_TRUE(A == B);
    std::remove(name.c_str());
  }
}

}  // namespace
}  // namespace mivo
