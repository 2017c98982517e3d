// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "mivo/mat/COOMatrix.hpp"
#include "mivo/mat/CSRMatrix.hpp"
#include "tests/support/files.hpp"
#include "tests/support/sparse.hpp"

namespace mivo::test {
namespace {

template <class T>
CSRMatrixT<T, int> loaded(const std::string& text) {
  return loadedText<CSRMatrixT<T, int>>(text);
}

TEST(CSRMatrixFile, WritesCoordinatesInStoredOrder) {
  const auto m = sparseOf(Device(), plainRows<double>(3, {{{2, -1.5}, {0, 1e-300}}, {}, {{1, 0}}}));
  EXPECT_EQ(savedText(m, 3),
            "%%MatrixMarket matrix coordinate real general\n3 3 3\n"
            "1 3 -1.500e+00\n1 1 1.000e-300\n3 2 0.000e+00\n");
  EXPECT_EQ(savedText(sparseOf(Device(), plainRows<int>(2, {{{1, -7}}})), 0),
            "%%MatrixMarket matrix coordinate real general\n1 2 1\n1 2 -7\n");
  EXPECT_EQ(savedText(sparseOf(Device(), plainRows<Complex<float>>(1, {{{0, {1, -2}}}})), 1),
            "%%MatrixMarket matrix coordinate complex general\n1 1 1\n1 1 1.0e+00-j-2.0e+00\n");
  EXPECT_EQ(savedText(CSRMatrixT<double, int>(), 0),
            "%%MatrixMarket matrix coordinate real general\n0 0 0\n");
}

TEST(CSRMatrixFile, ExtensionChoosesTheFormat) {
  const auto m = sparseOf(Device(), plainRows<double>(2, {{}, {{0, 1.5}}}));
  const std::string coordinates =
      "%%MatrixMarket matrix coordinate real general\n2 2 1\n2 1 1.5000000000000000e+00\n";
  const auto written = [](const CSRMatrixT<double, int>& matrix, const std::string& name) {
    std::ofstream(tempFile(name)) << "old content";
    matrix.saveToFile(tempFile(name), 0);
    return readFile(tempFile(name));
  };
  EXPECT_EQ(written(m, "sparse.mtx"), coordinates);
  EXPECT_EQ(written(m, "sparse"), coordinates);
  EXPECT_EQ(written(m, "sparse.raw"), "2\n0\n0\n1\n0\n1.5000000000000000e+00\n");
  EXPECT_EQ(written(CSRMatrixT<double, int>(), "none.raw"), "0\n");
  EXPECT_EQ(written(m, "sparse.txt"), "");
  m.saveToFile(tempFile("no/such/folder.mtx"), 0);
}

template <class T>
class CSRMatrixFileTest : public testing::Test {};
TYPED_TEST_SUITE(CSRMatrixFileTest, ValueTypes);

TYPED_TEST(CSRMatrixFileTest, WrittenMatricesReadBackSorted) {
  using T = TypeParam;
  std::mt19937 rng(17);
  for (const auto& [rows, cols] : testShapes()) {
    HostCsr<T> plain = randomCsr<T>(rng, rows, cols);
    for (T& v : plain.values) {
      // The loose complex form loses the sign of the imaginary part.
      if constexpr (kIsComplex<T>) v.im = std::abs(v.im) / 3;
    }
    const CSRMatrixT<T, int> m = loaded<T>(savedText(sparseOf(Device(), plain), 0));
    EXPECT_EQ(m.getRows(), rows);
    EXPECT_EQ(m.getCols(), cols);
    EXPECT_EQ(plainOf(m), plain.sorted());
  }
}

TEST(CSRMatrixFile, SymmetricFilesAreMirrored) {
  const std::string entries = "3 3 3\n2 1 5\n3 3 6\n3 1 7\n",
                    word = "%%MatrixMarket matrix coordinate ";
  const auto whole = plainRows<double>(3, {{{1, 5}, {2, 7}}, {{0, 5}}, {{0, 7}, {2, 6}}});
  const auto half = plainRows<double>(3, {{}, {{0, 5}}, {{0, 7}, {2, 6}}});
  for (const std::string& head :
       {word + "real symmetric\n", word + "pattern symmetric \t\n",
        std::string("% MatrixMarket a b c symmetric\n%\n\n"),
        std::string("%%MatrixMarket\n%% MatrixMarket a b c symmetric\n% x\n")}) {
    EXPECT_EQ(plainOf(loaded<double>(head + entries)), whole) << head;
  }
  for (const std::string& head : {word + "real skew-symmetric\n", word + "symmetric\n",
                                  word + "real symmetric now\n", std::string()}) {
    EXPECT_EQ(plainOf(loaded<double>(head + entries)), half) << head;
  }
  // The mirror image overwrites, and is overwritten, in the order of the file.
  EXPECT_EQ(plainOf(loaded<double>(word + "real symmetric\n2 2 3\n1 2 1\n2 1 2\n1 2 3\n")),
            plainRows<double>(2, {{{1, 3}}, {{0, 3}}}));
}

TEST(CSRMatrixFile, UnusableTextLeavesNoEntries) {
  for (const std::string text :
       {"% only comments\n", "abc\n1 1 1\n", "-3 2 4\n1 1 1\n", "\n\n%\n"}) {
    const auto m = loaded<double>(text);
    EXPECT_EQ(m.getNnz(), 0) << text;
    EXPECT_EQ(m.getRowPtr(), nullptr) << text;
  }
  const auto shaped = loaded<double>("3 4\n");
  EXPECT_EQ(shaped.getRows(), 3);
  EXPECT_EQ(plainOf(shaped).rowptr, std::vector<int>(4, 0));

  // A stream that has failed or ended is not touched, nor is the matrix.
  auto kept = sparseOf(Device(), plainRows<double>(1, {{{0, 1}}}));
  std::istringstream ended("");
  ended.get();
  kept.loadFromStream(ended);
  std::ifstream missing(tempFile("no/such/file.mtx"));
  kept.loadFromStream(missing);
  EXPECT_EQ(kept.getNnz(), 1);
  COOMatrixT<double, int, int> coo;
  coo.loadFromStream(missing);
  EXPECT_EQ(coo.getRows(), -1);
}

// Broken entries are compared with the stream's own operators below.
TEST(CSRMatrixFile, EntriesEndWhereTheStreamFails) {
  const auto two = plainRows<double>(3, {{{0, 4}}, {{2, 5}}, {}});
  EXPECT_EQ(plainOf(loaded<double>("3 3 1000000000000000000\n1 1 4\n2 3 5")), two);
  EXPECT_EQ(plainOf(loaded<double>("3 3 9\n1 1 4\n2 3 5\n99999999999 2 1\n1 2 1\n")), two);
  EXPECT_EQ(plainOf(loaded<double>("3 3 9\n1 1 4\n2 3 5\n3 2 nan\n1 2 1\n")),
            plainRows<double>(3, {{{0, 4}}, {{2, 5}}, {{1, 0}}}));
}

TEST(CSRMatrixFile, RowsOutsideAreLeftOutAndColumnsKept) {
  const std::string text = "2 2 6\n1 1 1\n3 1 2\n0 1 3\n-2147483648 1 4\n2 7 5\n2 0 6\n";
  EXPECT_EQ(plainOf(loaded<double>(text)), plainRows<double>(2, {{{0, 1}}, {{-1, 6}, {6, 5}}}));
  std::istringstream is("%%MatrixMarket matrix coordinate real symmetric\n2 2 1\n2 4294967297 1\n");
  COOMatrixT<double, int, long> coo;
  coo.loadFromStream(is);
  EXPECT_EQ(coo.getRowEx(1)->size(), 1u);
  EXPECT_EQ(coo.getRowEx(0)->size(), 0u) << "a wide column has no mirror image";
}

/// The format by the stream's own operators, entry by entry into a map.
std::map<std::pair<int, int>, double> slowlyRead(const std::string& text, int& rows) {
  std::istringstream is(text);
  std::string line;
  bool symmetric = false;
  int cols = 0, count = rows = 0;
  while (std::getline(is, line)) {
    if (line.empty()) continue;
    if (line[0] != '%') {
      std::istringstream(line) >> rows >> cols >> count;
      break;
    }
    symmetric = symmetric || line == "%%MatrixMarket matrix coordinate real symmetric";
  }
  std::map<std::pair<int, int>, double> entries;
  int row = 0, col = 0;
  double value = 0;
  for (long k = 0; k < count && is; ++k) {
    is >> row >> col >> value;
    entries[{row - 1, col - 1}] = value;
    if (symmetric && row != col) entries[{col - 1, row - 1}] = value;
  }
  return entries;
}

TEST(CSRMatrixFile, DamagedTextsReadAsByStreamExtraction) {
  std::mt19937 rng(23);
  const std::string header[] = {"", "%%MatrixMarket matrix coordinate real symmetric\n"};
  const std::string alphabet = "0123456789 \t\n+-.eExX%j,\r";
  for (int round = 0; round < 3000; ++round) {
    std::string text = header[rng() % 2] + "9 9 12\n";
    const std::size_t body = text.size();
    for (int k = 0; k < 12; ++k) {
      text += std::to_string(1 + rng() % 9) + ' ' + std::to_string(1 + rng() % 9) + ' ' +
              std::to_string(static_cast<int>(rng() % 19) - 9) + (k % 3 == 0 ? ".25e-1\n" : "\n");
    }
    for (int damage = static_cast<int>(rng() % 4); damage > 0; --damage) {
      const std::size_t at = body + rng() % (text.size() - body);
      if (rng() % 8 == 0) {
        text.resize(at + 1);
      } else {
        text[at] = alphabet[rng() % alphabet.size()];
      }
    }
    int rows = 0;
    const auto expected = slowlyRead(text, rows);
    std::istringstream is(text);
    COOMatrixT<double, int, int> coo;
    coo.loadFromStream(is);
    for (const auto& [position, value] : expected) {
      ASSERT_EQ((*coo.getRowEx(position.first))[position.second], value) << text;
    }
    const auto inside = HostCsr<double>::build(rows, 9, [&](int i, HostCsr<double>& out) {
      for (const auto& [at, v] : expected) {
        if (at.first == i) out.push(at.second, v);
      }
    });
    ASSERT_EQ(plainOf(loaded<double>(text)), inside) << text;
  }
}

}  // namespace
}  // namespace mivo::test
