// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <future>

#include "mivo/mat/fwd.hpp"
#include "mivo/operators/ParOperator.hpp"
#include "mivo/utils/Device.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/instantiate.hpp"

namespace mivo {

template <class Base>
class Factory;

/// Abstract distributed linear operator: all that a Krylov solver needs of a matrix. Derive from it
/// to solve with an operator of your own; only the five pure functions are needed. Products are
/// collective.
template <class T, class G, class L>
class MIVO_API ParMatrixFreeT : public virtual ParOperator {
 public:
  /// Handle on a product whose receiving part ran on a helper thread.
  class MIVO_API AsyncMatVecObject {
   public:
    /// Blocks until the result is there, and returns it or rethrows the stored exception. Not to be
    /// called after a product on one rank, which leaves the handle untouched.
    int wait() { return future_.get(); }
    /// Gives the promise that the product fulfils.
    std::promise<int> arm() {
      std::promise<int> promise;
      future_ = promise.get_future();
      return promise;
    }

   private:
    std::future<int> future_;
  };

  virtual int getComm() const = 0;
  virtual Device getDevice() const = 0;
  /// Global rows
  virtual G getRows() const = 0;
  /// Global columns
  virtual G getCols() const = 0;
  /// y = alpha A x + beta y; with beta 0 y is not read. A null `async` means a synchronous product.
  virtual void aAxpby(T alpha, const ParMatrixT<T, G, L>& x, T beta, ParMatrixT<T, G, L>& y,
                      AsyncMatVecObject* async) = 0;
  /// y = A x
  virtual void matVec(const ParMatrixT<T, G, L>& x, ParMatrixT<T, G, L>& y,
                      AsyncMatVecObject* async);

  ~ParMatrixFreeT() override;

  /// Family of the key "matrix_type".
  static Factory<ParMatrixFreeT>& getFactory();
};

MIVO_EXTERN_VALUES(ParMatrixFreeT, int, int)
MIVO_EXTERN_VALUES(ParMatrixFreeT, long, int)

}  // namespace mivo
