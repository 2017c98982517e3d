// SPDX-License-Identifier: Apache-2.0
#include "mivo/utils/strings.hpp"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <regex>

namespace mivo {

std::string string_printf(const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  std::va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  std::string text;
  if (length >= 0) {
    text.resize(static_cast<std::size_t>(length) + 1);
    const int written = std::vsnprintf(&text[0], text.size(), format, again);
    text.resize(written < 0 ? 0 : static_cast<std::size_t>(length));
  }
  va_end(again);
  return text;
}

namespace {

/// Length of the atom at the begin of a regular expression that stands for exactly one character:
/// a plain character, an escaped one, or a class of plain ones. 0 for anything else.
std::size_t oneCharacterAtom(const std::string& pattern) {
  if (pattern.empty()) return 0;
  if (pattern[0] == '[') {
    const std::size_t first = pattern.find_first_not_of('^', 1);
    const std::size_t end = pattern.find_first_of("[]\\", first);
    return first > 2 || end == std::string::npos || end == first || pattern[end] != ']' ? 0
                                                                                        : end + 1;
  }
  if (pattern[0] == '\\') {
    const std::string known = "dDsSwWfnrtv^$\\.*+?()[]{}|";
    return pattern.size() > 1 && known.find(pattern[1]) != std::string::npos ? 2 : 0;
  }
  return std::string("^$*+?()[]{}|").find(pattern[0]) == std::string::npos ? 1 : 0;
}

/// The characters that an atom stands for, each looked up once.
class CharacterSet {
 public:
  explicit CharacterSet(const std::string& atom) : atom_(atom) {}
  bool has(char c) {
    signed char& known = known_[static_cast<unsigned char>(c)];
    if (known == 0) known = std::regex_match(&c, &c + 1, atom_) ? 1 : -1;
    return known > 0;
  }

 private:
  std::regex atom_;
  signed char known_[256] = {};  ///< 1 yes, -1 no, 0 not looked up yet
};

/// The pieces between characters of the set, or runs of them. The standard library's expressions
/// recur once a character, which ends on the stack's bound for a long run.
std::vector<std::string> splitAtCharacters(const std::string& text, CharacterSet set, bool runs) {
  std::vector<std::string> pieces;
  std::size_t begin = 0;
  for (std::size_t at = 0; at < text.size();) {
    if (!set.has(text[at])) {
      ++at;
      continue;
    }
    pieces.push_back(text.substr(begin, at - begin));
    ++at;
    while (runs && at < text.size() && set.has(text[at])) ++at;
    begin = at;
  }
  if (begin < text.size() || pieces.empty()) pieces.push_back(text.substr(begin));
  return pieces;
}

}  // namespace

std::vector<std::string> stringSplit(const std::string& text, const std::string& pattern) {
  const std::size_t atom = oneCharacterAtom(pattern);
  const bool runs = atom > 0 && pattern.compare(atom, std::string::npos, "+") == 0;
  if (runs || (atom > 0 && atom == pattern.size())) {
    return splitAtCharacters(text, CharacterSet(pattern.substr(0, atom)), runs);
  }
  const std::regex separator(pattern);
  return {std::sregex_token_iterator(text.begin(), text.end(), separator, -1),
          std::sregex_token_iterator()};
}

std::vector<std::string> stringSplitExt(const std::string& path) {
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos) return {path, ""};
  return {path.substr(0, dot), path.substr(dot + 1)};
}

}  // namespace mivo
