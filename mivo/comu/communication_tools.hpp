// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "mivo/comu/records.hpp"
#include "mivo/utils/export.hpp"

// Exchange of irregular data between the ranks of a communicator. Everything here is collective:
// every rank calls it, in the same order, also with nothing to send. Messages carry tag 0, so no
// two of these calls may run at once on one communicator. A message of 2^31 bytes or more ends the
// program.
//
// The templates are instantiated where their element types are defined: sparse_send_recv for int
// and DATA here, the stream forms for matrices beside the matrices.

namespace mivo::comu {

/// Sends send[i] to rank i and receives recv[i] from rank i. T is plain data, sent as its bytes.
///
/// `send` may be shorter than the communicator, which counts as empty vectors. Unless `sizesKnown`,
/// the counts are exchanged first and `recv` is shaped by them. With `sizesKnown` the caller has
/// sized each recv[i], and the call costs point-to-point messages only; an answer that mirrors a
/// request uses this. Empty vectors send nothing; the own part is copied.
template <class T>
MIVO_API void sparse_send_recv(int comm, const std::vector<std::vector<T>>& send,
                               std::vector<std::vector<T>>& recv, bool sizesKnown);

/// Sends send[i] to rank i and receives recv[i] from rank i, for elements that pack themselves
/// (`mivo/comu/serialization.hpp`) from host memory.
///
/// `recv` is resized to the communicator. The own element is assigned, so handles share their data;
/// others are unpacked into recv[i], which a rank that sent nothing leaves as it was.
template <class E>
MIVO_API void sparse_send_recv_stream(int comm, const std::vector<E>& send, std::vector<E>& recv);

/// Gives all[i] of the rank `root`, packed from host memory, to rank i, which unpacks it into
/// `mine`. `all` is read on the root only and has one element per rank there.
template <class E>
MIVO_API void stlmpi_scatter_stream(int comm, const std::vector<E>& all, E& mine, int root);

/// Brings `mine` of each rank i, packed from host memory, to all[i] of the rank `root`. Elsewhere
/// `all` stays as it is.
template <class E>
MIVO_API void stlmpi_gather_stream(int comm, const E& mine, std::vector<E>& all, int root);

}  // namespace mivo::comu
