// SPDX-License-Identifier: Apache-2.0
#include "run.hpp"

#include <chrono>
#include <cmath>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>

#include "hierarchy.hpp"
#include "history.hpp"
#include "input_error.hpp"
#include "matrix_file.hpp"
#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/operators/ParPreconditioner.hpp"
#include "mivo/solver/ParSolver.hpp"
#include "mivo/testcase/TestCase.hpp"
#include "mivo/utils/Factory.hpp"
#include "ranks.hpp"
#include "words.hpp"

namespace mivo_solve {
namespace {

using mivo::Complex;
using mivo::Device;

/// Seconds since the object was made.
class Stopwatch {
 public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

/// One system in one value type, from test case to report.
template <class T>
class Run {
 public:
  using Matrix = mivo::ParCSRMatrixT<T, long, int>;
  using Vector = mivo::ParMatrixT<T, long, int>;
  using Solver = mivo::ParSolverT<T, long, int>;
  using TestCase = mivo::TestCaseT<T, long, int>;

  Run(const Problem& problem, const Options& options)
      : problem_(problem), options_(options), isRoot_(worldRank() == 0) {
    report_.ranks = worldSize();
    report_.notes = problem.notes;
    report_.profile = options.profile;
  }

  Report go() {
    generate();
    checkSystem();
    chooseStart();
    makeSolver();
    describe();
    if (mivo::ParMatrixT<T, long, int>::normL1(b_) == 0) {
      answerZero();
    } else {
      solve();
    }
    judge();
    saveSolution();
    return report_;
  }

 private:
  void generate() {
    json description = problem_.configuration.at("testcase");
    std::optional<ConvertedFile> converted;
    if (problem_.convert) {
      json& name = description["MatrixMarket_params"]["filename_A"];
      std::string path = name;
      onRoot([&] {
        converted.emplace(path, scanCoordinateFile(path));
        path = converted->path();
      });
      broadcast(path);  // all ranks look at the name, and rank 0 reads the file
      name = path;
    }
    testcase_ = TestCase::getFactory().createInstance(description);
    if (testcase_ == nullptr) {
      throw InputError("the test case " + description.dump() + " does not exist for " +
                       (problem_.complex ? "complex" : "real") + " values");
    }
    testcase_->generate(A_, x_, b_);
    if (problem_.makeRhs) {
      Vector ones;
      ones.create(A_.getRowPartitioner(), A_.getDevice(), A_.getComm());
      ones.fill(T(1));
      b_ = A_.matVec(ones);
    }
    report_.testcase = testcase_->registered_name;
    report_.device = A_.getDevice().getString();
  }

  /// What the files looked like to the scan is what must have been loaded.
  void checkSystem() {
    const long nnzs = A_.getNnzs();
    if (A_.getRows() != A_.getCols() || A_.getRows() < 1) {
      throw InputError("the matrix has " + std::to_string(A_.getRows()) + " rows and " +
                       std::to_string(A_.getCols()) + " columns; a solver needs a square one");
    }
    if (b_.getRows() != A_.getRows() || b_.getCols() != 1) {
      throw InputError("b has " + std::to_string(b_.getRows()) + " rows and " +
                       std::to_string(b_.getCols()) + " columns, but the matrix has " +
                       std::to_string(A_.getRows()) + " rows");
    }
    if (problem_.expectedNnzs > 0 && nnzs != problem_.expectedNnzs) {
      const std::string file =
          problem_.configuration["testcase"]["MatrixMarket_params"]["filename_A"];
      const std::string repeated = isRoot_ ? findRepeatedEntry(file) : std::string();
      throw InputError(escaped(file) + ": " +
                       (repeated.empty()
                            ? "gives " + std::to_string(nnzs) + " entries instead of " +
                                  std::to_string(problem_.expectedNnzs)
                            : repeated));
    }
    // Norms square their terms; outside this range the tests of solvers are blind.
    report_.normB = norm(b_);
    const bool isZero = Vector::normL1(b_) == 0;
    if (!isZero && !(report_.normB > 1e-140 && report_.normB < 1e140)) {
      std::ostringstream text;
      text << "the norm of b is " << report_.normB
           << ", outside the range 1e-140 to 1e140 in which solvers can judge residuals; scale b";
      throw InputError(text.str());
    }
  }

  void chooseStart() {
    if (!options_.startFromTestcase) {
      x_ = Vector();
      x_.create(A_.getRowPartitioner(), A_.getDevice(), A_.getComm());
      x_.fill(T(0));
    }
  }

  void makeSolver() {
    const json& description = problem_.configuration.at("solver");
    solver_ = Solver::getFactory().createInstance(description);
    if (solver_ == nullptr) {
      throw InputError("the solver " + description.dump() + " does not exist for " +
                       (problem_.complex ? "complex" : "real") + " values");
    }
    report_.solver = solver_->registered_name;
    report_.rtol = solver_->rtol;
    std::ostringstream tree;
    solver_->describe(tree, 0);
    std::istringstream lines(tree.str());
    for (std::string line; std::getline(lines, line);) report_.operators += escaped(line) + "\n";
  }

