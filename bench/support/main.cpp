// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include "bench/support/measure.hpp"

namespace mivo::bench {
namespace {

bool quick = false;

Triad& triad() {
  static Triad shared(static_cast<std::size_t>(sized(1L << 24, 1L << 10)));
  return shared;
}

}  // namespace

bool isQuick() { return quick; }

double triadSeconds() {
  return secondsOf([] { triad().run(); });
}

double triadBytes() { return triad().bytes(); }

}  // namespace mivo::bench

int main(int argc, char** argv) {
  // Options of the benchmark library that suit these programs; those of the command line come later
  // and win.
  std::string program = argv[0];
  std::string tabular = "--benchmark_counters_tabular=true";
  std::string shortest = "--benchmark_min_time=0.000001";
  std::vector<char*> args = {program.data(), tabular.data()};
  for (int i = 1; i < argc; ++i) {
    if (std::string(argv[i]) == "--quick") {
      mivo::bench::quick = true;
      args.push_back(shortest.data());
    } else {
      args.push_back(argv[i]);
    }
  }
  int count = static_cast<int>(args.size());
  mivo::Device::initialize();
  mivo::bench::registerBenchmarks();
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;
  const std::size_t run = benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  mivo::Device::finalize();
  return run > 0 ? 0 : 1;
}
