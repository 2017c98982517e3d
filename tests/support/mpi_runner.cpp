// SPDX-License-Identifier: Apache-2.0
#include "tests/support/mpi_runner.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/communicator.hpp"

namespace {

/// Prints failures as they happen, so that they are seen even when the run hangs afterwards.
class FailurePrinter : public testing::EmptyTestEventListener {
 public:
  explicit FailurePrinter(int rank) : rank_(rank) {}
  void OnTestStart(const testing::TestInfo& test) override {
    test_ = std::string(test.test_suite_name()) + '.' + test.name();
  }
  // Asking GoogleTest for the running test here would wait for a lock that the caller holds.
  void OnTestPartResult(const testing::TestPartResult& result) override {
    if (!result.failed()) return;
    std::printf("[rank %d] %s\n%s:%d\n%s\n", rank_, test_.c_str(),
                result.file_name() ? result.file_name() : "-", result.line_number(),
                result.message());
    std::fflush(stdout);
  }

 private:
  std::string test_ = "-";
  int rank_;
};

}  // namespace

int mivo::test::runOnRanks(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  mivo::Device::initialize();
  int rank = 0;
  MPI_Comm_rank(mivo::kCommWorld, &rank);
  auto& listeners = testing::UnitTest::GetInstance()->listeners();
  if (rank != 0) delete listeners.Release(listeners.default_result_printer());
  listeners.Append(new FailurePrinter(rank));
  const int failed = RUN_ALL_TESTS();
  mivo::Device::finalize();
  return failed;
}
