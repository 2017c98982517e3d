// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <istream>
#include <sstream>
#include <string>
#include <vector>

#include "mivo/mat/text/MatrixText.hpp"
#include "mivo/utils/Utils.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

// Reading of Matrix Market coordinate text, shared by the sparse containers. Internal: not
// installed.

/// A comment line whose words are exactly five, "MatrixMarket" first and "symmetric" last.
bool isSymmetricHeader(const std::string& comment);

/// Reads a coordinate text. First `shape(rows, cols)` with the shape of the size line, 0 by 0 when
/// there is none; then `store(row, col, value)` for each entry and for its mirror image, indices
/// from 0 and unchecked. A position that comes again overwrites.
///
/// Reading ends with the entry at which the stream fails. That entry is stored too: what could not
/// be read of it keeps the value of the entry before, or what the stream's extraction left.
template <class T, class R, class C, class Shape, class Store>
void readCoordinates(std::istream& is, const Shape& shape, const Store& store) {
  bool symmetric = false;
  R rows = 0;
  C cols = 0;
  long count = 0;
  std::string line;
  while (std::getline(is, line)) {
    if (line.empty()) continue;
    if (line[0] != '%') {
      std::istringstream(line) >> rows >> cols >> count;
      break;
    }
    symmetric = symmetric || isSymmetricHeader(line);
  }
  MIVO_LOG(3, symmetric && Utils::getVerboseLevel() >= 3) << "loadFromStream read symmetric matrix";
  shape(rows, cols);

  // Wraps around instead of overflowing at the smallest index.
  const auto fromZero = [](auto index) {
    return static_cast<decltype(index)>(static_cast<unsigned long>(index) - 1);
  };
  MatrixTextReader reader(is, Utils::isStrictMatrixMarket());
  R row = 0;
  C col = 0;
  T value = T(0);
  bool ok = true;
  for (long k = 0; k < count && ok; ++k) {
    ok = reader.number(row) && reader.number(col) && reader.value(value);
    const R i = fromZero(row);
    const C j = fromZero(col);
    store(i, j, value);
    // A column that is no number of a row has no mirror image in the matrix.
    const R mirrored = static_cast<R>(j);
    if (symmetric && static_cast<C>(i) != j && static_cast<C>(mirrored) == j) {
      store(mirrored, static_cast<C>(i), value);
    }
  }
}

}  // namespace mivo
