// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <cstring>

#include "examples/mivo-solve/input_error.hpp"
#include "examples/mivo-solve/matrix_file.hpp"
#include "mivo/mat/Matrix.hpp"
#include "mivo/utils/strings.hpp"
#include "tests/fuzz/harness.hpp"
#include "tests/fuzz/matrix_text.hpp"
#include "tests/fuzz/targets.hpp"

namespace mivo::fuzz {
namespace {

template <class T, class I>
void checkReader(const std::string& input) {
  using Matrix = MatrixT<T, I, MatrixLayoutRowMajor>;
  const auto m = loaded<Matrix>(input);
  require(m.getRows() >= 0 && m.getCols() >= 0, "no shape is negative");
  require((m.getSize() > 0) == (m.getData() != nullptr), "elements have memory");
  if (kIsComplex<T> && !Utils::isStrictMatrixMarket()) return;
  // Without columns there may be any number of rows, and each is written as a line.
  if (m.getSize() == 0) return;
  const auto again = reloaded(m);
  require(
      m.getRows() == again.getRows() && m.getCols() == again.getCols() &&
          (m.getSize() == 0 || std::memcmp(m.getData(), again.getData(),
                                           static_cast<std::size_t>(m.getSize()) * sizeof(T)) == 0),
      "a written matrix reads the same");
}

/// A file that the driver accepts is one that the library does not misread.
void checkScan(const std::string& input) {
  const MemoryFile file(input);
  mivo_solve::MatrixFileInfo info;
  try {
    info = mivo_solve::scanVectorFile(file.path());
  } catch (const mivo_solve::InputError&) {
    return;
  }
  if (info.complex && !Utils::isStrictMatrixMarket()) return;
  std::istringstream stream(input);
  const auto check = [&](auto vector) {
    vector.loadFromStream(stream);
    require(stream && vector.getRows() == info.rows && vector.getCols() == 1,
            "all values of an accepted file are there");
  };
  if (info.complex) {
    check(MatrixT<Complex<double>, int>());
  } else {
    check(MatrixT<double, int>());
  }
}

}  // namespace

void denseFile(const std::string& input) {
  double elements = 1;
  for (const std::string& word : stringSplit(sizeLine(input, false), "[ \t]+")) {
    elements *= static_cast<double>(std::strtol(word.c_str(), nullptr, 10));
  }
  if (!isQuick(elements)) return;
  const bool accepted = survives([&] {
    checkReader<double, int>(input);
    checkReader<Complex<double>, int>(input);
    checkReader<double, long>(input);
  });
  if (accepted) checkScan(input);
}

}  // namespace mivo::fuzz
