// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "mivo/ops/BlasOps.hpp"
#include "mivo/ops/SpBlasOps.hpp"
#include "mivo/spm/parallel.hpp"
#include "tests/support/RandomCsr.hpp"
#include "tests/support/fatal.hpp"
#include "tests/support/printed.hpp"

// The space of a CUDA device, seen from inside an emulated one: 3 multiprocessors of 5 threads, in
// blocks of 4.
namespace mivo::spm {
namespace {

using cuda_emulation::Call;
using cuda_emulation::failNext;
using test::DeviceArray;
using test::printed;

constexpr int kThreads = 15;
constexpr int kPartials = 256;

const Device kFirst(Device::kCuda, 0);
const Device kSecond(Device::kCuda, 1);

const char* const kInvalid = "invalid argument";

/// The line of a failed call.
std::string failure(const std::string& call, const std::string& error, int line) {
  return "CUDA CHECK FAIL " + call + ", error " + error +
         " file /project/src/spm/impls/Cuda line " + std::to_string(line) + "\n";
}

class CudaSpace : public testing::Test {
 protected:
  void SetUp() override { Device::initialize(); }
  void TearDown() override {
    cuda_emulation::setDeviceCount(2);
    Device::finalize();
  }
  static std::shared_ptr<Cuda> space(const Device& device = kFirst) {
    device.setDeviceContext();
    return std::static_pointer_cast<Cuda>(device.getDeviceInfo().space);
  }
};

long globalThread() { return static_cast<long>(blockIdx.x) * blockDim.x + threadIdx.x; }

TEST_F(CudaSpace, ForStartsEveryThreadOfTheDeviceAndEachTakesEveryFifteenthIndex) {
  const auto cuda = space();
  for (const auto& [begin, end] : {std::pair<long, long>{0, 100}, {7, 60}, {-3, 2}, {4, 5}}) {
    std::vector<long> thread(static_cast<std::size_t>(end - begin), -1);
    parallel_for(RangePolicy<Cuda>(*cuda, begin, end), [&, first = begin](std::int64_t i) {
      auto& owner = thread[static_cast<std::size_t>(i - first)];
      EXPECT_EQ(owner, -1);
      owner = globalThread();
    });
    // Whole blocks, whatever the length of the range.
    EXPECT_EQ(cuda_emulation::threadsOfLastLaunch(), 16);
    for (std::size_t k = 0; k < thread.size(); ++k) {
      EXPECT_EQ(thread[k], static_cast<long>(k % kThreads));
    }
  }
}

TEST_F(CudaSpace, ReduceFoldsAtMost256PartialsOnOneThread) {
  const auto cuda = space();
  for (const long n : {3L, 256L, 257L, 1000L}) {
    const long begin = 5;
    const long parts = n < kPartials ? n : kPartials;
    const auto term = [](long i) { return 1.0 / static_cast<double>(i); };
    std::vector<double> partial(static_cast<std::size_t>(parts), 0.0);
    for (long k = 0; k < n; ++k) partial[static_cast<std::size_t>(k % parts)] += term(begin + k);
    double expected = partial[0];
    for (std::size_t p = 1; p < partial.size(); ++p) expected += partial[p];

    double result = -1;
    std::set<long> threads;
    parallel_reduce(
        RangePolicy<Cuda>(*cuda, begin, begin + n),
        [&](std::int64_t i, double& acc) {
          threads.insert(globalThread());
          acc += term(i);
        },
        Sum<double, Cuda>(result));
    EXPECT_EQ(result, expected) << n;
    EXPECT_EQ(static_cast<long>(threads.size()), parts);
    EXPECT_EQ(cuda_emulation::threadsOfLastLaunch(), 1);
  }
}

TEST_F(CudaSpace, EmptyRangesLaunchNothingAndReduceToTheIdentity) {
  const auto cuda = space();
  failNext(Call::MallocAsync, 1);
  for (const auto& [begin, end] : {std::pair<long, long>{4, 4}, {3, -2}}) {
    const RangePolicy<Cuda> range(*cuda, begin, end);
    parallel_for(range, [](std::int64_t) { FAIL(); });
    double sum = 9, low = 9, high = 9;
    const auto body = [](std::int64_t, double&) { FAIL(); };
    EXPECT_EQ(printed([&] {
                parallel_reduce(range, body, Sum<double, Cuda>(sum));
                parallel_reduce(range, body, Min<double, Cuda>(low));
                parallel_reduce(range, body, Max<double, Cuda>(high));
              }),
              "");
    EXPECT_EQ(sum, 0);
    EXPECT_EQ(low, std::numeric_limits<double>::max());
    EXPECT_EQ(high, 2.2250738585072014e-308);
  }
  failNext(Call::MallocAsync, 0);
}

TEST_F(CudaSpace, EachDeviceHasOneStreamThatItsSpaceOwns) {
  cuda_emulation::setDeviceCount(3);
  Device::finalize();
  Device::initialize();
  std::set<void*> streams;
  for (int i = 0; i < 3; ++i) {
    const Device device(Device::kCuda, i);
    const Device::DeviceInfo info = device.getDeviceInfo();
    const auto cuda = std::static_pointer_cast<Cuda>(info.space);
    ASSERT_NE(cuda, nullptr);
    EXPECT_EQ(info.stream, cuda->stream);
    EXPECT_TRUE(cuda->owns_stream);
    EXPECT_EQ(cuda->deviceId, i);
    EXPECT_EQ(cuda->prop.maxThreadsPerBlock, 4);
    device.setDeviceContext();
    EXPECT_EQ(device.getDeviceContext(), i);
    streams.insert(info.stream);
  }
  EXPECT_EQ(streams.size(), 3u);
  EXPECT_EQ(Device::getAllDevices().size(), 4u);
}

TEST_F(CudaSpace, FailedCallsPrintTheirLineAndTheWorkGoesOn) {
  const auto cuda = space();
  const RangePolicy<Cuda> range(*cuda, 0, 10);
  char stream[32];
  std::snprintf(stream, sizeof stream, "%p", static_cast<void*>(cuda->stream));
  const std::string freed = failure("cudaFreeAsync(partial_reduce, stream)", kInvalid, 155),
                    waited = failure("cudaStreamSynchronize(stream)", kInvalid, 156),
                    copied = failure(
                        "cudaMemcpyAsync(&op.value, partial_reduce, sizeof(ValT), "
                        "cudaMemcpyDeviceToHost, stream)",
                        kInvalid, 154),
                    refused =
                        failure("cudaMallocAsync(&partial_reduce, sizeof(ValT)*nPart, stream)",
                                "out of memory", 144) +
                        "cuda can not alloc memory for stream " + stream + "\n";
  for (const auto& [call, text, result] : {std::tuple(Call::FreeAsync, freed, 45L),
                                           {Call::StreamSynchronize, waited, 45L},
                                           {Call::MemcpyAsync, copied, -1L},
                                           {Call::MallocAsync, refused, -1L}}) {
    long sum = -1;
    const auto reduce = [&] {
      parallel_reduce(
          range, [](std::int64_t i, long& acc) { acc += i; }, Sum<long, Cuda>(sum));
    };
    failNext(call, 1);
    EXPECT_EQ(printed(reduce), text);
    EXPECT_EQ(sum, result);
    EXPECT_EQ(printed(reduce), "");
    EXPECT_EQ(sum, 45);
  }

  std::vector<int> seen(10);
  failNext(Call::StreamSynchronize, 1);
  EXPECT_EQ(printed([&] {
              parallel_for(range, [&](std::int64_t i) { seen[static_cast<std::size_t>(i)] += 1; });
            }),
            failure("cudaStreamSynchronize(stream)", kInvalid, 98));
  EXPECT_EQ(seen, std::vector<int>(10, 1));
}

TEST_F(CudaSpace, RefusedLaunchesAndMemoryAreSilent) {
  DeviceArray<double> x(kFirst, std::vector<double>{1, 2, 3});
  failNext(Call::Launch, 1);
  EXPECT_EQ(printed([&] { BlasOps<double, int>::fill(kFirst, 3, 7.0, x.data()); }), "");
  EXPECT_EQ(x.values(), (std::vector<double>{1, 2, 3}));
  BlasOps<double, int>::fill(kFirst, 3, 7.0, x.data());
  EXPECT_EQ(x.values(), (std::vector<double>{7, 7, 7}));

  failNext(Call::Malloc, 1);
  EXPECT_EQ(printed([] { EXPECT_EQ(kFirst.rawMalloc(8), nullptr); }), "");
}

TEST_F(CudaSpace, ASpaceWhoseDeviceCannotBeReadReportsItAndRunsNothing) {
  cudaStream_t stream = nullptr;
  ASSERT_EQ(cudaStreamCreate(&stream), cudaSuccess);
  std::unique_ptr<Cuda> cuda;
  failNext(Call::GetDevice, 1);
  failNext(Call::GetDeviceProperties, 1);
  EXPECT_EQ(
      printed([&] { cuda = std::make_unique<Cuda>(stream); }),
      failure("cudaGetDevice(&this->deviceId)", "no CUDA-capable device is detected", 23) +
          failure("cudaGetDeviceProperties(&prop, this->deviceId)", "invalid device ordinal", 24));
  int calls = 0;
  parallel_for(RangePolicy<Cuda>(*cuda, 0, 10), [&](std::int64_t) { ++calls; });
  EXPECT_EQ(calls, 0);
  failNext(Call::StreamDestroy, 1);
  EXPECT_EQ(printed([&] { cuda.reset(); }), failure("cudaStreamDestroy(stream)", kInvalid, 28));
  cudaStreamDestroy(stream);
}

TEST_F(CudaSpace, WithoutACountOfDevicesOnlyTheHostIsThere) {
  Device::finalize();
  failNext(Call::GetDeviceCount, 1);
  Device::initialize();
  EXPECT_EQ(Device::getDeviceInfoMap().size(), 1u);
  EXPECT_EQ(printed([] { EXPECT_EQ(kFirst.getDeviceInfo().space, nullptr); }),
            "can not get dev info for: cuda\n");
  failNext(Call::GetDeviceCount, 1);
  EXPECT_EQ(Device::getAllDevices(), std::vector<Device>{Device()});
}

using CudaMemory = CudaSpace;

TEST_F(CudaMemory, IsOutOfReachOfTheHost) {
  DeviceArray<int> x(kFirst, std::vector<int>{1, 2, 3});
  const volatile int* p = x.data();
  EXPECT_EXIT(std::exit(p[1]), testing::KilledBySignal(SIGSEGV), "");
  EXPECT_EXIT(x.data()[1] = 5, testing::KilledBySignal(SIGSEGV), "");
  // Running a kernel on one device opens nothing of the other one.
  const auto read = [&] {
    parallel_for(RangePolicy<Cuda>(*space(kSecond), 0, 1), [&](std::int64_t i) { (void)p[i]; });
  };
  EXPECT_EXIT(read(), testing::KilledBySignal(SIGSEGV), "");
}

TEST_F(CudaMemory, KernelsRefusePointersOfAnotherPlace) {
  using Blas = BlasOps<double, int>;
  using SpBlas = SpBlasOps<double, int>;
  const std::vector<double> ones(3, 1.0);
  std::vector<double> host = ones;
  DeviceArray<double> first(kFirst, ones), second(kSecond, ones);
  const std::string text = "a kernel on ", got = " got a pointer into ";
  MIVO_EXPECT_FATAL_TEXT(Blas::axpy(kFirst, 3, 2.0, first.data(), host.data()),
                         text + "cuda:0" + got + "host memory");
  MIVO_EXPECT_FATAL_TEXT(Blas::dot(kSecond, 3, second.data(), first.data()),
                         text + "cuda:1" + got + "cuda:0");
  MIVO_EXPECT_FATAL_TEXT(Blas::scal(Device(), 3, 2.0, first.data()),
                         text + "cpu:0" + got + "cuda:0");

  // Views, and tables of views in device memory.
  const auto a = test::HostCsr<double>::build(
      3, 3, [](int i, test::HostCsr<double>& out) { out.push(i, 2.0); });
  const test::DeviceCsr<double> on_first(kFirst, a);
  DeviceArray<int> counts(kFirst, std::vector<int>(3));
  auto view = on_first.view();
  SpBlas::get_row_element_count(kFirst, view, 3, counts.data());
  EXPECT_EQ(counts.values(), (std::vector<int>{1, 1, 1}));
  view.values = host.data();
  MIVO_EXPECT_FATAL_TEXT(SpBlas::get_row_element_count(kFirst, view, 3, counts.data()),
                         text + "cuda:0" + got + "host memory");

  auto block = on_first.blockView(0, 0);
  DeviceArray<double> diag(kFirst, std::vector<double>(3));
  const auto diagonal = [&] {
    DeviceArray<COT_SpMVCSRRawMat<double, int>> table(
        kFirst, std::vector<COT_SpMVCSRRawMat<double, int>>{on_first.blockView(0, 0), block});
    SpBlas::par_csr_diag(kFirst, 3, 2, table.data(), diag.data());
  };
  diagonal();
  block.x = host.data();
  MIVO_EXPECT_FATAL_TEXT(diagonal(), text + "cuda:0" + got + "host memory");
}

}  // namespace
}  // namespace mivo::spm
