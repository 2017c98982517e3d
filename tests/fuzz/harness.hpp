// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

namespace mivo::fuzz {

/// To be called once before any target: starts the library, drops its output, and limits the size
/// of one allocation to kMostBytes, so that a text which promises too much is refused as it would
/// be on a machine that is full.
void startHarness();

constexpr std::size_t kMostBytes = std::size_t(1) << 29;

/// A count that the harness lets through: small enough to be worked on in no time, or so large that
/// the library gets no memory for it. What lies between is allowed and only takes long.
bool isQuick(double elements);

/// Runs `body`; false when a fatal check has ended it. Objects of the body are then lost.
bool survives(const std::function<void()>& body);

/// Aborts with the text unless the property holds.
void require(bool holds, const char* property);

/// A file in memory, for functions that take a path.
class MemoryFile {
 public:
  explicit MemoryFile(const std::string& content);
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  const std::string& path() const { return path_; }

 private:
  int descriptor_;
  std::string path_;
};

}  // namespace mivo::fuzz
