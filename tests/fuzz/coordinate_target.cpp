// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>

#include "examples/mivo-solve/input_error.hpp"
#include "examples/mivo-solve/matrix_file.hpp"
#include "mivo/mat/COOMatrix.hpp"
#include "mivo/mat/CSRMatrix.hpp"
#include "tests/fuzz/harness.hpp"
#include "tests/fuzz/matrix_text.hpp"
#include "tests/fuzz/targets.hpp"

namespace mivo::fuzz {
namespace {

template <class T>
using Matrix = CSRMatrixT<T, int>;

template <class X>
bool sameBytes(const X* a, const X* b, int count) {
  return count <= 0 || std::memcmp(a, b, static_cast<std::size_t>(count) * sizeof(X)) == 0;
}

template <class T>
bool same(const Matrix<T>& a, const Matrix<T>& b) {
  return a.getRows() == b.getRows() && a.getCols() == b.getCols() && a.getNnz() == b.getNnz() &&
         (a.getRows() <= 0 || sameBytes(a.getRowPtr(), b.getRowPtr(), a.getRows() + 1)) &&
         sameBytes(a.getColIdx(), b.getColIdx(), a.getNnz()) &&
         sameBytes(a.getValues(), b.getValues(), a.getNnz());
}

template <class T>
void checkStructure(const Matrix<T>& m) {
  if (m.getRows() <= 0) {
    require(m.getNnz() == 0, "a matrix without rows has no entries");
    return;
  }
  require(m.getRowPtr()[0] == 0 && m.getRowPtr()[m.getRows()] == m.getNnz(),
          "row pointers go from 0 to the number of entries");
  for (int i = 0; i < m.getRows(); ++i) {
    const int* const begin = m.getColIdx() + m.getRowPtr()[i];
    const int* const end = m.getColIdx() + m.getRowPtr()[i + 1];
    require(begin <= end, "row pointers do not decrease");
    require(std::is_sorted(begin, end) && std::adjacent_find(begin, end) == end,
            "columns increase within a row");
  }
}

/// Columns that are no index may have no number as a 1-based index.
template <class T>
bool hasWritableColumns(const Matrix<T>& m) {
  return std::all_of(m.getColIdx(), m.getColIdx() + m.getNnz(),
                     [](int col) { return col >= 0 && col < std::numeric_limits<int>::max(); });
}

/// What the reader of whole maps makes of the text.
template <class T>
Matrix<T> loadedByMap(const std::string& input) {
  Matrix<T> m;
  loaded<COOMatrixT<T, int, int>>(input).toCSR(m);
  m.sortRows();
  return m;
}

template <class T>
void checkReaders(const std::string& input) {
  const auto m = loaded<Matrix<T>>(input);
  checkStructure(m);
  if (m.getNnz() > 0) {
    require(same(m, loadedByMap<T>(input)), "both readers give the same matrix");
  }
  // A complex value of the loose layout changes the sign of its imaginary part on the way.
  const bool exact = !kIsComplex<T> || Utils::isStrictMatrixMarket();
  if (exact && m.getRows() > 0 && hasWritableColumns(m)) {
    require(same(m, reloaded(m)), "a written matrix reads the same");
  }
}

/// A file that the driver accepts is one that the library does not misread, as it stands or
/// converted.
void checkScan(std::string input) {
  const MemoryFile file(input);
  mivo_solve::MatrixFileInfo info;
  bool repeats = false;
  try {
    info = mivo_solve::scanCoordinateFile(file.path());
    repeats = !mivo_solve::findRepeatedEntry(file.path()).empty();
  } catch (const mivo_solve::InputError&) {
    return;
  }
  // The driver works in the strict layout.
  if (info.complex && !Utils::isStrictMatrixMarket()) return;
  if (info.needsConversion) {
    const mivo_solve::ConvertedFile converted(file.path(), info);
    std::ifstream text(converted.path());
    input.assign(std::istreambuf_iterator<char>(text), {});
  }
  const auto check = [&](const auto& m) {
    require(m.getRows() == info.rows && m.getCols() == info.cols,
            "the shape is that of the accepted file");
    require(repeats ? m.getNnz() < info.stored : m.getNnz() == info.stored,
            "all entries of an accepted file are there");
    require(std::all_of(m.getColIdx(), m.getColIdx() + m.getNnz(),
                        [&](int col) { return col >= 0 && col < info.cols; }),
            "the columns of an accepted file are in range");
  };
  if (info.complex) {
    check(loaded<Matrix<Complex<double>>>(input));
  } else {
    check(loaded<Matrix<double>>(input));
  }
}

}  // namespace

void coordinateFile(const std::string& input) {
  long rows = 0;
  std::istringstream(sizeLine(input, true)) >> rows;
  if (!isQuick(static_cast<double>(rows))) return;
  survives([&] { loaded<COOMatrixT<double, long, long>>(input); });
  const bool accepted = survives([&] {
    checkReaders<double>(input);
    checkReaders<Complex<double>>(input);
  });
  if (accepted) checkScan(input);
}

}  // namespace mivo::fuzz
