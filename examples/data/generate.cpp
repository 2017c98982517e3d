// SPDX-License-Identifier: Apache-2.0
/// Writes a symmetric positive definite system in Matrix Market files: `diffusion.mtx` and
/// `diffusion-b.mtx`.
///
///   mivo-generate [FOLDER [N]]
///
/// It is the equation -div(k grad u) = 1 with u = 0 on the boundary of a square, by finite volumes
/// on N x N cells (default 40, which gives the 1,600 rows of the files beside this program). The
/// coefficient k is 1, and 100 in round inclusions, so that the condition number is far above that
/// of the Poisson equation. All numbers are integers, since each row is scaled by the cell's area,
/// so that the files are the same on every machine.

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

namespace {

/// Coefficient of cell (i, j): inclusions of radius 3 on a lattice of 10 cells.
int coefficient(int i, int j) {
  const int di = i % 10 - 5;
  const int dj = j % 10 - 5;
  return di * di + dj * dj <= 9 ? 100 : 1;
}

/// A face conducts as its worse side does; outside the square lies more of the same cell.
int faceCoefficient(int n, int i, int j, int iNext, int jNext) {
  const bool outside = iNext < 0 || iNext >= n || jNext < 0 || jNext >= n;
  const int own = coefficient(i, j);
  return outside ? own : std::min(own, coefficient(iNext, jNext));
}

bool write(const std::string& path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  file.close();
  if (!file) {
    std::cerr << path << ": cannot be written\n";
  }
  return static_cast<bool>(file);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string folder = argc > 1 ? argv[1] : ".";
  const int n = argc > 2 ? std::atoi(argv[2]) : 40;
  if (n < 1 || n > 10000) {
    std::cerr << "N must be a number from 1 to 10000\n";
    return 1;
  }
  // The lower triangle, as symmetric files hold it: the neighbours with smaller numbers, then the
  // diagonal.
  std::ostringstream entries;
  long count = 0;
  for (int j = 0; j < n; ++j) {
    for (int i = 0; i < n; ++i) {
      const long row = long(j) * n + i + 1;
      const int south = faceCoefficient(n, i, j, i, j - 1);
      const int west = faceCoefficient(n, i, j, i - 1, j);
      const int east = faceCoefficient(n, i, j, i + 1, j);
      const int north = faceCoefficient(n, i, j, i, j + 1);
      if (j > 0) {
        entries << row << ' ' << row - n << ' ' << -south << '\n';
        ++count;
      }
      if (i > 0) {
        entries << row << ' ' << row - 1 << ' ' << -west << '\n';
        ++count;
      }
      entries << row << ' ' << row << ' ' << south + west + east + north << '\n';
      ++count;
    }
  }
  const long rows = long(n) * n;
  std::ostringstream matrix;
  matrix << "%%MatrixMarket matrix coordinate real symmetric\n"
         << "% diffusion with inclusions, " << n << " x " << n << " cells\n"
         << rows << ' ' << rows << ' ' << count << '\n'
         << entries.str();
  std::ostringstream rhs;
  rhs << "%%MatrixMarket matrix array real general\n" << rows << " 1\n";
  for (long row = 0; row < rows; ++row) {
    rhs << "1\n";
  }
  return write(folder + "/diffusion.mtx", matrix.str()) &&
                 write(folder + "/diffusion-b.mtx", rhs.str())
             ? 0
             : 1;
}
