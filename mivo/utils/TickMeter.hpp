// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "mivo/utils/export.hpp"

namespace mivo {

/// Monotonic clock in nanoseconds.
MIVO_API std::uint64_t getTickCount();
/// Ticks per second: 1e9.
MIVO_API double getTickFrequency();

/// Sums the time between pairs of `start` and `stop`.
class MIVO_API TickMeter {
 public:
  /// Begins an interval; one that is already running begins anew.
  void start();
  /// Ends the interval and adds it to the sum; does nothing when none is running.
  void stop();

  /// Finished intervals
  std::uint64_t getCount() const { return count; }
  /// Ticks of all finished intervals
  std::uint64_t getTicks() const { return ticks; }
  /// Seconds of all finished intervals
  double getTimeSec() const { return static_cast<double>(ticks) / getTickFrequency(); }

 private:
  std::uint64_t count = 0;
  std::uint64_t ticks = 0;
  std::uint64_t started = 0;  ///< tick of the last start, 0 when stopped
};

}  // namespace mivo
