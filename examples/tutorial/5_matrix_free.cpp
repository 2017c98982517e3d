// SPDX-License-Identifier: Apache-2.0

// Step 5: an operator without a matrix.
//
// The five-point Laplacian on N x N points, zero around them, is applied from its formula: only
// vectors are stored. This one works on one rank and in host memory. Preconditioners that need
// entries cannot serve it; conjugate gradients run without.
//
// Sample runs:
//   $ 5_matrix_free 50
//   converged: 2500 unknowns, 93 iterations
//   $ 5_matrix_free 100
//   converged: 10000 unknowns, 187 iterations

#include "report.hpp"

class Laplacian : public tutorial::Operator {
 public:
  explicit Laplacian(long points) : n(points) {}
  int getComm() const override { return mivo::kCommWorld; }
  mivo::Device getDevice() const override { return mivo::Device(); }
  long getRows() const override { return n * n; }
  long getCols() const override { return n * n; }

  /// y = alpha A x + beta y; y is not read when beta is 0
  void aAxpby(double alpha, const tutorial::Vector& x, double beta, tutorial::Vector& y,
              AsyncMatVecObject*) override {
    const double* from = x.getLocalMatrix(-1).getData();
    double* to = y.getLocalMatrix(-1).getData();
    for (long i = 0; i < n * n; ++i) {
      double sum = 4 * from[i];
      if (i % n > 0) sum -= from[i - 1];
      if (i % n < n - 1) sum -= from[i + 1];
      if (i >= n) sum -= from[i - n];
      if (i < n * n - n) sum -= from[i + n];
      to[i] = beta == 0 ? alpha * sum : alpha * sum + beta * to[i];
    }
  }

 private:
  long n;
};

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: 5_matrix_free POINTS\n";
    return 1;
  }
  mivo::Device::initialize();
  Laplacian A(std::stol(argv[1]));
  tutorial::Vector b(A.getRows(), mivo::Device()), x(A.getRows(), mivo::Device());
  b.fill(1.0);
  x.fill(0.0);
  tutorial::solveAndReport(A, b, x, {{"solver_type", "SolverPCG"}});
  mivo::Device::finalize();
}
