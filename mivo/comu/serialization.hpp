// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <limits>
#include <map>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "mivo/comu/Stream.hpp"
#include "mivo/utils/ScalarTraits.hpp"
#include "mivo/utils/logging.hpp"

// How a value becomes bytes of a message: `getStreamSize(e)` gives the exact length,
// `packStream(stream, e)` writes just that many bytes, `unpackStream(stream, e)` reads them. A
// class takes part through members of these names without the value argument, or through free
// functions of these names in its own namespace. Numbers are sent as their bytes; std::vector,
// std::map with int keys and std::unordered_map send a 32-bit count and then their elements in
// order (each after its key). Values lie in host memory.

namespace mivo {
namespace free_protocol {

/// Converts to the stream that it stands for. Calls with it reach the free functions of a user's
/// namespace and not those of `comu`, which take streams alone and would call themselves.
struct StreamArgument {
  comu::Stream& stream;
  operator comu::Stream&() const { return stream; }
};

template <class E, class = void>
struct Exists : std::false_type {};
template <class E>
struct Exists<
    E, std::void_t<decltype(packStream(std::declval<StreamArgument>(), std::declval<const E&>()))>>
    : std::true_type {};

template <class E>
std::size_t size(const E& e) {
  static_assert(Exists<E>::value, "the type has no serialisation");
  return static_cast<std::size_t>(getStreamSize(e));
}
template <class E>
void pack(comu::Stream& stream, const E& e) {
  packStream(StreamArgument{stream}, e);
}
template <class E>
void unpack(comu::Stream& stream, E& e) {
  unpackStream(StreamArgument{stream}, e);
}

}  // namespace free_protocol

namespace comu {

/// A count or a byte length as the 32-bit number that messages carry; ends the program when it does
/// not fit.
inline int narrowToInt(std::size_t count, const char* what) {
  MIVO_CHECK(count <= static_cast<std::size_t>(std::numeric_limits<int>::max()))
      << "message too large: " << count << " " << what << ", at most "
      << std::numeric_limits<int>::max() << " fit";
  return static_cast<int>(count);
}

namespace detail {

/// The protocol for one type, by free functions of its own namespace. The specialisations below are
/// the types that need none.
template <class E, class = void>
struct Serializer {
  static std::size_t size(const E& e) { return free_protocol::size(e); }
  static void pack(Stream& stream, const E& e) { free_protocol::pack(stream, e); }
  static void unpack(Stream& stream, E& e) { free_protocol::unpack(stream, e); }
};

template <class E>
struct Serializer<E, std::void_t<decltype(std::declval<const E&>().getStreamSize())>> {
  static std::size_t size(const E& e) { return static_cast<std::size_t>(e.getStreamSize()); }
  static void pack(Stream& stream, const E& e) { e.packStream(stream); }
  static void unpack(Stream& stream, E& e) { e.unpackStream(stream); }
};

template <class E>
constexpr bool kSentAsBytes = std::is_arithmetic_v<E> || kIsComplex<E>;

template <class E>
struct Serializer<E, std::enable_if_t<kSentAsBytes<E>>> {
  static std::size_t size(const E&) { return sizeof(E); }
  static void pack(Stream& stream, const E& e) { stream.pushBack(&e, sizeof(E)); }
  static void unpack(Stream& stream, E& e) { stream.popFront(&e, sizeof(E)); }
};

template <class E>
struct Serializer<std::vector<E>> {
  static std::size_t size(const std::vector<E>& v) {
    std::size_t bytes = sizeof(int);
    if constexpr (kSentAsBytes<E>) {
      bytes += v.size() * sizeof(E);
    } else {
      for (const E& e : v) bytes += Serializer<E>::size(e);
    }
    return bytes;
  }
  static void pack(Stream& stream, const std::vector<E>& v) {
    Serializer<int>::pack(stream, narrowToInt(v.size(), "elements of a vector"));
    if constexpr (kSentAsBytes<E>) {
      stream.pushBack(v.data(), narrowToInt(v.size() * sizeof(E), "bytes of a vector"));
    } else {
      for (const E& e : v) Serializer<E>::pack(stream, e);
    }
  }
  static void unpack(Stream& stream, std::vector<E>& v) {
    int count = 0;
    Serializer<int>::unpack(stream, count);
    v.resize(static_cast<std::size_t>(count));
    if constexpr (kSentAsBytes<E>) {
      stream.popFront(v.data(), narrowToInt(v.size() * sizeof(E), "bytes of a vector"));
    } else {
      for (E& e : v) Serializer<E>::unpack(stream, e);
    }
  }
};

template <class Map>
struct MapSerializer {
  using Key = typename Map::key_type;
  using Value = typename Map::mapped_type;

  static std::size_t size(const Map& map) {
    std::size_t bytes = sizeof(int);
    for (const auto& entry : map) {
      bytes += Serializer<Key>::size(entry.first) + Serializer<Value>::size(entry.second);
    }
    return bytes;
  }
  static void pack(Stream& stream, const Map& map) {
    Serializer<int>::pack(stream, narrowToInt(map.size(), "entries of a map"));
    for (const auto& entry : map) {
      Serializer<Key>::pack(stream, entry.first);
      Serializer<Value>::pack(stream, entry.second);
    }
  }
  static void unpack(Stream& stream, Map& map) {
    int count = 0;
    Serializer<int>::unpack(stream, count);
    map.clear();
    for (int k = 0; k < count; ++k) {
      Key key{};
      Serializer<Key>::unpack(stream, key);
      Serializer<Value>::unpack(stream, map[key]);
    }
  }
};

template <class E>
struct Serializer<std::map<int, E>> : MapSerializer<std::map<int, E>> {};
template <class K, class V>
struct Serializer<std::unordered_map<K, V>> : MapSerializer<std::unordered_map<K, V>> {};

}  // namespace detail

/// Exact number of bytes that `packStream` writes.
template <class E>
std::size_t getStreamSize(const E& e) {
  return detail::Serializer<E>::size(e);
}

template <class E, class S, class = std::enable_if_t<std::is_base_of_v<Stream, S>>>
void packStream(S& stream, const E& e) {
  detail::Serializer<E>::pack(stream, e);
}

/// Replaces the value of `e`; a container on a device keeps its device.
template <class E, class S, class = std::enable_if_t<std::is_base_of_v<Stream, S>>>
void unpackStream(S& stream, E& e) {
  detail::Serializer<E>::unpack(stream, e);
}

}  // namespace comu
}  // namespace mivo
