// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>
#include <map>
#include <vector>

#include "mivo/mat/SpMVCommPattern.hpp"
#include "mivo/mpi_stub/mpi.h"
#include "mivo/utils/communicator.hpp"

namespace mivo {

template <class T, class G, class L>
struct SpMVCommPatternT<T, G, L>::SpMVCommPatternImpl {
  int comm = kCommWorld;
  Device device;
  bool wait_some = true;                    ///< handle messages in the order of arrival
  std::map<int, SpmvColBlock> recv_blocks;  ///< by owner of the columns, the own rank included
  std::map<int, SpmvSendMeta> send_metas;   ///< by the rank that wants entries of this one
  Vector host_x;                            ///< host form of the vector that is being exchanged
  int tag = 0;                              ///< of the next exchange among some of all processes

  // Arrays of the waiting routines, kept so that an exchange allocates nothing.
  std::vector<MPI_Request> requests;
  std::vector<MPI_Status> statuses;
  std::vector<int> arrived;
};

/// Tag of the next exchange among all processes, shared by all plans of the process.
inline int& haloMessageTag() {
  static int tag = 0;
  return tag;
}

/// The tag, which moves on to the next one.
inline int advanceTag(int& tag) {
  const int taken = tag;
  tag = tag < std::numeric_limits<int>::max() ? tag + 1 : 0;
  return taken;
}

}  // namespace mivo
