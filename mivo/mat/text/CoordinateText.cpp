// SPDX-License-Identifier: Apache-2.0
#include "mivo/mat/text/CoordinateText.hpp"

#include <algorithm>
#include <cstddef>

namespace mivo {
namespace {

/// `text` without the characters of `front` at its begin and of `back` at its end.
std::string trimmed(const std::string& text, const char* front, const char* back) {
  const std::size_t begin = text.find_first_not_of(front);
  if (begin == std::string::npos) return std::string();
  return text.substr(begin, text.find_last_not_of(back) + 1 - begin);
}

}  // namespace

bool isSymmetricHeader(const std::string& comment) {
  const std::string text = trimmed(comment, "% \t", "\n \t");
  std::vector<std::string> words;
  std::size_t begin = 0;
  while (begin < text.size()) {
    const std::size_t end = std::min(text.find_first_of(" \t", begin), text.size());
    words.push_back(text.substr(begin, end - begin));
    begin = std::min(text.find_first_not_of(" \t", end), text.size());
  }
  return words.size() == 5 && words[0] == "MatrixMarket" && words[4] == "symmetric";
}

}  // namespace mivo
