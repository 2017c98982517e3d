// SPDX-License-Identifier: Apache-2.0
// Writing and reading a coordinate file of five million entries with 17 digits each. The file stays
// in the page cache.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "bench/support/measure.hpp"
#include "bench/support/stencils.hpp"
#include "mivo/mat/CSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"

namespace mivo::bench {
namespace {

constexpr int kPerRow = 5;

/// Rows of five entries at random columns with normally distributed values.
CSRMatrixT<double, int> randomMatrix(int entries) {
  const int rows = entries / kPerRow;
  CSRMatrixT<double, int> m;
  m.create(rows, rows, rows * kPerRow, Device());
  std::mt19937_64 random(7);
  std::uniform_int_distribution<int> gap(1, rows / kPerRow);
  std::normal_distribution<double> value;
  for (int i = 0; i < rows; ++i) {
    m.getRowPtr()[i] = i * kPerRow;
    int col = -1;
    for (int k = 0; k < kPerRow; ++k) {
      col += gap(random);
      m.getColIdx()[i * kPerRow + k] = col;
      m.getValues()[i * kPerRow + k] = value(random);
    }
  }
  m.getRowPtr()[rows] = rows * kPerRow;
  return m;
}

/// The matrix, and a file of it that is removed at the end of the process.
struct Sample {
  CSRMatrixT<double, int> matrix = randomMatrix(static_cast<int>(sized(5000000, 500)));
  std::string name =
      (std::filesystem::temp_directory_path() / ("mivo-bench-" + std::to_string(getpid()) + ".mtx"))
          .string();
  double fileBytes = 0;

  Sample() {
    matrix.saveToFile(name, -1);
    fileBytes = static_cast<double>(std::filesystem::file_size(name));
  }
  ~Sample() { std::filesystem::remove(name); }
  static Sample& shared() {
    static Sample sample;
    return sample;
  }
};

/// Entries a second beside the usual figures, for which the file and the matrix count as moved
/// once.
template <class Work>
void addFileBenchmark(const std::string& name, const Work& work) {
  add(name, [work](benchmark::State& state) {
    Sample& sample = Sample::shared();
    std::vector<double> seconds;
    std::vector<double> triad;
    for (auto _ : state) {
      seconds.push_back(secondsOf([&] { work(sample); }));
      triad.push_back(triadSeconds());
      state.SetIterationTime(seconds.back());
    }
    report(state, sample.fileBytes + matrixBytes(sample.matrix), seconds, triad);
    state.counters["Mentries/s"] = sample.matrix.getNnz() / median(seconds) / 1e6;
  })->Iterations(sized(5, 1));
}

}  // namespace

void registerBenchmarks() {
  addFileBenchmark("write/CSRMatrixT::saveToFile",
                   [](Sample& sample) { sample.matrix.saveToFile(sample.name, -1); });
  addFileBenchmark("read/CSRMatrixT::loadFromStream", [](Sample& sample) {
    std::ifstream file(sample.name);
    CSRMatrixT<double, int> read;
    read.loadFromStream(file);
    if (read.getNnz() != sample.matrix.getNnz()) std::abort();
  });
  addFileBenchmark("read/ParCSRMatrixT::loadFromFile", [](Sample& sample) {
    ParCSRMatrixT<double, long, int> read;
    read.loadFromFile(sample.name, Device());
    if (read.getNnzs() != sample.matrix.getNnz()) std::abort();
  });
}

}  // namespace mivo::bench
