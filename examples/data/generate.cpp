// SPDX-License-Identifier: Apache-2.0
/// Writes a system on a square grid in Matrix Market files: `KIND.mtx`, and for diffusion the
/// right-hand side `diffusion-b.mtx`.
///
///   mivo-generate [FOLDER [N [KIND]]]
///
/// The grid has N x N cells (default 40, which gives the 1,600 rows of the files beside this
/// program), u is 0 on the boundary, and all numbers are integers, so that the files are the same
/// on every machine. Kinds:
///
/// - diffusion (default): -div(k grad u) by finite volumes, with k = 1, and 100 in round
/// inclusions:
///   symmetric positive definite, with a condition number far above that of the Poisson equation;
/// - convection: -laplace u + w . grad u by upwind differences, with a wind along the diagonal that
///   is as strong as diffusion in a cell: not symmetric;
/// - helmholtz: 100 (-laplace u) - 12 u in units of a cell: symmetric and indefinite;
/// - anisotropy: diffusion a hundred times stronger in x than in y: symmetric positive definite;
/// - magnetic: a charge in a constant magnetic potential, whose couplings turn by the phase of 3 +
/// 4i:
///   complex, Hermitian and positive definite.

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
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

/// Five-point coefficients of a cell; `turn` is the imaginary part of west, and less it of east.
struct Stencil {
  int diagonal, south, west, east, north;
  int turn = 0;
};

Stencil diffusion(int n, int i, int j) {
  const int south = faceCoefficient(n, i, j, i, j - 1);
  const int west = faceCoefficient(n, i, j, i - 1, j);
  const int east = faceCoefficient(n, i, j, i + 1, j);
  const int north = faceCoefficient(n, i, j, i, j + 1);
  return {south + west + east + north, -south, -west, -east, -north};
}

Stencil convection(int, int, int) { return {6, -2, -2, -1, -1}; }

Stencil helmholtz(int, int, int) { return {388, -100, -100, -100, -100}; }

Stencil anisotropy(int, int, int) { return {202, -1, -100, -100, -1}; }

Stencil magnetic(int, int, int) { return {21, -5, -3, -3, -5, 4}; }

struct Kind {
  std::string name;
  std::string title;
  bool symmetric;  ///< its file holds the lower triangle
  Stencil (*stencil)(int n, int i, int j);
  bool complex = false;
};

const Kind kKinds[] = {{"diffusion", "diffusion with inclusions", true, diffusion},
                       {"convection", "convection and diffusion, upwind", false, convection},
                       {"helmholtz", "Helmholtz equation", true, helmholtz},
                       {"anisotropy", "diffusion of one main direction", true, anisotropy},
                       {"magnetic", "charge in a magnetic potential", false, magnetic, true}};

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
  const std::string name = argc > 3 ? argv[3] : "diffusion";
  const Kind* kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                  [&](const Kind& each) { return each.name == name; });
  if (kind == std::end(kKinds)) {
    std::cerr << "KIND must be diffusion, convection, helmholtz, anisotropy or magnetic\n";
    return 1;
  }
  std::ostringstream entries;
  long count = 0;
  for (int j = 0; j < n; ++j) {
    for (int i = 0; i < n; ++i) {
      const long row = long(j) * n + i + 1;
      const Stencil s = kind->stencil(n, i, j);
      const auto entry = [&](bool inside, long col, int value, int imaginary = 0) {
        if (!inside || (kind->symmetric && col > row)) return;
        entries << row << ' ' << col << ' ' << value;
        if (kind->complex) entries << ' ' << imaginary;
        entries << '\n';
        ++count;
      };
      entry(j > 0, row - n, s.south);
      entry(i > 0, row - 1, s.west, s.turn);
      entry(true, row, s.diagonal);
      entry(i + 1 < n, row + 1, s.east, -s.turn);
      entry(j + 1 < n, row + n, s.north);
    }
  }
  const long rows = long(n) * n;
  std::ostringstream matrix;
  matrix << "%%MatrixMarket matrix coordinate " << (kind->complex ? "complex " : "real ")
         << (kind->symmetric ? "symmetric" : "general") << "\n% " << kind->title << ", " << n
         << " x " << n << " cells\n"
         << rows << ' ' << rows << ' ' << count << '\n'
         << entries.str();
  if (!write(folder + "/" + kind->name + ".mtx", matrix.str())) return 1;
  if (kind->name != "diffusion") return 0;
  std::ostringstream rhs;
  rhs << "%%MatrixMarket matrix array real general\n" << rows << " 1\n";
  for (long row = 0; row < rows; ++row) {
    rhs << "1\n";
  }
  return write(folder + "/diffusion-b.mtx", rhs.str()) ? 0 : 1;
}
