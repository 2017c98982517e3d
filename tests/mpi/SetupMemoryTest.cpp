// SPDX-License-Identifier: Apache-2.0
// Bytes that a multigrid set-up asks for on a rank, against the number of ranks. A program of its
// own, since it replaces the allocation functions.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <new>
#include <numeric>
#include <vector>

#include "mivo/level_transfer/ruge_stuben/LevelTransferOps_RS.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "tests/support/amg.hpp"
#include "tests/support/ranks.hpp"

extern "C" {
int MPI_Comm_split(int comm, int color, int key, int* out);
int MPI_Comm_free(int* comm);
}

namespace {
std::size_t g_bytes = 0;
}  // namespace

void* operator new(std::size_t size) {
  g_bytes += size;
  if (void* p = std::malloc(size > 0 ? size : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

void* mivo::Device::rawMalloc(std::size_t bytes) const {
  using Allocate = void* (*)(const Device*, std::size_t);
  static const auto next =
      reinterpret_cast<Allocate>(dlsym(RTLD_NEXT, "_ZNK4mivo6Device9rawMallocEm"));
  g_bytes += bytes;
  return next(this, bytes);
}

namespace mivo::test {
namespace {

using Matrix = ParSparse<double>;
constexpr int kWidth = 50;
constexpr int kLines = 80;  // of a rank

/// The 5-point matrix on a grid of which each rank of the communicator has so many lines.
Matrix grid(int comm, const std::vector<int>& lines) {
  std::vector<long> offsets{0};
  for (const int count : lines) offsets.push_back(offsets.back() + kWidth * count);
  const auto part = partsAt<long>(offsets);
  Matrix A;
  A.create(part, part, {}, rankDevices().back(), comm);
  A.beginAssemble();
  long begin = 0, end = 0;
  A.getOwnerShipRange(&begin, &end);
  for (long i = begin; i < end; ++i) {
    const auto set = [&](bool inside, long j) {
      if (inside) A.setValue(i, j, j == i ? 4.0 : -1.0, SetValueMode::Set);
    };
    set(i >= kWidth, i - kWidth);
    set(i % kWidth > 0, i - 1);
    set(true, i);
    set(i % kWidth + 1 < kWidth, i + 1);
    set(i + kWidth < offsets.back(), i + kWidth);
  }
  A.endAssemble();
  return A;
}

/// Bytes that this rank asks for in interpolation from every other point and in products with A
/// and, if wanted, the prolongation, whose columns are cut evenly.
std::size_t levelBytes(int comm, const std::vector<int>& lines, bool coarsens) {
  using Ops = LevelTransferOps_RS<double, long, int>;
  auto A = grid(comm, lines);
  const auto diagonal = A.getDiag();
  A.prepareMatVec(false);
  ParMatrixT<int, long, int> marks;
  marks.create(A.getRowPartitioner(), Device(), comm);
  MatrixT<int, int> own = marks.getLocalMatrix(-1);
  for (int i = 0; i < own.getSize(); ++i) own.getData()[i] = i % 2 == 0 ? 1 : -1;
  marks = marks.toDevice(A.getDevice());

  const std::size_t before = g_bytes;
  ParCSRMatrixT<int, long, int> S;
  Ops::par_BoomerAMGStrength(A, diagonal, 0.25, 0.9, 1, S);
  long count = 0;
  Matrix P, C;
  Ops::par_BoomerAMGInterpolationExtendedPI(A, S, marks, 1, {}, 0, 4, count, false, P);
  Matrix::multiplyTriple(A, A, A, C);
  C = A.multiply(A);
  if (coarsens) {
    Matrix::multiplyTriple(P.transpose(), A, P, C);
    C = A.multiply(P);
  }
  return g_bytes - before;
}

std::size_t hierarchyBytes(int comm, const std::vector<int>& lines) {
  auto A = grid(comm, lines);
  const json smoother = smootherOf("SmootherJacobi");
  const auto amg =
      makeAmg<double>({{"level_transfer", {{"level_transfer_type", "LevelTransferBoomerAMG"}}},
                       {"pre_smoother", smoother},
                       {"post_smoother", smoother}});
  const std::size_t before = g_bytes;
  amg->setup(A);
  return g_bytes - before;
}

// The outer ranks have one neighbour each, on two ranks as on four.
TEST(SetupMemory, DoesNotGrowWithTheRanks) {
  const int rank = worldRank();
  const bool outer = rank == 0 || rank == worldSize() - 1;
  const std::vector<int> alike(4, kLines);
  int half = 0;
  MPI_Comm_split(kCommWorld, rank / 2, rank, &half);
  const std::size_t ofTwo = levelBytes(half, {kLines, kLines}, true);
  const std::size_t ofFour = levelBytes(kCommWorld, alike, true);
  // A few words for each list and each of the two further ranks, which have 8,000 rows together.
  if (outer) {
    EXPECT_LE(ofFour, ofTwo + 32 * 1024);
  }
  const std::size_t hierarchyOfTwo = hierarchyBytes(half, {kLines, kLines});
  const std::size_t hierarchyOfFour = hierarchyBytes(kCommWorld, alike);
  // Other levels below, since other points are chosen.
  if (outer) {
    EXPECT_LE(hierarchyOfFour, 1.03 * hierarchyOfTwo);
  }
  MPI_Comm_free(&half);

  // Nor with the rows of a rank that is no neighbour.
  const std::size_t even = levelBytes(kCommWorld, alike, false);
  const std::size_t uneven = levelBytes(kCommWorld, {kLines, kLines, kLines, 20 * kLines}, false);
  if (rank < 2) {
    EXPECT_LE(uneven, even);
  }
}

}  // namespace
}  // namespace mivo::test
