// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <regex>
#include <stdexcept>
#include <vector>

#include "examples/mivo-solve/checks.hpp"
#include "examples/mivo-solve/input_error.hpp"
#include "examples/mivo-solve/schema.hpp"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/strings.hpp"
#include "tests/fuzz/harness.hpp"
#include "tests/fuzz/targets.hpp"

namespace mivo::fuzz {

void configuration(const std::string& input) {
  using namespace mivo_solve;
  const std::string mark = "\n---\n";
  const std::size_t end = std::min(input.find(mark), input.size());
  const MemoryFile file(input.substr(0, end));
  Options options;
  options.configuration = file.path();
  for (std::size_t begin = end + mark.size(); begin < input.size();) {
    const std::size_t stop = std::min(input.find('\n', begin), input.size());
    options.overrides.push_back(input.substr(begin, stop - begin));
    begin = stop + 1;
  }
  try {
    const Problem problem = checkProblem(options, 1);
    require(validateConfiguration(problem.configuration).empty(),
            "what is filled into a configuration fits the schema");
    require(Problem::fromText(problem.toText()).toText() == problem.toText(),
            "other ranks learn the same problem");
  } catch (const InputError& error) {
    require(error.what()[0] != '\0', "a refusal says why");
  }
}

void deviceText(const std::string& input) {
  try {
    const Device device(input);
    require(Device(device.getString()) == device, "a device's own text names the same device");
    require(device == Device() || input.compare(0, device.name.size(), device.name) == 0,
            "the kind of a device is that of its text");
  } catch (const std::invalid_argument&) {
  } catch (const std::out_of_range&) {
  }
}

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
