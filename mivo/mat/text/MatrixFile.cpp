// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <istream>
#include <limits>
#include <string>
#include <vector>

#include "mivo/mat/Matrix.hpp"
#include "mivo/mat/text/MatrixText.hpp"
#include "mivo/utils/Utils.hpp"
#include "mivo/utils/strings.hpp"

namespace mivo {
namespace {

/// Leading decimal number of a word; false when there is none or it does not fit.
template <class I>
bool parseCount(const std::string& word, I& count) {
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(word.c_str(), &end, 10);
  if (end == word.c_str() || errno == ERANGE || value < std::numeric_limits<I>::min() ||
      value > std::numeric_limits<I>::max()) {
    return false;
  }
  count = static_cast<I>(value);
  return true;
}

/// First line that is no comment; empty at the end of the stream.
std::string readSizeLine(std::istream& is) {
  std::string line;
  while (std::getline(is, line)) {
    if (line.empty() || line[0] != '%') return line;
  }
  return std::string();
}

/// Leaves the shape alone unless the line holds one or two numbers.
template <class I>
bool parseShape(const std::string& line, I& rows, I& cols) {
  const std::vector<std::string> words = stringSplit(line, "[ \t]+");
  I shape[2] = {0, 1};
  if (words.size() > 2) return false;
  for (std::size_t k = 0; k < words.size(); ++k) {
    if (!parseCount(words[k], shape[k])) return false;
  }
  rows = shape[0];
  cols = shape[1];
  return true;
}

}  // namespace

template <class T, class I, class Layout>
void MatrixT<T, I, Layout>::saveToStream(std::ostream& os, int precision) const {
  const bool strict = Utils::isStrictMatrixMarket();
  MatrixTextWriter writer(os, precision, strict);
  writer.text("%%MatrixMarket matrix array ");
  writer.text(matrixFieldWord<T>());
  writer.text(" general\n");
  writer.integer(getRows());
  writer.character(' ');
  writer.integer(getCols());
  writer.character('\n');
  const T* v = getData();
  for (I i = 0; i < getRows(); ++i) {
    for (I j = 0; j < getCols(); ++j) {
      if (!strict && j > 0) writer.character(' ');
      writer.value(*v++);
      if (strict) writer.character('\n');
    }
    if (!strict) writer.character('\n');
  }
}

template <class T, class I, class Layout>
void MatrixT<T, I, Layout>::saveToFile(const std::string& name, int precision) const {
  const std::string extension = matrixFileExtension(name);
  std::ofstream file(name);
  if (extension == "mtx") {
    saveToStream(file, precision);
  } else if (extension == "raw") {
    MatrixTextWriter writer(file, precision, Utils::isStrictMatrixMarket());
    writer.integer(getSize());
    writer.character('\n');
    for (I k = 0; k < getSize(); ++k) {
      writer.value(getData()[k]);
      writer.character('\n');
    }
  }
}

template <class T, class I, class Layout>
void MatrixT<T, I, Layout>::loadFromStream(std::istream& is) {
  if (!is.good()) return;
  I rows = 0;
  I cols = 0;
  const bool known = parseShape(readSizeLine(is), rows, cols);
  MIVO_LOG(1, !known && Utils::getVerboseLevel() >= 1) << "invalid matrix format";
  create(rows, cols, Device());

  MatrixTextReader reader(is, Utils::isStrictMatrixMarket());
  T* data = getData();
  I k = 0;
  bool ok = true;
  while (ok && k < getSize()) {
    T v{};
    ok = reader.value(v);
    data[k++] = v;
  }
  // What the stream does not hold is zero, but only as far as this touches a sensible amount of
  // memory: the size line may promise anything, and untouched pages cost nothing.
  constexpr I kZeros = 1 << 20;
  std::fill_n(data + k, std::min<I>(getSize() - k, kZeros), T{});
}

#define MIVO_FILE_INSTANCE(T, I)                                                                \
  template void MatrixT<T, I, MatrixLayoutRowMajor>::saveToStream(std::ostream&, int) const;    \
  template void MatrixT<T, I, MatrixLayoutRowMajor>::saveToFile(const std::string&, int) const; \
  template void MatrixT<T, I, MatrixLayoutRowMajor>::loadFromStream(std::istream&);
MIVO_INSTANTIATE_VALUES_WITH(MIVO_FILE_INSTANCE, int)
MIVO_INSTANTIATE_VALUES_WITH(MIVO_FILE_INSTANCE, long)
#undef MIVO_FILE_INSTANCE

}  // namespace mivo
