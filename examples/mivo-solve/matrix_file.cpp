// SPDX-License-Identifier: Apache-2.0
#include "matrix_file.hpp"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "input_error.hpp"
#include "words.hpp"

namespace mivo_solve {
namespace {

using std::int64_t;
using std::string_view;

/// The library counts local rows and entries with 32-bit integers.
constexpr int64_t kMaxCount = std::numeric_limits<std::int32_t>::max();
constexpr std::size_t kBlockBytes = std::size_t(1) << 20;

/// Lines of a file, read in blocks, with their numbers.
class LineReader {
 public:
  explicit LineReader(const std::string& path) : path_(path), file_(path, std::ios::binary) {
    if (!file_) {
      throw InputError(escaped(path) + ": cannot be opened: " + std::strerror(errno));
    }
  }

  /// False at the end. The view is good until the next call.
  bool next(string_view& line) {
    const char* newline = find();
    while (newline == nullptr && refill()) {
      newline = find();
    }
    if (newline == nullptr && begin_ == buffer_.size()) {
      return false;
    }
    const char* start = buffer_.data() + begin_;
    const char* end = newline != nullptr ? newline : buffer_.data() + buffer_.size();
    line = string_view(start, static_cast<std::size_t>(end - start));
    begin_ += line.size() + (newline != nullptr ? 1 : 0);
    searched_ = begin_;
    ++number_;
    if (!line.empty() && line.back() == '\r') {
      fail(
          "the file has CR LF line ends, which the matrix reader does not know; convert them to "
          "LF");
    }
    return true;
  }

  int64_t number() const { return number_; }

  [[noreturn]] void fail(const std::string& message) const {
    throw InputError(escaped(path_) + ": line " + std::to_string(number_) + ": " + message);
  }
  [[noreturn]] void failFile(const std::string& message) const {
    throw InputError(escaped(path_) + ": " + message);
  }

 private:
  const char* find() {
    const void* hit = searched_ == buffer_.size() ? nullptr
                                                  : std::memchr(buffer_.data() + searched_, '\n',
                                                                buffer_.size() - searched_);
    searched_ = buffer_.size();
    return static_cast<const char*>(hit);
  }

  bool refill() {
    if (!file_) {
      return false;
    }
    buffer_.erase(0, begin_);
    begin_ = 0;
    const std::size_t kept = buffer_.size();
    searched_ = kept;
    if (kept >= kBlockBytes) {
      ++number_;
      fail("the line is longer than " + std::to_string(kBlockBytes) + " characters");
    }
    buffer_.resize(kept + kBlockBytes);
    file_.read(&buffer_[kept], static_cast<std::streamsize>(kBlockBytes));
    buffer_.resize(kept + static_cast<std::size_t>(file_.gcount()));
    if (file_.bad()) {
      failFile("reading stopped with an error after line " + std::to_string(number_));
    }
    return buffer_.size() > kept;
  }

