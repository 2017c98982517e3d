// SPDX-License-Identifier: Apache-2.0
#include "configuration.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "input_error.hpp"
#include "words.hpp"

namespace mivo_solve {
namespace {

constexpr std::size_t kMaxConfigurationBytes = std::size_t(16) << 20;
constexpr int kMaxDepth = 64;

/// Input iterator that leaves behind how far the parser has read, which its callback is not told.
struct TrackingIterator {
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  const char* at;
  const char** furthest;

  reference operator*() const { return *at; }
  TrackingIterator& operator++() {
    ++at;
    *furthest = at;
    return *this;
  }
  TrackingIterator operator++(int) {
    TrackingIterator old = *this;
    ++*this;
    return old;
  }
  bool operator==(const TrackingIterator& other) const { return at == other.at; }
  bool operator!=(const TrackingIterator& other) const { return at != other.at; }
};

struct Place {
  std::size_t line;
  std::size_t column;
  std::string text;  ///< the line itself
};

/// Where the byte with index `offset` stands; lines and columns count from 1.
Place placeOf(const std::string& text, std::size_t offset) {
  offset = std::min(offset, text.size());
  const auto begin = text.begin();
  const auto at = begin + static_cast<std::ptrdiff_t>(offset);
  const std::size_t line = static_cast<std::size_t>(std::count(begin, at, '\n')) + 1;
  const std::size_t before = offset == 0 ? std::string::npos : text.rfind('\n', offset - 1);
  const std::size_t start = before == std::string::npos ? 0 : before + 1;
  const std::size_t end = std::min(text.find('\n', offset), text.size());
  return {line, offset - start + 1, text.substr(start, end - start)};
}

std::string describePlace(const std::string& source, const Place& place) {
  return escaped(source) + ": line " + std::to_string(place.line) + ", column " +
         std::to_string(place.column) + ": ";
}

/// The line with a mark below the column, when it is short enough to show.
std::string excerpt(const Place& place) {
  if (place.text.size() > 120 || place.text.find_first_not_of(" \t\r") == std::string::npos) {
    return {};
  }
  std::string mark;
  for (std::size_t i = 0; i + 1 < place.column; ++i) {
    mark += i < place.text.size() && place.text[i] == '\t' ? '\t' : ' ';
  }
  std::string line = place.text;
  // One byte for one, so that the mark stays below its column; c2 begins the control characters of
  // two bytes.
  for (std::size_t i = 0; i < line.size(); ++i) {
    const auto byte = static_cast<unsigned char>(line[i]);
    const auto next = static_cast<unsigned char>(i + 1 < line.size() ? line[i + 1] : ' ');
    const bool control =
        byte < 0x20 || byte == 0x7f || (byte == 0xc2 && next >= 0x80 && next < 0xa0);
    if (byte != '\t' && control) line[i] = '?';
  }
  return "\n    " + line + "\n    " + mark + "^";
}

/// Follows the parser through the document and notes the keys of each open object.
class DuplicateFinder {
 public:
  /// Pointer of the key, or an empty text when the key is new.
  std::string key(const std::string& name) {
    Level& level = levels_.back();
    level.current = name;
    return level.keys.insert(name).second ? std::string() : pointer();
  }
  void open(bool isObject) {
    if (static_cast<int>(levels_.size()) >= kMaxDepth) {
      throw InputError("objects and arrays are nested more than " + std::to_string(kMaxDepth) +
                       " deep");
    }
    levels_.push_back({isObject, {}, {}, 0});
  }
  void close() {
    levels_.pop_back();
    value();
  }
  void value() {
    if (!levels_.empty()) {
      ++levels_.back().index;
    }
  }

 private:
  struct Level {
    bool isObject;
    std::set<std::string> keys;
    std::string current;
    std::size_t index;
  };

  std::string pointer() const {
    json::json_pointer path;
    for (const Level& level : levels_) {
      path /= level.isObject ? level.current : std::to_string(level.index);
    }
    return path.to_string();
  }

  std::vector<Level> levels_;
};

/// Message of the JSON library without its own prefix and position.
std::string parseReason(const std::string& what) {
  std::string reason = what;
  for (const std::string& prefix :
       {std::string("] "), std::string(": syntax error while parsing ")}) {
    const std::size_t at = reason.find(prefix);
    reason = at == std::string::npos ? reason : reason.substr(at + prefix.size());
  }
  return reason;
}

}  // namespace

std::string readTextFile(const std::string& path, const std::string& what, std::size_t maxBytes) {
  namespace fs = std::filesystem;
  const std::string name = escaped(path);
  std::error_code code;
  const fs::file_status status = fs::status(path, code);
  if (!fs::exists(status)) {
    throw InputError(name + ": " + what + " file not found" +
                     (code && code.value() != ENOENT ? " (" + code.message() + ")" : ""));
  }
  if (fs::is_directory(status)) {
    throw InputError(name + ": is a directory, where a " + what + " file is expected");
  }
  if (!fs::is_regular_file(status)) {
    throw InputError(name + ": is no regular file");
  }
  const std::uintmax_t bytes = fs::file_size(path, code);
  if (code || bytes > maxBytes) {
    throw InputError(name + ": " + what + " file is larger than " + std::to_string(maxBytes) +
                     " bytes");
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw InputError(name + ": cannot be opened: " + std::strerror(errno));
  }
  std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
    throw InputError(name + ": " + what + " file is empty");
  }
  return text;
}

