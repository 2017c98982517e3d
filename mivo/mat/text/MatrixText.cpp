// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/text/MatrixText.hpp"

#include <charconv>
#include <locale>
#include <streambuf>
#include <system_error>
#include <type_traits>

#include "mivo/utils/instantiate.hpp"
#include "mivo/utils/strings.hpp"

namespace mivo {
namespace {

constexpr std::size_t kBufferSize = std::size_t(1) << 16;

bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// Opens the buffered part of a stream for reading in place.
struct GetArea : std::streambuf {
  static const char* begin(const std::streambuf& b) { return (b.*&GetArea::gptr)(); }
  static const char* end(const std::streambuf& b) { return (b.*&GetArea::egptr)(); }
  /// The buffer counts in int; blocks of 2 GiB and more never get here in one step.
  static void consume(std::streambuf& b, std::ptrdiff_t n) {
    (b.*&GetArea::gbump)(static_cast<int>(n));
  }
};

/// First character that is not white space, `end` if there is none in the buffer.
const char* skipSpace(const char* p, const char* end) {
  while (p != end && isSpace(*p)) ++p;
  return p;
}

/// Converts a number that ends in front of white space or a sign; null where stream extraction
/// might see something else.
template <class N>
const char* convert(const char* p, const char* end, N& v) {
  const char* digits = p != end && *p == '-' ? p + 1 : p;
  // Keeps out the words for infinity and not-a-number, which streams refuse.
  if (digits == end || !((*digits >= '0' && *digits <= '9') || *digits == '.')) return nullptr;
  N result;
  const auto [stop, error] = std::from_chars(p, end, result);
  if (error != std::errc() || stop == end) return nullptr;
  if (!isSpace(*stop) && *stop != '+' && *stop != '-') return nullptr;
  v = result;
  return stop;
}

}  // namespace

MatrixTextReader::MatrixTextReader(std::istream& is, bool strict)
    : is_(is),
      strict_(strict),
      plain_((is.flags() & (std::ios::skipws | std::ios::basefield)) ==
                 (std::ios::skipws | std::ios::dec) &&
             is.getloc() == std::locale::classic()) {}

template <class N>
bool MatrixTextReader::number(N& v) {
  if (plain_ && is_.good()) {
    std::streambuf& buffer = *is_.rdbuf();
    const char* begin = GetArea::begin(buffer);
    const char* end = GetArea::end(buffer);
    const char* stop = convert(skipSpace(begin, end), end, v);
    if (stop != nullptr) {
      GetArea::consume(buffer, stop - begin);
      return true;
    }
  }
  return static_cast<bool>(is_ >> v);
}

bool MatrixTextReader::character(char& c) {
  if (plain_ && is_.good()) {
    std::streambuf& buffer = *is_.rdbuf();
    const char* begin = GetArea::begin(buffer);
    const char* end = GetArea::end(buffer);
    const char* p = skipSpace(begin, end);
    if (p != end) {
      c = *p;
      GetArea::consume(buffer, p + 1 - begin);
      return true;
    }
  }
  return static_cast<bool>(is_ >> c);
}

template <class T>
bool MatrixTextReader::value(T& v) {
  if constexpr (!kIsComplex<T>) {
    return number(v);
  } else if (strict_) {
    number(v.re);
    return number(v.im);
  } else {
    if (!number(v.re)) return false;
    v.im = 0;
    char sign = ' ';
    if (!character(sign)) return false;
    if (sign != '+' && sign != '-') {
      is_.putback(sign);
      return static_cast<bool>(is_);
    }
    char unit = ' ';
    character(unit);
    const bool ok = number(v.im);
    if (sign == '-') v.im = -v.im;
    return ok;
  }
}

MatrixTextWriter::MatrixTextWriter(std::ostream& os, int precision, bool strict)
    : os_(os), precision_(precision < 1 ? 16 : precision), strict_(strict), buffer_(kBufferSize) {}

char* MatrixTextWriter::reserve(std::size_t n) {
  if (buffer_.size() - used_ < n) {
    flush();
    if (buffer_.size() < n) buffer_.resize(n);
  }
  return buffer_.data() + used_;
}

void MatrixTextWriter::flush() {
  os_.write(buffer_.data(), static_cast<std::streamsize>(used_));
  used_ = 0;
}

void MatrixTextWriter::text(std::string_view s) {
  s.copy(reserve(s.size()), s.size());
  used_ += s.size();
}

void MatrixTextWriter::character(char c) {
  *reserve(1) = c;
  ++used_;
}

void MatrixTextWriter::integer(long v) {
  constexpr std::size_t kDigits = 24;
  char* p = reserve(kDigits);
  used_ += static_cast<std::size_t>(std::to_chars(p, p + kDigits, v).ptr - p);
}

template <class T>
void MatrixTextWriter::value(const T& v) {
  if constexpr (kIsComplex<T>) {
    value(v.re);
    if (strict_) {
      character(' ');
    } else {
      text(v.im < 0 ? "-j" : "+j");
    }
    value(v.im);
  } else if constexpr (std::is_integral_v<T>) {
    integer(v);
  } else {
    // Sign, digit, point and exponent beside the fraction.
    const std::size_t room = static_cast<std::size_t>(precision_) + 16;
    char* p = reserve(room);
    const auto end = std::to_chars(p, p + room, static_cast<double>(v),
                                   std::chars_format::scientific, precision_);
    used_ += static_cast<std::size_t>(end.ptr - p);
  }
}

namespace {

/// A name before and behind its last point; points of folders do not count.
std::vector<std::string> splitFileName(const std::string& name) {
  const std::size_t file = name.find_last_of('/') + 1;
  std::vector<std::string> pieces = stringSplitExt(name.substr(file));
  pieces[0].insert(0, name, 0, file);
  return pieces;
}

}  // namespace

std::string matrixFileExtension(const std::string& name) {
  const std::string extension = splitFileName(name)[1];
  return extension.empty() ? "mtx" : extension;
}

std::string matrixRankFileName(const std::string& name, int size, int rank, int part) {
  if (size == 1) return name;
  const std::vector<std::string> pieces = splitFileName(name);
  return string_printf("%s-size_%d-rank_%d-part_%d.%s", pieces[0].c_str(), size, rank, part,
                       pieces[1].c_str());
}

#define MIVO_NUMBER_INSTANCE(N) template bool MatrixTextReader::number(N&);
MIVO_NUMBER_INSTANCE(int)
MIVO_NUMBER_INSTANCE(long)
MIVO_NUMBER_INSTANCE(float)
MIVO_NUMBER_INSTANCE(double)
#undef MIVO_NUMBER_INSTANCE

#define MIVO_VALUE_INSTANCE(T)               \
  template bool MatrixTextReader::value(T&); \
  template void MatrixTextWriter::value(const T&);
MIVO_FOR_EACH_VALUE(MIVO_VALUE_INSTANCE)
#undef MIVO_VALUE_INSTANCE

}  // namespace mivo