  std::string path_;
  std::ifstream file_;
  std::string buffer_;
  std::size_t begin_ = 0;     ///< start of the next line
  std::size_t searched_ = 0;  ///< no line end before this
  int64_t number_ = 0;
};

bool isBlank(char c) { return c == ' ' || c == '\t'; }

/// Takes the next word off the front of the line; empty at its end.
string_view takeWord(string_view& line) {
  std::size_t begin = 0;
  while (begin < line.size() && isBlank(line[begin])) ++begin;
  std::size_t end = begin;
  while (end < line.size() && !isBlank(line[end])) ++end;
  const string_view word = line.substr(begin, end - begin);
  line.remove_prefix(end);
  return word;
}

bool isEmptyLine(string_view line) { return takeWord(line).empty(); }

std::vector<std::string> words(string_view line) {
  std::vector<std::string> out;
  for (string_view word = takeWord(line); !word.empty(); word = takeWord(line)) {
    out.emplace_back(word);
  }
  return out;
}

int64_t readInteger(const LineReader& reader, string_view word, const char* what) {
  int64_t value = 0;
  const auto result = std::from_chars(word.data(), word.data() + word.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    reader.fail(std::string(what) + " " + std::string(word) + " is absurdly large");
  }
  if (word.empty() || result.ec != std::errc() || result.ptr != word.data() + word.size()) {
    reader.fail(std::string("expected ") + what + ", a whole number, found " +
                inQuotes(std::string(word)));
  }
  return value;
}

double readNumber(const LineReader& reader, string_view word, const char* what) {
  string_view digits = word;
  if (digits.size() > 1 && digits[0] == '+' && digits[1] != '-') {
    digits.remove_prefix(1);
  }
  double value = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (word.empty()) {
    reader.fail(std::string(what) + " is missing");
  }
  if (result.ec == std::errc::result_out_of_range) {
    reader.fail(std::string(what) + " " + std::string(word) + " does not fit a double number");
  }
  if (result.ec != std::errc() || result.ptr != digits.data() + digits.size()) {
    const bool fortran = word.find_first_of("dD") != string_view::npos &&
                         std::isdigit(static_cast<unsigned char>(word.back()));
    reader.fail(std::string("expected ") + what + ", a number, found " +
                inQuotes(std::string(word)) +
                (fortran ? "; write the exponent with the letter e" : ""));
  }
  if (!std::isfinite(value)) {
    reader.fail(std::string(what) + " " + inQuotes(std::string(word)) + " is not a finite number");
  }
  return value;
}

/// The kinds of a Matrix Market file that a role takes.
struct Expected {
  const char* role;
  const char* format;  ///< "coordinate" or "array"
  bool matrix;         ///< whether fields and symmetries of matrices are taken
};

MatrixFileInfo readHeader(LineReader& reader, const Expected& expected) {
  string_view line;
  if (!reader.next(line)) {
    reader.failFile("the file is empty");
  }
  if (line.size() > 1 && line[0] == '\x1f' && line[1] == '\x8b') {
    reader.failFile("the file is compressed; unpack it first");
  }
  const std::string form = std::string("%%MatrixMarket matrix ") + expected.format +
                           (expected.matrix ? " real symmetric" : " real general");
  const std::vector<std::string> found = words(line);
  if (found.size() < 4 || found.size() > 5 || found[0] != "%%MatrixMarket" || isBlank(line[0]) ||
      lowerCase(found[1]) != "matrix") {
    reader.fail("expected a header such as \"" + form + "\", found " + inQuotes(std::string(line)));
  }
  const std::string format = lowerCase(found[2]);
  if (format != expected.format) {
    reader.fail("the header says " + inQuotes(found[2]) + ", where " + expected.role + " needs " +
                inQuotes(expected.format) +
                (format == "array" ? ": a dense file cannot give the sparse matrix" : ""));
  }
  const std::string field = lowerCase(found[3]);
  std::vector<std::string> fields = {"real", "integer", "complex"};
  std::vector<std::string> symmetries = {"general"};
  if (expected.matrix) {
    fields.emplace_back("pattern");
    symmetries.insert(symmetries.end(), {"symmetric", "skew-symmetric", "hermitian"});
  }
  if (std::find(fields.begin(), fields.end(), field) == fields.end()) {
    reader.fail("the field " + inQuotes(found[3]) +
                " cannot be read; allowed: " + listInQuotes(fields));
  }
  const std::string symmetry = found.size() == 5 ? lowerCase(found[4]) : "general";
  const auto at = std::find(symmetries.begin(), symmetries.end(), symmetry);
  if (at == symmetries.end()) {
    reader.fail("the symmetry " + inQuotes(found[4]) +
                " cannot be read; allowed: " + listInQuotes(symmetries));
  }
  MatrixFileInfo info;
  info.complex = field == "complex";
  info.pattern = field == "pattern";
  info.symmetry = static_cast<Symmetry>(at - symmetries.begin());
  if (info.pattern && info.symmetry == Symmetry::kSkewSymmetric) {
    reader.fail("positions without values have no sign, so that they cannot be skew-symmetric");
  }
  // The library knows one such word, and only in this form.
  info.needsConversion =
      info.pattern || (info.symmetry != Symmetry::kGeneral && found[4] != "symmetric");
  const char* const halves[] = {"", "the other half is filled in with equal values",
                                "the other half is filled in with values of the other sign",
                                "the other half is filled in with conjugate values"};
  if (info.pattern) info.note = "pattern: each entry counts as 1";
  if (info.symmetry != Symmetry::kGeneral) {
    info.note += (info.note.empty() ? "" : "; ") + symmetry + ": " +
                 halves[static_cast<std::size_t>(info.symmetry)];
  }
  return info;
}

/// Skips comments, and for a coordinate file empty lines, up to the size line. The reader of array
/// files takes the first line that is no comment, and stumbles over blanks at its start.
std::vector<std::string> readSizeLine(LineReader& reader, const MatrixFileInfo& info, bool array) {
  string_view line;
  while (reader.next(line)) {
    if (!line.empty() && line[0] == '%') {
      // The reader of coordinate files takes any comment of this form for a header.
      const std::size_t text = std::min(line.find_first_not_of('%'), line.size());
      const std::vector<std::string> comment = words(line.substr(text));
      if (info.symmetry == Symmetry::kGeneral && !info.needsConversion && comment.size() == 5 &&
          comment[0] == "MatrixMarket" && comment[4] == "symmetric") {
        reader.fail("this comment would be taken for a header of a symmetric matrix; reword it");
      }
    } else if (line.empty() && !array) {
      continue;
    } else if (isEmptyLine(line)) {
      reader.fail("an empty line stands where the size line is expected; remove it");
    } else if (array && isBlank(line[0])) {
      reader.fail("the size line begins with a blank; remove it");
    } else {
      return words(line);
    }
  }
  reader.failFile("the size line is missing: the file ends after line " +
                  std::to_string(reader.number()));
}

void checkCount(const LineReader& reader, int64_t count, const char* what) {
  if (count < 1) {
    reader.fail(std::string("the number of ") + what + " is " + std::to_string(count) +
                "; it must be at least 1");
  }
  if (count > kMaxCount) {
    reader.fail("the file promises " + std::to_string(count) + " " + what + "; at most " +
                std::to_string(kMaxCount) + " are possible");
  }
}

/// A size line that promises more than the file can hold is refused before anything is allocated.
void checkPromise(const LineReader& reader, const std::string& path, int64_t count,
                  int64_t leastBytes, const char* what) {
  std::error_code code;
  const auto bytes = std::filesystem::file_size(path, code);
  if (!code &&
      static_cast<std::uintmax_t>(count) > bytes / static_cast<std::uintmax_t>(leastBytes) + 1) {
    reader.fail("the file promises " + std::to_string(count) + " " + what + ", but has only " +
                std::to_string(bytes) + " bytes");
  }
}

MatrixFileInfo readCoordinateHead(LineReader& reader, const std::string& path) {
  MatrixFileInfo info = readHeader(reader, {"filename_A", "coordinate", true});
  const std::vector<std::string> size = readSizeLine(reader, info, false);
  if (size.size() != 3) {
    reader.fail("expected the size line with rows, columns and entries, found " +
                std::to_string(size.size()) + (size.size() == 1 ? " word" : " words"));
  }
  info.rows = readInteger(reader, size[0], "the number of rows");
  info.cols = readInteger(reader, size[1], "the number of columns");
  info.entries = readInteger(reader, size[2], "the number of entries");
  checkCount(reader, info.rows, "rows");
  checkCount(reader, info.cols, "columns");
  checkCount(reader, info.entries, "entries");
  if (info.rows != info.cols) {
    reader.fail("the matrix has " + std::to_string(info.rows) + " rows and " +
                std::to_string(info.cols) + " columns; a solver needs a square one");
  }
  checkPromise(reader, path, info.entries, info.complex ? 8 : info.pattern ? 4 : 6, "entries");
  return info;
}

}  // namespace

void checkReadableFile(const std::string& path, const std::string& what) {
  namespace fs = std::filesystem;
  const std::string where = escaped(path) + ": " + what + ": ";
  std::error_code code;
  const fs::file_status status = fs::status(path, code);
  if (!fs::exists(status)) {
    throw InputError(where + "file not found" +
                     (code && code.value() != ENOENT ? " (" + code.message() + ")" : ""));
  }
  if (fs::is_directory(status)) {
    throw InputError(where + "is a directory, where a file is expected");
  }
  if (!fs::is_regular_file(status)) {
    throw InputError(where + "is no regular file");
  }
  if (!std::ifstream(path)) {
    throw InputError(where + "cannot be opened: " + std::strerror(errno));
  }
}

MatrixFileInfo scanCoordinateFile(const std::string& path) {
  LineReader reader(path);
  MatrixFileInfo info = readCoordinateHead(reader, path);
  int64_t read = 0;
  int64_t diagonal = 0;
  string_view line;
  while (reader.next(line)) {
    if (isEmptyLine(line)) {
      continue;
    }
    if (line[0] == '%') {
      reader.fail("comments must stand before the size line");
    }
    if (read == info.entries) {
      reader.fail("more entries than the " + std::to_string(info.entries) +
                  " that the size line promises");
    }
    const int64_t row = readInteger(reader, takeWord(line), "a row index");
    const int64_t col = readInteger(reader, takeWord(line), "a column index");
    if (row < 1 || row > info.rows) {
      reader.fail("the row index " + std::to_string(row) + " is outside 1 to " +
                  std::to_string(info.rows));
    }
    if (col < 1 || col > info.cols) {
      reader.fail("the column index " + std::to_string(col) + " is outside 1 to " +
                  std::to_string(info.cols));
    }
    double value[2] = {1, 0};
    if (!info.pattern) {
      value[0] = readNumber(reader, takeWord(line), info.complex ? "the real part" : "the value");
      if (info.complex) value[1] = readNumber(reader, takeWord(line), "the imaginary part");
    }
    if (row == col && info.symmetry == Symmetry::kSkewSymmetric &&
        (value[0] != 0 || value[1] != 0)) {
      reader.fail("the diagonal of a skew-symmetric matrix is 0");
    }
    if (row == col && info.symmetry == Symmetry::kHermitian && value[1] != 0) {
      reader.fail("the diagonal of a Hermitian matrix is real");
    }
    if (!isEmptyLine(line)) {
      reader.fail("one entry a line is expected, found more: " + inQuotes(std::string(line)));
    }
    ++read;
    diagonal += row == col ? 1 : 0;
  }
  if (read < info.entries) {
    reader.failFile("the file ends after " + std::to_string(read) + " of " +
                    std::to_string(info.entries) + " entries");
  }
  info.stored = info.symmetry == Symmetry::kGeneral ? read : 2 * read - diagonal;
  if (info.stored > kMaxCount) {
    reader.failFile("the matrix has " + std::to_string(info.stored) + " entries; at most " +
                    std::to_string(kMaxCount) + " are possible");
  }
  return info;
}

MatrixFileInfo scanVectorFile(const std::string& path) {
  LineReader reader(path);
  MatrixFileInfo info = readHeader(reader, {"a vector", "array", false});
  const std::vector<std::string> size = readSizeLine(reader, info, true);
  if (size.size() > 2) {
    reader.fail("expected the size line with rows and columns, found " +
                std::to_string(size.size()) + " words");
  }
  info.rows = readInteger(reader, size[0], "the number of rows");
  info.cols = size.size() == 2 ? readInteger(reader, size[1], "the number of columns") : 1;
  checkCount(reader, info.rows, "rows");
  if (info.cols != 1) {
    reader.fail("the file has " + std::to_string(info.cols) + " columns; a vector has one");
  }
  info.entries = info.rows;
  checkPromise(reader, path, info.entries, info.complex ? 4 : 2, "values");
  int64_t read = 0;
  string_view line;
  while (reader.next(line)) {
    for (string_view word = takeWord(line); !word.empty(); word = takeWord(line)) {
      if (word[0] == '%') {
        reader.fail("comments must stand before the size line");
      }
      if (read == info.entries) {
        reader.fail("more values than the " + std::to_string(info.entries) +
                    " that the size line promises");
      }
      readNumber(reader, word, info.complex ? "the real part" : "a value");
      if (info.complex) {
        readNumber(reader, takeWord(line), "the imaginary part");
      }
      ++read;
    }
  }
  if (read < info.entries) {
    reader.failFile("the file ends after " + std::to_string(read) + " of " +
                    std::to_string(info.entries) + " values");
  }
  info.stored = read;
  return info;
}

ConvertedFile::ConvertedFile(const std::string& path, const MatrixFileInfo& info)
    : file_(std::tmpfile(), std::fclose) {
  const auto fail = [&] {
    throw InputError(escaped(path) + ": a temporary file for the conversion cannot be written: " +
                     std::strerror(errno));
  };
  if (file_ == nullptr) fail();
  LineReader reader(path);
  readCoordinateHead(reader, path);
  std::fprintf(file_.get(), "%%%%MatrixMarket matrix coordinate %s general\n%lld %lld %lld\n",
               info.complex ? "complex" : "real", static_cast<long long>(info.rows),
               static_cast<long long>(info.cols), static_cast<long long>(info.stored));
  // Values are copied as they stand, so that no digit changes.
  const auto negative = [](const std::string& word) {
    return word[0] == '-' ? word.substr(1) : "-" + word.substr(word[0] == '+' ? 1 : 0);
  };
  const auto print = [&](const std::string& row, const std::string& col, const std::string& re,
                         const std::string& im) {
    std::fprintf(file_.get(), "%s %s %s%s%s\n", row.c_str(), col.c_str(), re.c_str(),
                 im.empty() ? "" : " ", im.c_str());
  };
  string_view line;
  while (reader.next(line)) {
    if (isEmptyLine(line)) continue;
    const std::string row(takeWord(line)), col(takeWord(line));
    const std::string re(info.pattern ? "1" : takeWord(line)), im(takeWord(line));
    print(row, col, re, im);
    if (info.symmetry == Symmetry::kGeneral || std::stoll(row) == std::stoll(col)) continue;
    const bool opposite = info.symmetry == Symmetry::kSkewSymmetric;
    const bool turned = opposite || info.symmetry == Symmetry::kHermitian;
    print(col, row, opposite ? negative(re) : re, turned && !im.empty() ? negative(im) : im);
  }
  if (std::fflush(file_.get()) != 0 || std::ferror(file_.get()) != 0) fail();
}

std::string ConvertedFile::path() const {
  return "/proc/self/fd/" + std::to_string(fileno(file_.get()));
}

std::string findRepeatedEntry(const std::string& path) {
  LineReader reader(path);
  const MatrixFileInfo info = readCoordinateHead(reader, path);
  std::unordered_set<std::uint64_t> seen;
  string_view line;
  while (reader.next(line)) {
    if (isEmptyLine(line)) {
      continue;
    }
    auto row = static_cast<std::uint64_t>(readInteger(reader, takeWord(line), "a row index"));
    auto col = static_cast<std::uint64_t>(readInteger(reader, takeWord(line), "a column index"));
    // A symmetric file that lists both halves gives a position twice, too.
    const bool oneHalf = info.symmetry != Symmetry::kGeneral;
    if (oneHalf && row < col) {
      std::swap(row, col);
    }
    if (!seen.insert(row << 32 | col).second) {
      return "line " + std::to_string(reader.number()) + ": the entry of row " +
             std::to_string(row) + " and column " + std::to_string(col) + " stands twice" +
             (oneHalf ? " (a symmetric file holds one half only)" : "");
    }
  }
  return {};
}

}  // namespace mivo_solve
