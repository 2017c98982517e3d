// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <ostream>
#include <tuple>
#include <vector>

namespace mivo::test {

struct Message {
  int peer;
  int bytes;
  int tag;

  friend bool operator==(const Message& a, const Message& b) {
    return std::tie(a.peer, a.bytes, a.tag) == std::tie(b.peer, b.bytes, b.tag);
  }
  friend void PrintTo(const Message& m, std::ostream* os) {
    *os << m.bytes << " bytes, rank " << m.peer << ", tag " << m.tag;
  }
};

/// What this rank has handed to the message-passing library since `start`, in order. For programs
/// that are linked with `message_spy.cpp`, which stands between the library and MPICH.
struct MessageSpy {
  std::vector<Message> sent;
  std::vector<Message> opened;  ///< receipts
  int alltoalls = 0;
  int allreduces = 0;
  int gathers = 0;

  static MessageSpy& get();
  static MessageSpy& start() { return get() = MessageSpy(); }
};

}  // namespace mivo::test
