// SPDX-License-Identifier: Apache-2.0

// Loops, reducers, the workers of the kernel families on a space of three chunks, and what else
// callers write of the kernels, like names.cpp.

#include <cstdio>
#include <mivo/mivo.hpp>
#include <mivo/ops/BlasOpsImpl.hpp>
#include <mivo/ops/MatOpsImpl.hpp>
#include <mivo/ops/MixedBlasOpsImpl.hpp>
#include <mivo/ops/SpBlasOpsImpl.hpp>
#include <type_traits>
#include <vector>

#include "kernel_calls.hpp"

namespace {

using namespace mivo;

int failures = 0;

void expectAt(bool ok, int line) {
  if (ok) return;
  std::printf("names_kernels.cpp:%d does not hold\n", line);
  ++failures;
}
#define EXPECT(condition) expectAt(condition, __LINE__)

template <class T>
void reducers() {
  const spm::OpenMP constant(3);
  spm::OpenMP space(3), braced{3};
  const T x[4] = {T(1), T(4), T(2), T(3)};
  const auto add = [&](long i, T& acc) { acc += x[i]; };
  T sum, min, max;
  const spm::RangePolicy<spm::OpenMP> policy(space, 0, 4, -1);
  spm::parallel_reduce(policy, add, spm::Sum<T, spm::OpenMP>(sum, T(0)));
  spm::parallel_reduce(
      policy,
      [&](long i, T& acc) {
        if (acc > x[i]) acc = x[i];
      },
      spm::Min<T, spm::OpenMP>(min, T(9)));
  spm::parallel_reduce(
      policy,
      [&](long i, T& acc) {
        if (x[i] > acc) acc = x[i];
      },
      spm::Max<T, spm::OpenMP>(max, T(0)));
  EXPECT(sum == T(10) && min == T(1) && max == T(4) && braced.threads == 3);
  spm::parallel_reduce<spm::OpenMP>(policy, add, spm::Sum<T, spm::OpenMP>(sum, T(1)));
  static_assert(std::is_same_v<typename spm::Sum<T, spm::OpenMP>::value_type, T>);
  EXPECT(sum == T(13) && policy.begin == 0 && policy.end == 4 && policy.chunk == -1);
  int calls = 0;
  const auto count = [&](int) { ++calls; };
  spm::parallel_for(spm::RangePolicy(constant, 0, 4, -1), count);
  spm::parallel_for(spm::RangePolicy<spm::OpenMP>(space, 0, 4, -1), count);
  spm::parallel_for<spm::OpenMP>(policy, count);
  EXPECT(calls == 12 && policy.space.threads == 3);
}

template <class T, class I>
void workers() {
  spm::OpenMP s{3};
  EXPECT((vectorKernels<T, I, BlasOpsImpl<T, I, spm::OpenMP>>(s)));
  EXPECT((denseKernels<T, I, MatOpsImpl<T, I, MatrixLayoutRowMajor, spm::OpenMP>>(s)));
  EXPECT((denseKernels<T, I, MatOpsImpl<T, I, MatrixLayoutColMajor, spm::OpenMP>>(s)));
  EXPECT((sparseKernels<T, I, SpBlasOpsImpl<T, I, spm::OpenMP>>(s)));
}

template <class T>
void workersOf() {
  workers<T, int>(), workers<T, long>();
}

template <class To, class From>
void mixed() {
  spm::OpenMP s{3};
  EXPECT((mixedKernels<To, From, int, MixedBlasOpsImpl<To, From, int, spm::OpenMP>>(s)));
  EXPECT((mixedKernels<To, From, long, MixedBlasOpsImpl<To, From, long, spm::OpenMP>>(s)));
}

template <class T>
void coarsening() {
  using Ops = SpLevelTransferOps<T, long, int>;
  const Device d(0, 0);
  const int aggr[2] = {0, -1};
  int ptr[3], col[2] = {0, 1}, n = 2;
  T val[2];
  Ops::csr_tentative_prolongation(d, n, 1, aggr, ptr, nullptr, nullptr);
  Ops::csr_tentative_prolongation(d, n, 1, aggr, ptr, col, val);
  EXPECT(ptr[1] == 1 && ptr[2] == 1 && col[0] == 0 && val[0] == T(1));
  val[0] = T(1), val[1] = T(-2), col[0] = 0, col[1] = 1;
  Ops::hypre_qsort2_abs(col, val, 0, 1);
  EXPECT(col[0] == 1 && val[0] == T(-2));
}

}  // namespace

int main() {
  Device::initialize();
  EXPECT(spm::gs_spm_init);
  reducers<int>(), reducers<long>(), reducers<float>(), reducers<double>();
  workersOf<int>(), workersOf<long>(), workersOf<float>(), workersOf<double>();
  workersOf<Complex<float>>(), workersOf<Complex<double>>();
  mixed<double, float>(), mixed<float, double>(), mixed<double, int>(), mixed<float, int>();
  mixed<int, double>(), mixed<int, float>(), mixed<Complex<double>, Complex<float>>();
  mixed<Complex<float>, Complex<double>>(), mixed<Complex<double>, int>();
  mixed<Complex<float>, int>();
  coarsening<float>(), coarsening<double>(), coarsening<Complex<float>>(),
      coarsening<Complex<double>>();

  const std::vector<int> keys = {4, 2};
  int answers[2] = {};
  comu::map_reduce<int, int>(
      kCommWorld, 2ul, keys.data(), [](const int&) { return 0; },
      [](int, int, std::vector<std::vector<int>>& requests,
         std::vector<std::vector<int>>& replies) { replies = requests; },
      answers);
  EXPECT(answers[0] == 4 && answers[1] == 2);
  Device::finalize();
  std::printf("%d names of kernels do not hold\n", failures);
  return failures == 0 ? 0 : 1;
}
