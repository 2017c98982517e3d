// SPDX-License-Identifier: Apache-2.0
#include "mivo/utils/TickMeter.hpp"

#include <time.h>

namespace mivo {

std::uint64_t getTickCount() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000000000u +
         static_cast<std::uint64_t>(now.tv_nsec);
}

double getTickFrequency() { return 1e9; }

void TickMeter::start() { started = getTickCount(); }

void TickMeter::stop() {
  if (started == 0) return;
  ticks += getTickCount() - started;
  ++count;
  started = 0;
}

}  // namespace mivo
