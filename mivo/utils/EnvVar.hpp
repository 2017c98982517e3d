// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdlib>
#include <string>
#include <utility>

namespace mivo {

/// An environment variable with a default, read once at the first `get`; a later `setenv` has no
/// effect.
///
/// The text is read as a decimal number as far as it is one, so "abc" is 0. Any number of threads
/// may call `get`, the first time included: two that race read the same text.
template <class T>
class EnvVar {
 public:
  EnvVar(std::string variable, T defaultValue) : value(defaultValue), name(std::move(variable)) {}

  T get() {
    if (!loaded.load(std::memory_order_acquire)) {
      const char* text = std::getenv(name.c_str());
      if (text != nullptr) {
        value.store(static_cast<T>(std::strtol(text, nullptr, 10)), std::memory_order_relaxed);
      }
      loaded.store(true, std::memory_order_release);
    }
    return value.load(std::memory_order_relaxed);
  }

 private:
  std::atomic<bool> loaded{false};
  std::atomic<T> value;
  std::string name;
};

}  // namespace mivo
