// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sstream>
#include <string>

#include "mivo/utils/Utils.hpp"

namespace mivo::fuzz {

/// The first line that is no comment, as the readers find it. The reader of sparse matrices skips
/// empty lines as well.
inline std::string sizeLine(const std::string& text, bool skipEmpty) {
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (line.empty() ? !skipEmpty : line[0] != '%') return line;
  }
  return {};
}

/// An object read from the text.
template <class M>
M loaded(const std::string& text) {
  std::istringstream stream(text);
  M m;
  m.loadFromStream(stream);
  return m;
}

/// The object written with all digits and read again.
template <class M>
M reloaded(const M& m) {
  std::stringstream stream;
  m.saveToStream(stream, 17);
  return loaded<M>(stream.str());
}

}  // namespace mivo::fuzz
