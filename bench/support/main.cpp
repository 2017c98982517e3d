// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include "bench/support/measure.hpp"

namespace mivo::bench {
namespace {

bool quick = false;

struct TriadArrays {
  static constexpr double kScalar = 3.0;
  std::size_t size = static_cast<std::size_t>(sized(1L << 24, 1L << 10));
  Array<double> a{size};
  Array<double> b{size};
  Array<double> c{size};
};

TriadArrays& triadArrays() {
  static TriadArrays arrays;
  return arrays;
}

__attribute__((noinline)) void triad(std::size_t n, double s, double* __restrict a,
                                     const double* __restrict b, const double* __restrict c) {
  for (std::size_t i = 0; i < n; ++i) a[i] = b[i] + s * c[i];
}

}  // namespace

bool isQuick() { return quick; }

double triadSeconds() {
  TriadArrays& t = triadArrays();
  return secondsOf(
      [&] { triad(t.size, TriadArrays::kScalar, t.a.data(), t.b.data(), t.c.data()); });
}

double triadBytes() { return 3.0 * sizeof(double) * static_cast<double>(triadArrays().size); }

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
