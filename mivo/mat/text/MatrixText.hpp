// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "mivo/utils/ScalarTraits.hpp"

namespace mivo {

// Text of matrix files, shared by all containers. Internal: not installed.

/// Word for the value type in the first line of a file; integer matrices say "real" as well.
template <class T>
constexpr const char* matrixFieldWord() {
  return kIsComplex<T> ? "complex" : "real";
}

/// Reads numbers as the extraction operators of the stream would, with the same values, errors and
/// final position, but many times as fast.
///
/// A number that stands whole in the buffer of the stream, between white space, is converted in
/// place; every other case (the end of a buffer, malformed or out of range text, an unusual stream)
/// is left to the stream's own operator. All members return false once the stream has failed, and
/// then leave their target alone.
class MatrixTextReader {
 public:
  /// `strict` chooses how complex values are read. The stream must outlive the reader.
  MatrixTextReader(std::istream& is, bool strict);

  /// N is int, long, float or double.
  template <class N>
  bool number(N& v);

  /// One value of the six types. A complex value is two numbers in strict mode. Otherwise it is a
  /// number, and, if "+" or "-" follows, any one character (the "j") and the imaginary number,
  /// negated behind
  /// "-".
  template <class T>
  bool value(T& v);

 private:
  bool character(char& c);

  std::istream& is_;
  bool strict_;
  bool plain_;  ///< the stream's flags and locale are those that the fast path assumes
};

/// Writes numbers as the insertion operators of a stream in scientific format would, through a
/// buffer of its own. The text reaches the stream at the latest when the writer ends.
class MatrixTextWriter {
 public:
  /// A precision below 1 means 16; `strict` chooses the form of complex values.
  MatrixTextWriter(std::ostream& os, int precision, bool strict);
  ~MatrixTextWriter() { flush(); }
  MatrixTextWriter(const MatrixTextWriter&) = delete;
  MatrixTextWriter& operator=(const MatrixTextWriter&) = delete;

  void text(std::string_view s);
  void character(char c);
  void integer(long v);

  /// One value of the six types. A complex value is "re im" in strict mode, otherwise "re+jim" or
  /// "re-jim" with the sign of the imaginary part written twice.
  template <class T>
  void value(const T& v);

  void flush();

 private:
  /// Room for n characters.
  char* reserve(std::size_t n);

  std::ostream& os_;
  int precision_;
  bool strict_;
  std::vector<char> buffer_;
  std::size_t used_ = 0;
};

/// What stands behind the last point of a file name, "mtx" when there is none.
std::string matrixFileExtension(const std::string& name);

/// Name of the file of one block of a distributed object: the given one on one rank, otherwise
/// "stem-size_<size>-rank_<rank>-part_<part>.ext".
std::string matrixRankFileName(const std::string& name, int size, int rank, int part);

}  // namespace mivo
