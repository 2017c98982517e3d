// SPDX-License-Identifier: Apache-2.0
// Vector kernels on long arrays, each beside a plain loop with the same traffic.
#include <string>

#include "bench/ops/plain_loops.hpp"
#include "bench/support/measure.hpp"
#include "mivo/ops/BlasOps.hpp"

namespace mivo::bench {
namespace {

template <class T>
struct Arrays {
  int n = static_cast<int>(sized((1L << 27) / static_cast<long>(sizeof(T)), 1000));
  Array<T> x{static_cast<std::size_t>(n)};
  Array<T> y{static_cast<std::size_t>(n)};
  Array<T> z{static_cast<std::size_t>(n)};
  Array<T> w{static_cast<std::size_t>(n)};
  /// Bytes of `passes` reads or writes of an array.
  double bytes(double passes) const { return passes * n * static_cast<double>(sizeof(T)); }

  static Arrays& shared() {
    static Arrays arrays;
    return arrays;
  }
};

/// Registers a kernel and its loop; both take the arrays, `passes` counts arrays read or written.
template <class T, class Kernel, class Loop>
void addBoth(const std::string& name, double passes, Kernel kernel, Loop loop) {
  add(name, [=](benchmark::State& state) {
    Arrays<T>& v = Arrays<T>::shared();
    measureBeside(
        state, v.bytes(passes), [&] { kernel(v); }, [&] { loop(v); });
  });
}

/// Scalars for which repeated updates neither grow nor vanish.
template <class T>
void addKernels(const std::string& type) {
  using Ops = BlasOps<T, int>;
  using R = RealType<T>;
  using V = Arrays<T>&;
  const Device d;
  const T a(R(0.5));
  const T b(R(0.25));
  const T half(R(0.5));
  const T one(R(-1));
  const auto name = [&](const char* kernel) { return std::string(kernel) + "<" + type + ">"; };

  addBoth<T>(
      name("fill"), 1, [=](V v) { Ops::fill(d, v.n, a, v.x.data()); },
      [=](V v) { plain::fill(v.n, a, v.x.data()); });
  addBoth<T>(
      name("scal"), 2, [=](V v) { Ops::scal(d, v.n, one, v.x.data()); },
      [=](V v) { plain::scal(v.n, one, v.x.data()); });
  addBoth<T>(
      name("copy"), 2, [=](V v) { Ops::copy(d, v.n, v.x.data(), v.y.data()); },
      [=](V v) { plain::copy(v.n, v.x.data(), v.y.data()); });
  addBoth<T>(
      name("axpy"), 3, [=](V v) { Ops::axpy(d, v.n, a, v.x.data(), v.y.data()); },
      [=](V v) { plain::axpy(v.n, a, v.x.data(), v.y.data()); });
  addBoth<T>(
      name("axpby"), 3, [=](V v) { Ops::axpby(d, v.n, a, v.x.data(), b, v.y.data()); },
      [=](V v) { plain::axpby(v.n, a, v.x.data(), b, v.y.data()); });
  addBoth<T>(
      name("axpbypz"), 4,
      [=](V v) { Ops::axpbypz(d, v.n, a, v.x.data(), b, v.y.data(), v.z.data()); },
      [=](V v) { plain::axpbypz(v.n, a, v.x.data(), b, v.y.data(), v.z.data()); });
  addBoth<T>(
      name("axpbypcz"), 4,
      [=](V v) { Ops::axpbypcz(d, v.n, a, v.x.data(), b, v.y.data(), half, v.z.data()); },
      [=](V v) { plain::axpbypcz(v.n, a, v.x.data(), b, v.y.data(), half, v.z.data()); });
  addBoth<T>(
      name("axypbz"), 4,
      [=](V v) { Ops::axypbz(d, v.n, a, v.x.data(), v.y.data(), half, v.z.data()); },
      [=](V v) { plain::axypbz(v.n, a, v.x.data(), v.y.data(), half, v.z.data()); });
  addBoth<T>(
      name("reciprocal"), 2, [=](V v) { Ops::reciprocal(d, v.n, a, v.w.data()); },
      [=](V v) { plain::reciprocal(v.n, a, v.w.data()); });
  addBoth<T>(
      name("dot"), 2,
      [=](V v) { benchmark::DoNotOptimize(Ops::dot(d, v.n, v.x.data(), v.w.data())); },
      [=](V v) { benchmark::DoNotOptimize(plain::dot(v.n, v.x.data(), v.w.data())); });
  addBoth<T>(
      name("dotu"), 2,
      [=](V v) { benchmark::DoNotOptimize(Ops::dotu(d, v.n, v.x.data(), v.w.data())); },
      [=](V v) { benchmark::DoNotOptimize(plain::dotu(v.n, v.x.data(), v.w.data())); });
  addBoth<T>(
      name("abs_sum_p1"), 1,
      [=](V v) { benchmark::DoNotOptimize(Ops::abs_sum(d, v.n, v.w.data(), R(1))); },
      [=](V v) { benchmark::DoNotOptimize(plain::absSum(v.n, v.w.data())); });
  addBoth<T>(
      name("abs_sum_p2"), 1,
      [=](V v) { benchmark::DoNotOptimize(Ops::abs_sum(d, v.n, v.w.data(), R(2))); },
      [=](V v) { benchmark::DoNotOptimize(plain::squareSum(v.n, v.w.data())); });
  addBoth<T>(
      name("abs_max"), 1, [=](V v) { benchmark::DoNotOptimize(Ops::abs_max(d, v.n, v.w.data())); },
      [=](V v) { benchmark::DoNotOptimize(plain::absMax(v.n, v.w.data())); });
  addBoth<T>(
      name("sum"), 1,
      [=](V v) {
        T sum;
        Ops::min_max_sum(d, v.n, v.w.data(), nullptr, nullptr, &sum);
        benchmark::DoNotOptimize(sum);
      },
      [=](V v) { benchmark::DoNotOptimize(plain::sum(v.n, v.w.data())); });
  addBoth<T>(
      name("count_nonzero"), 1,
      [=](V v) {
        int count = 0;
        Ops::get_nonzero_indices(d, v.n, v.w.data(), nullptr, &count);
        benchmark::DoNotOptimize(count);
      },
      [=](V v) { benchmark::DoNotOptimize(plain::countNonZero(v.n, v.w.data())); });
  addBoth<T>(
      name("get_real"), kIsComplex<T> ? 1.5 : 2.0,
      [=](V v) { Ops::get_real(d, v.n, v.w.data(), reinterpret_cast<R*>(v.y.data())); },
      [=](V v) { plain::realPart(v.n, v.w.data(), reinterpret_cast<R*>(v.y.data())); });
}

/// Kernels bound by arithmetic, without a loop beside them.
void addHeavyKernels() {
  using Ops = BlasOps<double, int>;
  const Device d;
  add("pow<double>", [=](benchmark::State& state) {
    auto& v = Arrays<double>::shared();
    measure(state, v.bytes(2), [&] { Ops::pow(d, v.n, 1.0, v.w.data()); });
  });
  add("abs_sum_p3<double>", [=](benchmark::State& state) {
    auto& v = Arrays<double>::shared();
    measure(state, v.bytes(1),
            [&] { benchmark::DoNotOptimize(Ops::abs_sum(d, v.n, v.w.data(), 3.0)); });
  });
  add("adamw_step<double>", [=](benchmark::State& state) {
    auto& v = Arrays<double>::shared();
    Array<double> vmax(static_cast<std::size_t>(v.n));
    measure(state, v.bytes(7), [&] {
      Ops::adamw_step(d, v.n, v.w.data(), v.x.data(), v.y.data(), v.z.data(), vmax.data(), 1e-3,
                      0.9, 0.999, 1e-8, 1e-2, 0, 10);
    });
  });
}

}  // namespace

void registerBenchmarks() {
  addKernels<double>("double");
  addKernels<float>("float");
  addKernels<Complex<double>>("Complex<double>");
  addHeavyKernels();
}

}  // namespace mivo::bench