  void describe() {
    const typename Matrix::Meta meta = A_.computeMeta();
    report_.matrix = {
        {"rows", meta.rows},
        {"cols", meta.cols},
        {"nnzs", meta.nnzs},
        {"sparse", meta.sparse},
        {"row_nnz",
         {{"min", meta.row_nnz_min}, {"max", meta.row_nnz_max}, {"avg", meta.row_nnz_avg}}},
        {"row_sum",
         {{"min", meta.row_sum_min}, {"max", meta.row_sum_max}, {"avg", meta.row_sum_avg}}}};
    report_.rowsPerRank = extentOverRanks(A_.getLocalRows());
    report_.entriesPerRank = extentOverRanks(localEntries());
    if (!isRoot_ || options_.json) {
      return;
    }
    for (const std::string& note : report_.notes) {
      std::cout << "note: " << note << "\n";
    }
    std::cout << "matrix (min, max, avg of the entries a row, then of the row sums)\n"
              << Matrix::Meta::getTableHead() << "\n"
              << meta.getString() << "\n";
    if (report_.ranks > 1) {
      std::cout << rankLine(report_) << "\n";
    }
    std::cout << "\noperators\n" << report_.operators << std::endl;
  }

  long localEntries() const {
    long entries = 0;
    for (int block = 0; block < report_.ranks; ++block) {
      entries += A_.getLocalMatrix(block).getNnz();
    }
    return entries;
  }

  void answerZero() {
    x_.fill(T(0));
    report_.iterations = 0;
    report_.reportedRelres = 0;
    report_.normR0 = 0;
    note("b is zero, so x = 0 is the answer; the solver was not called");
    onRoot([&] {
      History history(options_.history);
      history.row(0, 0, 0, 0);
      history.close();
    });
  }

  void solve() {
    report_.normR0 = residual();
    if (options_.profile) profileHierarchies<T>(*solver_);
    const Stopwatch setup;
    if (solver_->preconditioner != nullptr) {
      solver_->preconditioner->setup(A_);
    }
    solver_->setup(A_);
    report_.setupTime = slowest(setup.seconds());

    History history(isRoot_ ? options_.history : std::string());
    solver_->observer = [&history](int iter, double r, double relR0, double relB) {
      history.row(iter, r, relR0, relB);
    };
    const Stopwatch watch;
    solver_->solve(A_, b_, x_, report_.iterations, report_.reportedRelres);
    report_.solveTime = slowest(watch.seconds());
    solver_->observer = nullptr;
    report_.hierarchies = hierarchiesOf<T>(*solver_);
    if (history.rows() == 0 && !options_.history.empty()) {
      const double r = residual();
      history.row(0, report_.normR0, 1, report_.normR0 / report_.normB);
      history.row(report_.iterations, r, r / report_.normR0, r / report_.normB);
      note(report_.solver + " logs no iterations: the history holds start and end");
    }
    onRoot([&history] { history.close(); });
  }

  void judge() {
    report_.normR = residual();
    report_.finiteX = std::isfinite(Vector::normL1(x_));
  }

  void saveSolution() {
    if (options_.solution.empty()) {
      return;
    }
    const auto all = x_.gather(0).toDevice(Device());
    onRoot([&] {
      std::ofstream file(options_.solution);
      all.saveToStream(file, 16);
      file.close();
      if (!file) {
        throw InputError("--solution " + escaped(options_.solution) + ": writing failed");
      }
    });
  }

  /// 2-norm that neither overflows nor loses small entries.
  static double norm(const Vector& v) {
    const double largest = Vector::absMax(v);
    if (!std::isfinite(largest)) {
      return largest;
    }
    Vector scaled = v.deepCopy();
    Vector::scale(T(1 / largest), scaled);
    return largest * Vector::normL2(scaled);
  }

  double residual() {
    Vector r;
    r.create(A_.getRowPartitioner(), A_.getDevice(), A_.getComm());
    Vector::residual_vec(A_, x_, b_, r);
    return norm(r);
  }

  void note(const std::string& text) {
    report_.notes.push_back(text);
    if (isRoot_ && !options_.json) {
      std::cout << "note: " << text << std::endl;
    }
  }

  const Problem& problem_;
  const Options& options_;
  bool isRoot_;
  Report report_;
  std::shared_ptr<TestCase> testcase_;
  std::shared_ptr<Solver> solver_;
  Matrix A_;
  Vector x_;
  Vector b_;
};

}  // namespace

Report runProblem(const Problem& problem, const Options& options) {
  return problem.complex ? Run<Complex<double>>(problem, options).go()
                         : Run<double>(problem, options).go();
}

}  // namespace mivo_solve
