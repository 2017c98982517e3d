// SPDX-License-Identifier: Apache-2.0
#include "mivo/comu/records.hpp"

#include "mivo/comu/serialization.hpp"

namespace mivo::comu {

std::size_t TRDATA::getStreamSize() const { return (3 + neighbours.size()) * sizeof(int); }

void TRDATA::packStream(Stream& stream) const {
  comu::packStream(stream, id);
  comu::packStream(stream, rank);
  comu::packStream(stream, narrowToInt(neighbours.size(), "neighbours of a vertex"));
  for (const int vertex : neighbours) comu::packStream(stream, vertex);
}

void TRDATA::unpackStream(Stream& stream) {
  int count = 0;
  comu::unpackStream(stream, id);
  comu::unpackStream(stream, rank);
  comu::unpackStream(stream, count);
  neighbours.clear();
  for (int k = 0; k < count; ++k) {
    int vertex = 0;
    comu::unpackStream(stream, vertex);
    neighbours.insert(neighbours.end(), vertex);
  }
}

}  // namespace mivo::comu