std::string shortText(const json& value) {
  constexpr std::size_t kLongest = 60;
  const std::string text = value.dump(-1, ' ', true, json::error_handler_t::replace);
  return text.size() > kLongest ? text.substr(0, kLongest) + "..." : text;
}

json parseJson(const std::string& text, const std::string& source) {
  const char* furthest = text.data();
  DuplicateFinder duplicates;
  auto follow = [&](int, json::parse_event_t event, json& parsed) {
    switch (event) {
      case json::parse_event_t::object_start:
        duplicates.open(true);
        break;
      case json::parse_event_t::array_start:
        duplicates.open(false);
        break;
      case json::parse_event_t::object_end:
      case json::parse_event_t::array_end:
        duplicates.close();
        break;
      case json::parse_event_t::value:
        duplicates.value();
        break;
      case json::parse_event_t::key: {
        const std::string name = parsed.get<std::string>();
        const std::string pointer = duplicates.key(name);
        if (!pointer.empty()) {
          const auto end = static_cast<std::size_t>(furthest - text.data());
          const std::size_t start = text.rfind('"', end >= 2 ? end - 2 : 0);
          const Place place = placeOf(text, start == std::string::npos ? end : start);
          throw InputError(describePlace(source, place) + "the key " + inQuotes(name) +
                           " stands twice in one object (" + escaped(pointer) + ")" +
                           excerpt(place));
        }
        break;
      }
    }
    return true;
  };
  try {
    return json::parse(TrackingIterator{text.data(), &furthest},
                       TrackingIterator{text.data() + text.size(), &furthest}, follow);
  } catch (const json::parse_error& error) {
    const Place place = placeOf(text, error.byte > 0 ? error.byte - 1 : 0);
    throw InputError(describePlace(source, place) + "not valid JSON, in " +
                     parseReason(error.what()) + excerpt(place));
  } catch (const json::exception& error) {
    const Place place = placeOf(text, static_cast<std::size_t>(furthest - text.data()));
    throw InputError(describePlace(source, place) + parseReason(error.what()) + excerpt(place));
  }
}

void applyOverride(json& configuration, const std::string& assignment) {
  const std::string source = "--set " + escaped(assignment);
  const std::size_t equals = assignment.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw InputError(source + ": expected path.to.key=value");
  }
  json* node = &configuration;
  std::string walked;
  for (std::size_t begin = 0; begin <= equals;) {
    const std::size_t end = std::min(assignment.find('.', begin), equals);
    const std::string word = assignment.substr(begin, end - begin);
    if (word.empty()) {
      throw InputError(source + ": the path has an empty part");
    }
    if (node->is_null()) {
      *node = json::object();
    }
    if (node->is_object()) {
      node = &(*node)[word];
    } else if (node->is_array()) {
      const bool digits =
          word.size() < 10 && word.find_first_not_of("0123456789") == std::string::npos;
      if (!digits || std::stoul(word) >= node->size()) {
        throw InputError(source + ": " + inQuotes(walked) + " is an array of " +
                         std::to_string(node->size()) + " elements, which has no element " +
                         inQuotes(word));
      }
      node = &(*node)[std::stoul(word)];
    } else {
      throw InputError(source + ": " + inQuotes(walked) + " is the value " + shortText(*node) +
                       " and has no key " + inQuotes(word));
    }
    walked += (walked.empty() ? "" : ".") + word;
    begin = end + 1;
  }
  const std::string value = assignment.substr(equals + 1);
  if (!value.empty() && std::string("{[\"").find(value[0]) != std::string::npos) {
    *node = parseJson(value, source);
  } else {
    // Whatever is no JSON value is a text, so that names need no quotes on the command line.
    try {
      *node = json::parse(value);
    } catch (const json::exception&) {
      *node = value;
    }
  }
}

json loadConfiguration(const std::string& path, const std::vector<std::string>& overrides) {
  const std::string text = readTextFile(path, "configuration", kMaxConfigurationBytes);
  const std::string name = escaped(path);
  json configuration;
  try {
    configuration = parseJson(text, path);
  } catch (const InputError& error) {
    const std::string message = error.what();
    throw InputError(message.compare(0, name.size(), name) == 0 ? message : name + ": " + message);
  }
  if (!configuration.is_object()) {
    throw InputError(name +
                     ": the configuration must be an object with the keys \"testcase\" and " +
                     "\"solver\", found " + shortText(configuration));
  }
  for (const std::string& assignment : overrides) {
    applyOverride(configuration, assignment);
  }
  return configuration;
}

}  // namespace mivo_solve
