// SPDX-License-Identifier: Apache-2.0

// A distributed matrix as text: one file per rank and block out, one file on rank 0 in.

#include <fstream>
#include <istream>
#include <ostream>
#include <string>

#include "mivo/mat/ParCSRMatrix.hpp"
#include "mivo/mat/ParCSRMatrixImpl.hpp"
#include "mivo/mat/text/MatrixText.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::saveToStream(std::ostream& os, int precision) {
  os << "the matrix for process " << impl_->rank() << '/' << impl_->size() << " is\n";
  for (const auto& entry : impl_->local_blocks) {
    os << "block " << entry.first << '\n';
    onHost(entry.second.matrix).saveToStream(os, precision);
  }
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::saveToFile(const std::string& name, int precision) {
  const int rank = impl_->rank();
  const int size = impl_->size();
  for (const auto& entry : impl_->local_blocks) {
    onHost(entry.second.matrix)
        .saveToFile(matrixRankFileName(name, size, rank, entry.first), precision);
  }
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::loadFromStream(std::istream& is, const Device& device, int comm) {
  const int rank = rankOf(comm);
  Local local;
  // Only rank 0's stream counts: the others may have none. All ranks learn from it whether there is
  // a matrix.
  const bool readable = rank != 0 || is.good();
  if (rank == 0 && readable) local.loadFromStream(is);
  ParCSRMatrixT loaded;
  if (!loaded.scatterFrom(comm, 0, local, readable)) return;
  // The parts stand on the host; a copy to the host would be the same again.
  if (device.type == Device::kHost) {
    *this = loaded;
  } else {
    *this = loaded.toDevice(device);
  }
}

template <class T, class G, class L>
void ParCSRMatrixT<T, G, L>::loadFromFile(const std::string& name, const Device& device, int comm) {
  std::ifstream file(name);
  loadFromStream(file, device, comm);
}

MIVO_INSTANCE_VALUES(ParCSRMatrixT, int, int)
MIVO_INSTANCE_VALUES(ParCSRMatrixT, long, int)

}  // namespace mivo
