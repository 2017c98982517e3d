// SPDX-License-Identifier: Apache-2.0
#include "mivo/comu/communication_tools_impl.hpp"

MIVO_INSTANTIATE_SPARSE_SEND_RECV(int)
MIVO_INSTANTIATE_SPARSE_SEND_RECV(mivo::comu::DATA)
MIVO_INSTANTIATE_SPARSE_SEND_RECV_STREAM(std::vector<mivo::comu::TRDATA>)
