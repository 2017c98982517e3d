// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <limits>
#include <random>
#include <sstream>
#include <streambuf>
#include <string>
#include <type_traits>
#include <vector>

#include "mivo/mat/Matrix.hpp"
#include "tests/support/dense.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/files.hpp"

namespace mivo::test {
namespace {

template <class T>
MatrixT<T, int> load(const std::string& text) {
  return loadedText<MatrixT<T, int>>(text);
}

TEST(MatrixFile, WritesOneLineForEachRow) {
  EXPECT_EQ(savedText(matrixOf<double>(Device(), 2, 2, {1.5, -0.25, 0, 1e300}), 3),
            "%%MatrixMarket matrix array real general\n2 2\n"
            "1.500e+00 -2.500e-01\n0.000e+00 1.000e+300\n");
  EXPECT_EQ(savedText(matrixOf<float>(Device(), 1, 1, {0.1f}), 0),
            "%%MatrixMarket matrix array real general\n1 1\n1.0000000149011612e-01\n");
  EXPECT_EQ(savedText(matrixOf<long>(Device(), 2, 1, {-7, 5'000'000'000}), 3),
            "%%MatrixMarket matrix array real general\n2 1\n-7\n5000000000\n");
  EXPECT_EQ(savedText(matrixOf<Complex<double>>(Device(), 1, 3, {{1, -2}, {-3, 4}, {5, -0.0}}), 1),
            "%%MatrixMarket matrix array complex general\n1 3\n"
            "1.0e+00-j-2.0e+00 -3.0e+00+j4.0e+00 5.0e+00+j-0.0e+00\n");
  EXPECT_EQ(savedText(MatrixT<int, int>(), 0), "%%MatrixMarket matrix array real general\n0 0\n");
}

TEST(MatrixFile, ExtensionDecidesTheFormat) {
  const MatrixT<double, int> m = matrixOf<double>(Device(), 1, 2, {1.5, -2});
  const std::string array =
      "%%MatrixMarket matrix array real general\n1 2\n"
      "1.5000000000000000e+00 -2.0000000000000000e+00\n";
  const auto saved = [&](const std::string& name, int precision) {
    const std::string path = tempFile(name);
    std::ofstream(path) << "earlier content";
    m.saveToFile(path, precision);
    return readFile(path);
  };
  EXPECT_EQ(saved("dense.mtx", 0), array);
  EXPECT_EQ(saved("dense.v2.mtx", -1), array);
  EXPECT_EQ(saved("dense_without_point", 0), array);
  EXPECT_EQ(saved("dense_with_nothing_behind_the_point.", 0), array);
  EXPECT_EQ(saved("dense.raw", 0), "2\n1.5000000000000000e+00\n-2.0000000000000000e+00\n");
  EXPECT_EQ(saved("dense.raw", 2), "2\n1.50e+00\n-2.00e+00\n");
  EXPECT_EQ(saved("dense.txt", 0), "");
  m.saveToFile(tempFile("no/such/folder/dense.mtx"), 0);
}

TEST(MatrixFile, ReadsTheShapeFromTheFirstLineThatIsNoComment) {
  const MatrixT<double, int> column = load<double>("3");
  EXPECT_EQ(column.getRows(), 3);
  EXPECT_EQ(column.getCols(), 1);
  EXPECT_EQ(valuesOf(column), (std::vector<double>{0, 0, 0})) << "missing values are zero";

  const MatrixT<double, int> m =
      load<double>("%%MatrixMarket matrix whatever\n% note\n2\t 2\r\n1 +2.5\r\n\n-3e1\t.5 77");
  EXPECT_EQ(m.getRows(), 2);
  EXPECT_EQ(valuesOf(m), (std::vector<double>{1, 2.5, -30, 0.5}));

  EXPECT_EQ(load<double>("2" + std::string(1 << 20, ' ') + "3 \n").getCols(), 3);

  // The layout of lines does not matter.
  EXPECT_EQ(valuesOf(load<double>("2 2\n1\n2\n3\n4\n")), valuesOf(load<double>("2 2\n1 2\n3 4\n")));
}

TEST(MatrixFile, BadSizeLineIsReportedAndGivesAnEmptyMatrix) {
  for (const char* text : {"1 2 3\n1\n", " 2 1\n1\n", "\n1\n", "", "% only comments\n",
                           "two 1\n1\n", "99999999999 1\n1\n"}) {
    std::istringstream is(text);
    MatrixT<double, int> m = matrixOf<double>(Device(), 2, 1, {5, 6});
    testing::internal::CaptureStdout();
    m.loadFromStream(is);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::EndsWith("] invalid matrix format\n"))
        << text;
    EXPECT_EQ(m.getRows(), 0) << text;
  }
  MIVO_EXPECT_FATAL(load<double>("-1 1\n"), "Matrix:117", "");
}

TEST(MatrixFile, AbsurdSizeLineDoesNotTouchTheMemoryThatItPromises) {
  const MatrixT<float, int> m = load<float>("200000000 1\n1.5\n");
  EXPECT_EQ(m.getRows(), 200000000);
  EXPECT_EQ(m.getData()[0], 1.5f);
  EXPECT_EQ(m.getData()[1], 0.0f);
}

TEST(MatrixFile, FailedStreamLeavesTheMatrixAlone) {
  MatrixT<double, int> m = matrixOf<double>(Device(), 2, 1, {5, 6});
  std::ifstream missing(tempFile("no_such_file.mtx"));
  m.loadFromStream(missing);
  std::ifstream folder(testing::TempDir());
  testing::internal::CaptureStdout();
  MatrixT<double, int> other;
  other.loadFromStream(folder);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(valuesOf(m), (std::vector<double>{5, 6}));
  EXPECT_EQ(other.getRows(), 0);
}

TEST(MatrixFile, LooseComplexFormHonoursBothSigns) {
  using C = Complex<double>;
  EXPECT_EQ(valuesOf(load<C>("5 1\n1+j2 1-j-2 1-j2 3 + j -4\n5 -1+j0")),
            (std::vector<C>{{1, 2}, {1, 2}, {1, -2}, {3, -4}, {5, -0.0}}))
      << "the sign in front of j flips the number behind it";
  // A value without imaginary part ends at the next character that is no sign.
  EXPECT_EQ(valuesOf(load<C>("3 1\n1.5 2+j1\n7\n")), (std::vector<C>{{1.5, 0}, {2, 1}, {7, 0}}));
  const MatrixT<C, int> m = matrixOf<C>(Device(), 2, 1, {{1.0 / 3, 2e-7}, {-5, 1e300}});
  EXPECT_EQ(valuesOf(load<C>(savedText(m, 0))), valuesOf(m));
}

/// Hands out its text in small pieces, so that numbers cross the ends of the buffer.
class PiecewiseBuffer : public std::streambuf {
 public:
  PiecewiseBuffer(const std::string& text, std::size_t piece) : text_(text), piece_(piece) {}

 protected:
  int_type underflow() override {
    if (next_ == text_.size()) return traits_type::eof();
    const std::size_t n = std::min(piece_, text_.size() - next_);
    // The character before the piece stays for putback.
    const std::size_t back = next_ > 0 ? 1 : 0;
    char* begin = &text_[next_];
    setg(begin - back, begin, begin + n);
    next_ += n;
    return traits_type::to_int_type(*begin);
  }

 private:
  std::string text_;
  std::size_t piece_;
  std::size_t next_ = 0;
};

template <class T>
class NumberTextTest : public testing::Test {};
using NumberTypes = testing::Types<int, long, float, double>;
TYPED_TEST_SUITE(NumberTextTest, NumberTypes);

TYPED_TEST(NumberTextTest, ReadsWhatStreamExtractionReads) {
  std::istringstream words(
      "0 1 -2 +3 17.5 -0.25e2 1e5 .5 5. 1E-3 007 -0 2147483648 9223372036854775808 1e39 1e400 "
      "-1e400 1e-50 1e-400 1e 1e+ . - +-1 nan -inf Infinity 0x10 1,5 abc 1+2 3-4 1e5e5 1_0 "
      "123456789012345678901234567890 0.1000000000000000055511151231257827");
  std::vector<std::string> tokens{std::istream_iterator<std::string>(words), {}};
  tokens.insert(tokens.end(), {"4\f5", "6\v"});
  std::mt19937 gen(11);
  for (int round = 0; round < 600; ++round) {
    // Mostly valid at the front, so that later tokens are reached.
    std::string text = "9 1\n";
    for (int k = 0; k < 9; ++k) {
      const std::size_t last = k < 6 && round % 3 != 0 ? 3 : tokens.size();
      text += tokens[gen() % last];
      text += gen() % 4 == 0 ? "\n" : (gen() % 7 == 0 ? " \t " : " ");
    }
    PiecewiseBuffer buffer(text, round % 2 == 0 ? text.size() : 1 + gen() % 7);
    std::istream is(&buffer);
    MatrixT<TypeParam, int> m;
    m.loadFromStream(is);

    std::istringstream reference(text);
    std::string line;
    std::getline(reference, line);
    std::vector<TypeParam> expected(9, TypeParam(0));
    for (TypeParam& v : expected) {
      if (!(reference >> v)) break;
    }
    EXPECT_EQ(valuesOf(m), expected) << text;
    EXPECT_EQ(is.rdstate(), reference.rdstate()) << text;
    is.clear();
    reference.clear();
    std::string rest, referenceRest;
    std::getline(is, rest, '\0');
    std::getline(reference, referenceRest, '\0');
    EXPECT_EQ(rest, referenceRest) << text;
  }
}

TYPED_TEST(NumberTextTest, WritesWhatStreamInsertionWrites) {
  using T = TypeParam;
  using Limits = std::numeric_limits<T>;
  std::vector<T> values = {T(0), T(1), T(-1), Limits::max(), Limits::min(), Limits::lowest()};
  if constexpr (std::is_floating_point_v<T>) {
    values.insert(values.end(),
                  {T(-0.0), T(0.5), T(9.9999999999999995), T(0.1), T(2.5), Limits::denorm_min(),
                   Limits::infinity(), -Limits::infinity(), Limits::quiet_NaN()});
  }
  std::mt19937_64 gen(12);
  for (int k = 0; k < 3000; ++k) {
    const std::uint64_t bits = gen();
    T v;
    std::memcpy(&v, &bits, sizeof(v));
    values.push_back(v);
  }
  const MatrixT<T, int> m = matrixOf<T>(Device(), static_cast<int>(values.size()), 1, values);
  for (int precision : {-1, 0, 1, 3, 8, 17, 60}) {
    std::ostringstream expected;
    expected << "%%MatrixMarket matrix array real general\n" << values.size() << " 1\n";
    expected << std::scientific << std::setprecision(precision < 1 ? 16 : precision);
    for (const T& v : values) expected << v << "\n";
    EXPECT_EQ(savedText(m, precision), expected.str()) << precision;
  }
}

}  // namespace
}  // namespace mivo::test
