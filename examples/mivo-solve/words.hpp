// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace mivo_solve {

/// Smallest number of insertions, deletions, replacements and swaps of neighbours that turn a into
/// b (optimal string alignment), regardless of case.
std::size_t editDistance(const std::string& a, const std::string& b);

/// The candidate that a user most likely meant: one that holds the word, or that the word holds, or
/// the nearest by edit distance. Empty when none is near.
std::string nearestWord(const std::string& word, const std::vector<std::string>& candidates);

/// ` "a", "b" or "c"` without the leading blank; `last` is the word before the last one.
std::string listInQuotes(const std::vector<std::string>& words, const std::string& last = "or");

/// The text with control characters as "\x1b", those of two bytes in UTF-8 included, so that a name
/// neither steers a terminal nor breaks a line.
std::string escaped(const std::string& text);

/// The word in double quotes, with control characters escaped and long texts cut.
std::string inQuotes(const std::string& word);

std::string lowerCase(std::string text);

}  // namespace mivo_solve
