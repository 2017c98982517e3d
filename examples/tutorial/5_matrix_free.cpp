// SPDX-License-Identifier: Apache-2.0

// Step 5: an operator without a matrix.
//
// The plate of step 2 without its inclusion. The product is computed from the law of conduction, so
// that only vectors are stored. On one rank and in host memory.
//
// Sample runs, the first with the iterations of step 2:
//   $ ./5_matrix_free 100
//   converged: 10000 unknowns, 186 iterations
//   $ ./5_matrix_free 200
//   converged: 40000 unknowns, 369 iterations

#include "report.hpp"

using Vector = mivo::ParMatrixT<double, long, int>;
using Solver = mivo::ParSolverT<double, long, int>;

class Plate : public mivo::ParMatrixFreeT<double, long, int> {
 public:
  explicit Plate(long cells) : n(cells) {}
  int getComm() const override { return mivo::kCommSelf; }
  mivo::Device getDevice() const override { return mivo::Device(); }
  long getRows() const override { return n * n; }
  long getCols() const override { return n * n; }

  /// y = alpha A x + beta y; y is not read when beta is 0
  void aAxpby(double alpha, const Vector& x, double beta, Vector& y, AsyncMatVecObject*) override {
    const double* from = x.getLocalMatrix().getData();
    double* to = y.getLocalMatrix().getData();
    for (long i = 0; i < n * n; ++i) {
      const long column = i % n, row = i / n;
      double flow = column > 0 ? from[i] - from[i - 1] : 2 * from[i];
      flow += column < n - 1 ? from[i] - from[i + 1] : 2 * from[i];
      flow += row > 0 ? from[i] - from[i - n] : 2 * from[i];
      flow += row < n - 1 ? from[i] - from[i + n] : 2 * from[i];
      to[i] = beta == 0 ? alpha * flow : alpha * flow + beta * to[i];
    }
  }

 private:
  long n;
};

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: 5_matrix_free CELLS\n";
    return 1;
  }
  mivo::Device::initialize();
  Plate A(std::stol(argv[1]));
  Vector b(A.getRows(), A.getDevice(), A.getComm()), x(A.getRows(), A.getDevice(), A.getComm());
  b.fill(1.0);
  x.fill(0.0);
  // Without a "preconditioner" it is the identity, which needs no set-up.
  const auto solver = Solver::getFactory().createInstance({{"solver_type", "SolverPCG"}});
  if (solver == nullptr) return 1;
  solver->setup(A);
  int iterations = 0;
  double residual = 0;
  solver->solve(A, b, x, iterations, residual);

  const bool converged = tutorial::report(*solver, A, b, x, iterations);
  mivo::Device::finalize();
  return converged ? 0 : 1;
}
