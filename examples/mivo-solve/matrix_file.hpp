// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace mivo_solve {

/// How the entries that a file lists stand for those of the other half of the matrix.
enum class Symmetry { kGeneral, kSymmetric, kSkewSymmetric, kHermitian };

/// What a scan of a matrix file found.
struct MatrixFileInfo {
  std::int64_t rows = 0;
  std::int64_t cols = 0;
  std::int64_t entries = 0;  ///< entries that the file lists
  std::int64_t stored = 0;   ///< entries of the matrix, those of the mirrored half included
  bool complex = false;
  bool pattern = false;  ///< positions without values
  Symmetry symmetry = Symmetry::kGeneral;
  bool needsConversion = false;  ///< the library would misread the header
  std::string note;              ///< how the header is understood, empty when it says all
};

/// Reads a Matrix Market coordinate file from end to end and throws InputError for whatever the
/// library would misread in silence: a header of another kind, CR LF line ends, a size line that
/// promises what the file does not hold, indices out of range, texts, NaN and infinities for
/// numbers. `path` must name a regular file.
MatrixFileInfo scanCoordinateFile(const std::string& path);

/// The same for a Matrix Market array file, which must hold one column.
MatrixFileInfo scanVectorFile(const std::string& path);

/// The matrix of an accepted coordinate file that needs conversion, with all its entries, as a
/// general file that the library reads rightly. The file has no name in any folder and goes with
/// the object. Throws InputError when it cannot be written.
class ConvertedFile {
 public:
  ConvertedFile(const std::string& path, const MatrixFileInfo& info);
  /// By which this process can open it.
  std::string path() const;

 private:
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
};

/// Names the first position that a coordinate file lists a second time, as "line 7: ..."; empty
/// when there is none.
std::string findRepeatedEntry(const std::string& path);

/// Throws InputError unless the path names a regular file that can be read. `what` is its part for
/// the message.
void checkReadableFile(const std::string& path, const std::string& what);

}  // namespace mivo_solve
