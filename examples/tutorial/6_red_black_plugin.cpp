// SPDX-License-Identifier: Apache-2.0

// Step 6, the plugin: a preconditioner of your own, registered under a name.
//
// Symmetric Gauss-Seidel in two colours: rows with even x + y, then odd ones, then even ones again.
// For the five-point matrices of a square with `width` points a side, on one rank.

#include <mivo/mivo.hpp>

namespace {

template <class T, class G, class L>
class PrecondRedBlack : public mivo::ParPreconditionerT<T, G, L> {
 public:
  using Vector = mivo::ParMatrixT<T, G, L>;
  int width = 1;

  void create(const mivo::json& params) { mivo::readJsonKey(params, "width", width); }
  void setup(const mivo::ParMatrixFreeT<T, G, L>& A) override {
    this->setupTime.start();
    matrix = dynamic_cast<const mivo::ParCSRMatrixT<T, G, L>&>(A).getLocalMatrix(-1);
    this->setupTime.stop();
  }
  /// z = M^-1 r
  void precondition(const Vector& r, Vector& z) override {
    r.deepCopy(z);
    z.fill(T(0));
    for (const int colour : {0, 1, 0}) sweep(colour, r, z);
  }

 private:
  void sweep(int colour, const Vector& r, Vector& z) const {
    const T* b = r.getLocalMatrix(-1).getData();
    T* x = z.getLocalMatrix(-1).getData();
    for (L i = 0; i < matrix.getRows(); ++i) {
      if ((i % width + i / width) % 2 != colour) continue;
      T rest = b[i], diagonal(1);
      for (L k = matrix.getRowPtr()[i]; k < matrix.getRowPtr()[i + 1]; ++k) {
        const L j = matrix.getColIdx()[k];
        if (j == i) {
          diagonal = matrix.getValues()[k];
        } else {
          rest -= matrix.getValues()[k] * x[j];
        }
      }
      x[i] = rest / diagonal;
    }
  }

  mivo::CSRMatrixT<T, L> matrix;
};

}  // namespace

namespace mivo {
MIVO_REGISTER(ParPreconditionerT, "PrecondRedBlack", double, long, int,
              PrecondRedBlack<double, long, int>)
}  // namespace mivo
