// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>

#include "examples/mivo-solve/input_error.hpp"
#include "examples/mivo-solve/matrix_file.hpp"
#include "mivo/mat/COOMatrix.hpp"
#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/utils/Utils.hpp"
#include "tests/fuzz/harness.hpp"
#include "tests/fuzz/targets.hpp"

namespace mivo::fuzz {
namespace {

using mivo_solve::MatrixFileInfo;

template <class T>
using Sparse = CSRMatrixT<T, int>;

/// The first line that is no comment, as the readers find it. The reader of sparse matrices skips
/// empty lines as well.
std::string sizeLine(const std::string& text, bool skipEmpty) {
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (line.empty() ? !skipEmpty : line[0] != '%') return line;
  }
  return {};
}

template <class M>
M loaded(const std::string& text) {
  std::istringstream stream(text);
  M m;
  m.loadFromStream(stream);
  return m;
}

template <class X>
bool sameBytes(const X* a, const X* b, long count) {
  return count <= 0 || std::memcmp(a, b, static_cast<std::size_t>(count) * sizeof(X)) == 0;
}

template <class T>
bool same(const Sparse<T>& a, const Sparse<T>& b) {
  return a.getRows() == b.getRows() && a.getCols() == b.getCols() && a.getNnz() == b.getNnz() &&
         (a.getRows() <= 0 || sameBytes(a.getRowPtr(), b.getRowPtr(), a.getRows() + 1L)) &&
         sameBytes(a.getColIdx(), b.getColIdx(), a.getNnz()) &&
         sameBytes(a.getValues(), b.getValues(), a.getNnz());
}
template <class T, class I>
bool same(const MatrixT<T, I>& a, const MatrixT<T, I>& b) {
  return a.getRows() == b.getRows() && a.getCols() == b.getCols() &&
         sameBytes(a.getData(), b.getData(), a.getSize());
}

template <class M>
void checkReloaded(const M& m) {
  std::stringstream stream;
  m.saveToStream(stream, 17);
  require(same(m, loaded<M>(stream.str())), "a written matrix reads the same");
}

/// A complex value of the loose layout changes the sign of its imaginary part on the way.
template <class T>
bool isReadExactly() {
  return !kIsComplex<T> || Utils::isStrictMatrixMarket();
}

template <class T>
void checkStructure(const Sparse<T>& m) {
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

template <class T>
void checkSparseReaders(const std::string& input) {
  const auto m = loaded<Sparse<T>>(input);
  checkStructure(m);
  if (m.getNnz() > 0) {
    Sparse<T> whole;
    loaded<COOMatrixT<T, int, int>>(input).toCSR(whole);
    whole.sortRows();
    require(same(m, whole), "both readers give the same matrix");
  }
  // Columns that are no index may have no number as a 1-based index.
  const bool writable = std::all_of(m.getColIdx(), m.getColIdx() + m.getNnz(), [](int col) {
    return col >= 0 && col < std::numeric_limits<int>::max();
  });
  if (isReadExactly<T>() && m.getRows() > 0 && writable) checkReloaded(m);
}

template <class T, class I>
void checkDenseReader(const std::string& input) {
  const auto m = loaded<MatrixT<T, I>>(input);
  require(m.getRows() >= 0 && m.getCols() >= 0, "no shape is negative");
  require((m.getSize() > 0) == (m.getData() != nullptr), "elements have memory");
  // Without columns there may be any number of rows, and each is written as a line.
  if (isReadExactly<T>() && m.getSize() > 0) checkReloaded(m);
}

/// A file that the driver accepts is one that the library does not misread. The driver works in
/// the strict layout.
template <class Scan, class Check>
void checkScan(const std::string& input, const Scan& scan, const Check& check) {
  const MemoryFile file(input);
  MatrixFileInfo info;
  try {
    info = scan(file.path());
  } catch (const mivo_solve::InputError&) {
    return;
  }
  if (!info.complex) {
    check(info, file, double());
  } else if (Utils::isStrictMatrixMarket()) {
    check(info, file, Complex<double>());
  }
}

}  // namespace

void coordinateFile(const std::string& input) {
  long rows = 0;
  std::istringstream(sizeLine(input, true)) >> rows;
  if (!isQuick(static_cast<double>(rows))) return;
  survives([&] { loaded<COOMatrixT<double, long, long>>(input); });
  const bool accepted = survives([&] {
    checkSparseReaders<double>(input);
    checkSparseReaders<Complex<double>>(input);
  });
  if (!accepted) return;
  bool repeats = false;
  const auto scan = [&](const std::string& path) {
    const MatrixFileInfo info = mivo_solve::scanCoordinateFile(path);
    repeats = !mivo_solve::findRepeatedEntry(path).empty();
    return info;
  };
  // As it stands or converted.
  checkScan(input, scan, [&](const MatrixFileInfo& info, const MemoryFile& file, auto value) {
    std::string text = input;
    if (info.needsConversion) {
      const mivo_solve::ConvertedFile converted(file.path(), info);
      std::ifstream stream(converted.path());
      text.assign(std::istreambuf_iterator<char>(stream), {});
    }
    const auto m = loaded<Sparse<decltype(value)>>(text);
    require(m.getRows() == info.rows && m.getCols() == info.cols,
            "the shape is that of the accepted file");
    require(repeats ? m.getNnz() < info.stored : m.getNnz() == info.stored,
            "all entries of an accepted file are there");
    require(std::all_of(m.getColIdx(), m.getColIdx() + m.getNnz(),
                        [&](int col) { return col >= 0 && col < info.cols; }),
            "the columns of an accepted file are in range");
  });
}

void denseFile(const std::string& input) {
  double elements = 1;
  for (const std::string& word : stringSplit(sizeLine(input, false), "[ \t]+")) {
    elements *= static_cast<double>(std::strtol(word.c_str(), nullptr, 10));
  }
  if (!isQuick(elements)) return;
  const bool accepted = survives([&] {
    checkDenseReader<double, int>(input);
    checkDenseReader<Complex<double>, int>(input);
    checkDenseReader<double, long>(input);
  });
  if (!accepted) return;
  checkScan(input, mivo_solve::scanVectorFile,
            [&](const MatrixFileInfo& info, const MemoryFile&, auto value) {
              std::istringstream stream(input);
              MatrixT<decltype(value)> vector;
              vector.loadFromStream(stream);
              require(stream && vector.getRows() == info.rows && vector.getCols() == 1,
                      "all values of an accepted file are there");
            });
}

}  // namespace mivo::fuzz
