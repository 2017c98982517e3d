// SPDX-License-Identifier: Apache-2.0
#include <fstream>
#include <istream>
#include <ostream>

#include "mivo/mat/ParMatrix.hpp"
#include "mivo/mat/text/MatrixText.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

template <class T, class G, class L>
void ParMatrixT<T, G, L>::saveToStream(std::ostream& os) const {
  impl_->local.toDevice(Device()).saveToStream(os, 16);
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::saveToFile(const std::string& name) const {
  const int rank = rankOf(getComm()), size = sizeOf(getComm());
  impl_->local.toDevice(Device()).saveToFile(matrixRankFileName(name, size, rank, 0), -1);
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::loadFromStream(std::istream& is, const Device& device, int comm) {
  constexpr int kReader = 0;
  const int rank = rankOf(comm);
  // Only the stream of the reading rank counts. Its failure travels with the shape, since the
  // others could not know that no matrix will come.
  const bool readable = rank == kReader && is.good();
  Local local;
  if (readable) local.loadFromStream(is);
  ParMatrixT loaded;
  if (loaded.scatterRows(comm, kReader, readable ? &local : nullptr, nullptr)) {
    *this = loaded.toDevice(device);
  }
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::loadFromFile(const std::string& name, const Device& device, int comm) {
  std::ifstream file(name);
  loadFromStream(file, device, comm);
}

MIVO_INSTANCE_VALUES(ParMatrixT, int, int)
MIVO_INSTANCE_VALUES(ParMatrixT, long, int)

}  // namespace mivo
