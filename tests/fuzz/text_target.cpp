// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <regex>
#include <vector>

#include "mivo/utils/strings.hpp"
#include "tests/fuzz/harness.hpp"
#include "tests/fuzz/targets.hpp"

namespace mivo::fuzz {
namespace {

constexpr std::size_t kPattern = 8;
constexpr std::size_t kText = 6;

/// Backtracking takes exponential time in the depth of repetitions, and counted ones take a stack
/// as deep as the count, by the nature of the method.
bool isQuickPattern(const std::string& pattern) {
  const auto repeats = [](char c) { return c == '*' || c == '+'; };
  return pattern.find('{') == std::string::npos &&
         std::count_if(pattern.begin(), pattern.end(), repeats) <= 2;
}

void checkSplit(const std::string& text, const std::string& pattern) {
  std::vector<std::string> expected;
  bool refused = false;
  try {
    const std::regex separator(pattern);
    expected.assign(std::sregex_token_iterator(text.begin(), text.end(), separator, -1),
                    std::sregex_token_iterator());
  } catch (const std::regex_error&) {
    refused = true;
  }
  try {
    const std::vector<std::string> pieces = stringSplit(text, pattern);
    require(!refused, "stringSplit refuses what is no regular expression");
    require(pieces == expected, "stringSplit gives the pieces of the token iterator");
  } catch (const std::regex_error&) {
    require(refused, "stringSplit takes each regular expression");
  }
}

}  // namespace

void textHelpers(const std::string& input) {
  const std::size_t end = std::min(input.find('\n'), input.size());
  const std::string pattern = input.substr(0, std::min(end, kPattern));
  const std::string text = input.substr(std::min(end + 1, input.size()));
  if (isQuickPattern(pattern)) checkSplit(text.substr(0, kText), pattern);

  // Separators that stand for one character, or a run of it, serve texts of any length.
  for (const char* separator : {",", "\\.", "[ \t]", "[ \t]+", "[^0-9]+", "\\s+"}) {
    std::size_t length = 0;
    for (const std::string& piece : stringSplit(text, separator)) length += piece.size();
    require(length <= text.size(), "the pieces are parts of the text");
  }
  std::string joined;
  const std::vector<std::string> pieces = stringSplit(text, ",");
  for (const std::string& piece : pieces) joined += piece + ",";
  const bool ends = !text.empty() && text.back() == ',';
  if (!ends) joined.pop_back();
  require(joined == text, "the pieces between commas, joined by commas, are the text");

  const std::vector<std::string> parts = stringSplitExt(text);
  require(parts.size() == 2 && parts[1].find('.') == std::string::npos &&
              (text.find('.') == std::string::npos ? parts[0] == text && parts[1].empty()
                                                   : parts[0] + "." + parts[1] == text),
          "stringSplitExt splits at the last point");
  const std::size_t shown = std::min(text.find('\0'), text.size());
  require(string_printf("%s|%s", text.c_str(), "x") == text.substr(0, shown) + "|x",
          "string_printf copies texts of any length");
}

}  // namespace mivo::fuzz
