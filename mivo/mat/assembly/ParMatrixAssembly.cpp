// SPDX-License-Identifier: Apache-2.0
#include <cstddef>
#include <cstdint>

#include "mivo/comu/communication_tools.hpp"
#include "mivo/mat/COOMatrix.hpp"
#include "mivo/mat/ParMatrix.hpp"
#include "mivo/mat/assembly/COOMatrixImpl.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/ranks.hpp"

namespace mivo {

template <class T, class G, class L>
void ParMatrixT<T, G, L>::beginAssemble() {
  G begin = 0;
  G end = 0;
  getOwnerShipRange(&begin, &end);
  impl_->assembly = std::make_shared<COOMatrixT<T, G, L>>();
  impl_->assembly->setShape(end - begin, static_cast<L>(getCols()));
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::setValue(G i, G j, const T& v, SetValueMode mode) {
  MIVO_CHECK(impl_->assembly != nullptr) << "setValue: beginAssemble has not been called";
  // A column outside fails in endAssemble like a row; it must not wrap around into the matrix until
  // then.
  const L col = j >= 0 && j < impl_->cols ? static_cast<L>(j) : L(-1);
  impl_->assembly->getImpl().setValue(i, col, v, mode);
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::setValue(G i, const T& v, SetValueMode mode) {
  setValue(i, 0, v, mode);
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::endAssemble() {
  MIVO_CHECK(impl_->assembly != nullptr) << "endAssemble: beginAssemble has not been called";
  G begin = 0;
  G end = 0;
  getOwnerShipRange(&begin, &end);
  const L rows = static_cast<L>(end - begin);
  const L cols = static_cast<L>(getCols());
  COOMatrixT<T, L, L> entries;
  entries.setShape(rows, cols);
  impl_->assembly->endAssemble(getComm(), getRowPartitioner(), entries);
  impl_->assembly.reset();

  Local host;
  host.create(rows, cols, Device());
  host.fill(T(0));
  T* const values = host.getData();
  entries.getImpl().forEachRow([&](L row, const auto& columns) {
    for (const auto& entry : columns) {
      MIVO_CHECK(entry.first >= 0) << "endAssemble: row " << row + begin
                                   << " has an entry outside the columns of the matrix";
      values[static_cast<std::size_t>(row) * static_cast<std::size_t>(cols) +
             static_cast<std::size_t>(entry.first)] = entry.second;
    }
  });
  impl_->local = host.toDevice(getDevice());
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::createByAssemble(const MatrixT<T, G, MatrixLayoutRowMajor>& m, int comm) {
  std::int64_t shape[2] = {m.getRows(), m.getCols()};
  MPI_Allreduce(MPI_IN_PLACE, shape, 2, MPI_INT64_T, MPI_MAX, comm);
  create(static_cast<G>(shape[0]), static_cast<G>(shape[1]), m.getDevice(), comm);
  beginAssemble();
  const MatrixT<T, G, MatrixLayoutRowMajor> host = m.toDevice(Device());
  const T* v = host.getData();
  for (G i = 0; i < host.getRows(); ++i) {
    for (G j = 0; j < host.getCols(); ++j) setValue(i, j, *v++, SetValueMode::Add);
  }
  endAssemble();
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::scatter(int comm, int root, const Local& m) {
  scatterRows(comm, root, &m, nullptr);
}

template <class T, class G, class L>
void ParMatrixT<T, G, L>::scatter(int comm, int root, const Local& m, const Partitioner& rowPart) {
  scatterRows(comm, root, &m, &rowPart);
}

template <class T, class G, class L>
bool ParMatrixT<T, G, L>::scatterRows(int comm, int root, const Local* m,
                                      const Partitioner* given) {
  const int rank = rankOf(comm), size = sizeOf(comm);
  // Rows, columns, kind and ordinal of the device; -1 rows when the root has no matrix.
  std::int64_t shape[4] = {-1, 0, 0, 0};
  if (rank == root && m != nullptr) {
    const Device& device = m->getDevice();
    shape[0] = m->getRows();
    shape[1] = m->getCols();
    shape[2] = device.type;
    shape[3] = device.id;
  }
  MPI_Bcast(shape, 4, MPI_INT64_T, root, comm);
  if (shape[0] < 0) return false;

  const G rows = static_cast<G>(shape[0]);
  const G cols = static_cast<G>(shape[1]);
  const Device device(static_cast<int>(shape[2]), static_cast<int>(shape[3]));
  Partitioner rowPart;
  Partitioner colPart;
  if (rows > 0 && cols > 0) {
    rowPart.create(rows, static_cast<L>(size));
    colPart.create(cols, static_cast<L>(size));
  }
  if (given != nullptr) {
    MIVO_CHECK(given->getNumParts() <= size || rows == 0)
        << "scatter: " << given->getNumParts() << " parts for " << size << " ranks";
    rowPart = *given;
  }

  std::vector<Local> blocks;
  if (rank == root && rows > 0 && cols > 0) m->splitRows(rowPart, blocks);
  blocks.resize(static_cast<std::size_t>(size));
  Local mine = blocks[0];
  // On one rank the block need not go through a message, and may exceed the size of one.
  if (size > 1) {
    mine = Local();
    comu::stlmpi_scatter_stream(comm, blocks, mine, root);
  }
  createShape(rows, cols, rowPart, colPart, device, comm);
  impl_->local = mine.toDevice(device);
  return true;
}

template <class T, class G, class L>
MatrixT<T, L, MatrixLayoutRowMajor> ParMatrixT<T, G, L>::gather(int root) const {
  if (getRows() <= 0 || getCols() <= 0) return Local();
  const int rank = rankOf(getComm()), size = sizeOf(getComm());
  const Local host = impl_->local.toDevice(Device());
  std::vector<Local> blocks{host};
  if (size > 1) comu::stlmpi_gather_stream(getComm(), host, blocks, root);
  if (rank != root) return Local();
  // Ranks beyond the parts have no rows.
  blocks.resize(static_cast<std::size_t>(getRowPartitioner().getNumParts()));
  return Local::mergeRows(getRowPartitioner(), blocks).toDevice(getDevice());
}

MIVO_INSTANCE_VALUES(ParMatrixT, int, int)
MIVO_INSTANCE_VALUES(ParMatrixT, long, int)

}  // namespace mivo
