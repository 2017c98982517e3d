// SPDX-License-Identifier: Apache-2.0
#include "mivo/utils/strings.hpp"

#include <cstdarg>
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

std::vector<std::string> stringSplit(const std::string& text, const std::string& pattern) {
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
