// SPDX-License-Identifier: Apache-2.0
#include "words.hpp"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace mivo_solve {

std::string lowerCase(std::string text) {
  for (char& c : text) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return text;
}

std::size_t editDistance(const std::string& first, const std::string& second) {
  const std::string a = lowerCase(first);
  const std::string b = lowerCase(second);
  // Rows i-2, i-1 and i of the table of distances between prefixes.
  std::vector<std::size_t> before(b.size() + 1), above(b.size() + 1), row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) {
    above[j] = j;
  }
  for (std::size_t i = 1; i <= a.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replace = above[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      row[j] = std::min({above[j] + 1, row[j - 1] + 1, replace});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        row[j] = std::min(row[j], before[j - 2] + 1);
      }
    }
    std::swap(before, above);
    std::swap(above, row);
  }
  return above[b.size()];
}

std::string nearestWord(const std::string& word, const std::vector<std::string>& candidates) {
  // An input of any length must not cost quadratic time.
  if (word.empty() || word.size() > 100) {
    return {};
  }
  const std::string* best = nullptr;
  std::size_t bestDistance = 0;
  for (const std::string& candidate : candidates) {
    const std::size_t distance = editDistance(word, candidate);
    if (best == nullptr || distance < bestDistance) {
      best = &candidate;
      bestDistance = distance;
    }
  }
  if (best != nullptr && bestDistance <= std::max<std::size_t>(1, word.size() / 3)) {
    return *best;
  }
  const std::string lower = lowerCase(word);
  best = nullptr;
  for (const std::string& candidate : candidates) {
    const std::string other = lowerCase(candidate);
    const bool related = other.find(lower) != std::string::npos ||
                         (other.size() > 2 && lower.find(other) != std::string::npos);
    if (word.size() > 2 && related && (best == nullptr || candidate.size() < best->size())) {
      best = &candidate;
    }
  }
  return best == nullptr ? std::string() : *best;
}

std::string escaped(const std::string& text) {
  std::string out;
  unsigned char before = 0;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    // U+0080 to U+009F are c2 80 to c2 9f.
    const bool second = before == 0xc2 && byte >= 0x80 && byte < 0xa0;
    if (second) out.pop_back();
    if (byte < 0x20 || byte == 0x7f || second) {
      char code[16];
      std::snprintf(code, sizeof code, second ? "\\xc2\\x%02x" : "\\x%02x", byte);
      out += code;
    } else {
      out += c;
    }
    before = byte;
  }
  return out;
}

std::string inQuotes(const std::string& word) {
  constexpr std::size_t kLongest = 80;
  return "\"" + escaped(word.substr(0, kLongest)) + (word.size() > kLongest ? "...\"" : "\"");
}

std::string listInQuotes(const std::vector<std::string>& words, const std::string& last) {
  std::string out;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (i > 0) {
      out += i + 1 < words.size() ? ", " : " " + last + " ";
    }
    out += inQuotes(words[i]);
  }
  return out;
}

}  // namespace mivo_solve
