// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace mivo {

/// Communicators are plain integers in the handle encoding of MPICH, so that public headers need
/// no `mpi.h`. These two exist in every run, with and without a message-passing library.
constexpr int kCommWorld = 0x44000000;
constexpr int kCommSelf = 0x44000001;

}  // namespace mivo
