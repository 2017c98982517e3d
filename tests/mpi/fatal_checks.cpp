// SPDX-License-Identifier: Apache-2.0

// fatal_checks CASE: breaks one precondition, mostly on the last rank only, while the other ranks
// go on into a collective call or wait there. The job must end with the message, at once.

#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <string>

#include "mivo/mat/assembly/RowMessages.hpp"
#include "mivo/precond/ParSmootherSOR.hpp"
#include "tests/support/ranks.hpp"

namespace {

using mivo::Device;
using mivo::kCommWorld;
using mivo::SetValueMode;
using mivo::test::worldRank;
using mivo::test::worldSize;
using Matrix = mivo::ParCSRMatrixT<double, long, int>;
using Vector = mivo::ParMatrixT<double, long, int>;

bool last() { return worldRank() == worldSize() - 1; }

Matrix identity(long n) {
  Matrix A;
  A.create(n, n, Device());
  A.beginAssemble();
  for (long i = 0; i < n && worldRank() == 0; ++i) A.setValue(i, i, 1.0, SetValueMode::Set);
  A.endAssemble();
  return A;
}

const std::map<std::string, std::function<void()>> kCases = {
    {"create_seq", [] { Matrix().createSeq(mivo::CSRMatrixT<double, int>(), kCommWorld); }},
    {"vector_create_seq", [] { Vector().createSeq(mivo::MatrixT<double, int>(), kCommWorld); }},
    {"foreign_row",
     [] {
       Matrix A;
       A.create(4, 4, Device());
       A.beginAssemble();
       if (last()) A.setValue(4, 0, 1.0, SetValueMode::Set);
       A.endAssemble();
     }},
    {"shape_on_one_rank",
     [] {
       Matrix A = identity(6);
       Vector x(last() ? 5 : 6, Device()), y(6, Device());
       A.aAxpby(1.0, x, 0.0, y, nullptr);
     }},
    {"sweep_of_two_columns",
     [] {
       mivo::ParSmootherSOR_T<double, long, int> sor;
       sor.setup(identity(6));
       Vector b(6, 2, Device()), x(6, 2, Device());
       b.fill(1);
       sor.precondition(b, x);
     }},
    {"bad_file",
     [] {
       const std::string name = "fatal_checks_" + std::to_string(worldSize()) + ".mtx";
       if (worldRank() == 0) {
         std::ofstream(name) << "%%MatrixMarket matrix array real general\n-1 1\n";
       }
       MPI_Barrier(kCommWorld);
       Vector x;
       x.loadFromFile(name, Device());
     }},
    {"too_large_message",
     [] {
       mivo::RowMessages<double, long> messages(kCommWorld);
       if (last()) messages.announce(0, std::size_t(1) << 30);
       messages.open();
       messages.exchange();
     }},
};

}  // namespace

int main(int argc, char** argv) {
  Device::initialize();
  const auto chosen = argc == 2 ? kCases.find(argv[1]) : kCases.end();
  if (chosen == kCases.end()) {
    std::printf("no such case\n");
    return 3;
  }
  chosen->second();
  MPI_Barrier(kCommWorld);
  std::printf("rank %d went on\n", worldRank());
  Device::finalize();
  return 0;
}
