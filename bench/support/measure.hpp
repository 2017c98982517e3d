// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <benchmark/benchmark.h>
#include <time.h>

#include <string>
#include <vector>

#include "bench/support/array.hpp"
#include "bench/support/median.hpp"

namespace mivo::bench {

/// Set by --quick: sizes so small that every benchmark ends at once, to see that it works.
bool isQuick();

/// A size of the full run, or of the quick one.
inline long sized(long full, long quick) { return isQuick() ? quick : full; }

/// Processor time of this thread, page faults included: other programs on the machine do not count,
/// as far as they leave caches and memory alone.
inline double now() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

template <class F>
double secondsOf(const F& f) {
  const double start = now();
  f();
  benchmark::ClobberMemory();
  return now() - start;
}

/// One pass of the triad: seconds, and its bytes.
double triadSeconds();
double triadBytes();

/// What stands beside a figure: the least bytes that must move, the bandwidth they imply, and its
/// ratio to that of the triad timed between the passes.
inline void report(benchmark::State& state, double bytes, const std::vector<double>& seconds,
                   const std::vector<double>& triad) {
  const double bandwidth = bytes / median(seconds) / 1e9;
  const double triadBandwidth = triadBytes() / median(triad) / 1e9;
  state.counters["ms"] = median(seconds) * 1e3;
  state.counters["MB"] = bytes / 1e6;
  state.counters["GB/s"] = bandwidth;
  state.counters["triad_GB/s"] = triadBandwidth;
  state.counters["vs_triad"] = bandwidth / triadBandwidth;
}

/// Times `kernel` and the triad in turn, so that a disturbed machine disturbs both. All figures are
/// medians.
template <class Kernel>
void measure(benchmark::State& state, double bytes, const Kernel& kernel) {
  std::vector<double> seconds;
  std::vector<double> triad;
  kernel();
  for (auto _ : state) {
    seconds.push_back(secondsOf(kernel));
    triad.push_back(triadSeconds());
    state.SetIterationTime(seconds.back());
  }
  report(state, bytes, seconds, triad);
}

/// The same beside a plain loop that does the same work; "vs_loop" above 1 means faster than the
/// loop.
template <class Kernel, class Loop>
void measureBeside(benchmark::State& state, double bytes, const Kernel& kernel, const Loop& loop) {
  std::vector<double> seconds;
  std::vector<double> plain;
  std::vector<double> triad;
  kernel();
  loop();
  for (auto _ : state) {
    seconds.push_back(secondsOf(kernel));
    plain.push_back(secondsOf(loop));
    triad.push_back(triadSeconds());
    state.SetIterationTime(seconds.back());
  }
  report(state, bytes, seconds, triad);
  state.counters["vs_loop"] = median(plain) / median(seconds);
}

/// Registers a benchmark under `name` that the functions above drive.
template <class F>
benchmark::internal::Benchmark* add(const std::string& name, F f) {
  return benchmark::RegisterBenchmark(name.c_str(), f)
      ->UseManualTime()
      ->Unit(benchmark::kMillisecond);
}

/// Implemented by each program: registers its benchmarks.
void registerBenchmarks();

}  // namespace mivo::bench
