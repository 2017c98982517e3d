// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "mivo/utils/export.hpp"

namespace mivo {

/// Text in the manner of `printf`; empty when the format cannot be carried out.
MIVO_API std::string string_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// The values of a list as "[1, 2, 3]".
template <class Values>
std::string listText(const Values& values) {
  std::string text = "[";
  for (const auto& value : values) {
    if (text.size() > 1) text += ", ";
    text += std::to_string(value);
  }
  return text + "]";
}

/// Pieces of `text` between the matches of an ECMAScript regular expression. The piece before a
/// match at the very beginning is empty and counts, one behind a match at the very end does not.
/// Separators of one character (",", "\\.", "[ \t]", "\\s"), also in runs ("[ \t]+"), serve texts
/// of any length; other expressions use a stack as deep as their matches are long. Raises
/// std::regex_error for what is no expression.
MIVO_API std::vector<std::string> stringSplit(const std::string& text, const std::string& pattern);

/// What stands before and after the last "."; without one, the whole text and an empty one.
MIVO_API std::vector<std::string> stringSplitExt(const std::string& path);

}  // namespace mivo
