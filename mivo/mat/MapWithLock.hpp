// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "mivo/comu/serialization.hpp"
#include "mivo/mat/RowArena.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/logging.hpp"
#include "mivo/utils/memory.hpp"

namespace mivo {

/// Map from integer keys to plain values with a lock of its own: one row of an assembly.
///
/// Looks like a std::unordered_map: elements by `[]`, `at`, `find` and `count`; `insert`,
/// `emplace`, `try_emplace`, `insert_or_assign`, `erase`, `clear`, `reserve`; no copies. It keeps
/// the promise of one: references to entries hold until their entry is erased. Entries come in the
/// order in which their keys first came. They stand in blocks that never move; a short map is
/// searched from front to back, a long one through a hash index. The room of erased entries is
/// given back by `clear` alone.
///
/// Nothing locks by itself: who writes while others may, holds the map by std::lock_guard.
template <class K, class V>
class MIVO_API MapWithLockType {
  static_assert(std::is_integral_v<K> && std::is_trivially_copyable_v<V>,
                "entries are moved as their bytes");

 public:
  using key_type = K;
  using mapped_type = V;
  using size_type = std::size_t;
  struct value_type {
    K first;
    V second;
  };

 private:
  /// Header of a block; its entries follow.
  struct Block {
    Block* next;  ///< in a ring: behind the last block comes the first
    std::uint32_t used;
    std::uint8_t size_class;
  };
  static_assert(sizeof(Block) == 16 && alignof(value_type) <= 16, "entries follow the header");

  template <class Entry>
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = MapWithLockType::value_type;
    using difference_type = std::ptrdiff_t;
    using pointer = Entry*;
    using reference = Entry&;

    Iterator() = default;
    /// From a mutable iterator
    template <class E, std::enable_if_t<std::is_convertible_v<E*, Entry*>, int> = 0>
    Iterator(const Iterator<E>& other)
        : map_(other.map_), block_(other.block_), at_(other.at_), end_(other.end_) {}

    reference operator*() const { return *at_; }
    pointer operator->() const { return at_; }
    Iterator& operator++() {
      ++at_;
      settle();
      return *this;
    }
    Iterator operator++(int) {
      const Iterator before = *this;
      ++*this;
      return before;
    }
    friend bool operator==(const Iterator& a, const Iterator& b) { return a.at_ == b.at_; }
    friend bool operator!=(const Iterator& a, const Iterator& b) { return a.at_ != b.at_; }

   private:
    friend class MapWithLockType;
    template <class>
    friend class Iterator;

    Iterator(const MapWithLockType* map, Block* block, Entry* at)
        : map_(map), block_(block), at_(at), end_(entriesOf(block) + block->used) {}

    /// Moves on to an entry that is there, or to the end.
    void settle() {
      for (;;) {
        if (at_ == end_) {
          if (block_ == map_->last_) {
            at_ = end_ = nullptr;
            return;
          }
          block_ = block_->next;
          at_ = entriesOf(block_);
          end_ = at_ + block_->used;
        } else if (map_->isThere(at_)) {
          return;
        } else {
          ++at_;
        }
      }
    }

    const MapWithLockType* map_ = nullptr;
    Block* block_ = nullptr;
    Entry* at_ = nullptr;  ///< null at the end of the map
    Entry* end_ = nullptr;
  };

 public:
  using iterator = Iterator<value_type>;
  using const_iterator = Iterator<const value_type>;

  /// Takes its memory from `arena`, which outlives it, or from the heap.
  explicit MapWithLockType(RowArena* arena = nullptr) : arena_(arena) {}
  ~MapWithLockType() { clear(); }
  MapWithLockType(const MapWithLockType&) = delete;
  MapWithLockType& operator=(const MapWithLockType&) = delete;

  void lock() { lock_.lock(); }
  void unlock() { lock_.unlock(); }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  iterator begin() { return first<value_type>(); }
  iterator end() { return {}; }
  const_iterator begin() const { return first<const value_type>(); }
  const_iterator end() const { return {}; }
  const_iterator cbegin() const { return begin(); }
  const_iterator cend() const { return end(); }

  iterator find(const K& key) { return iteratorAt<value_type>(search(key)); }
  const_iterator find(const K& key) const { return iteratorAt<const value_type>(search(key)); }
  std::size_t count(const K& key) const { return search(key) != nullptr ? 1 : 0; }
  /// Raises std::out_of_range for a key that is missing.
  V& at(const K& key) { return existing(key)->second; }
  const V& at(const K& key) const { return existing(key)->second; }

  /// The value of `key`, which is added as V() when missing.
  V& operator[](const K& key) {
    value_type* const entry = search(key);
    return entry != nullptr ? entry->second : append(key, V())->second;
  }

  // The second part of a result tells whether the entry is new. An entry that is there stays as it
  // is, but for `insert_or_assign`.

  template <class... Args>
  std::pair<iterator, bool> emplace(const K& key, Args&&... args) {
    if (value_type* const entry = search(key)) return {iteratorAt<value_type>(entry), false};
    return {iteratorAt<value_type>(append(key, V(std::forward<Args>(args)...))), true};
  }
  template <class... Args>
  std::pair<iterator, bool> try_emplace(const K& key, Args&&... args) {
    return emplace(key, std::forward<Args>(args)...);
  }
  std::pair<iterator, bool> insert(const value_type& entry) {
    return emplace(entry.first, entry.second);
  }
  template <class A, class B>
  std::pair<iterator, bool> insert(const std::pair<A, B>& entry) {
    return emplace(entry.first, entry.second);
  }
  template <class Input>
  void insert(Input from, Input to) {
    for (; from != to; ++from) emplace((*from).first, (*from).second);
  }
  std::pair<iterator, bool> insert_or_assign(const K& key, const V& value) {
    const auto result = emplace(key, value);
    result.first->second = value;
    return result;
  }

  /// The number of entries that go, 0 or 1.
  std::size_t erase(const K& key) {
    value_type* const entry = search(key);
    if (entry == nullptr) return 0;
    if (index_ == nullptr) rebuildIndex();
    removeFromIndex(slot(key));
    has_holes_ = true;
    --size_;
    return 1;
  }
  /// The iterator behind the entry that goes.
  iterator erase(iterator place) {
    const K key = place->first;
    ++place;
    erase(key);
    return place;
  }
  void clear() {
    for (Block* block = last_; block != nullptr;) {
      Block* const next = block->next == last_ ? nullptr : block->next;
      release(block, block->size_class);
      block = next;
    }
    if (index_ != nullptr) release(index_, index_class_);
    last_ = nullptr;
    index_ = nullptr;
    size_ = 0;
    has_holes_ = false;
  }
  /// Room for `count` entries in all.
  void reserve(std::size_t count) {
    const std::size_t room = last_ == nullptr ? 0 : capacityOf(last_) - last_->used;
    if (count > size_ + room) addBlock(count - size_);
  }

  // Exchange between ranks: the number of entries as `int`, then keys and values.

  int getStreamSize() const {
    return comu::narrowToInt(sizeof(int) + size() * (sizeof(K) + sizeof(V)), "bytes");
  }
  void packStream(comu::Stream& stream) const {
    const int entries = comu::narrowToInt(size(), "entries of a map");
    stream.pushBack(&entries, static_cast<int>(sizeof(int)));
    for (const value_type& entry : *this) {
      stream.pushBack(&entry.first, static_cast<int>(sizeof(K)));
      stream.pushBack(&entry.second, static_cast<int>(sizeof(V)));
    }
  }
  void unpackStream(comu::Stream& stream) {
    int entries = 0;
    stream.popFront(&entries, static_cast<int>(sizeof(int)));
    clear();
    for (int k = 0; k < entries; ++k) {
      K key{};
      stream.popFront(&key, static_cast<int>(sizeof(K)));
      stream.popFront(&(*this)[key], static_cast<int>(sizeof(V)));
    }
  }

 private:
  /// A longer map has an index.
  static constexpr std::size_t kSearched = 32;
  static constexpr unsigned kFirstClass = 5;
  static constexpr unsigned kSecondClass = 7;
  static constexpr unsigned kCellBits = 3;
  static_assert(sizeof(value_type*) == std::size_t(1) << kCellBits, "cells are pointers");

  static value_type* entriesOf(Block* block) { return reinterpret_cast<value_type*>(block + 1); }
  static std::size_t capacityOf(const Block* block) {
    return ((std::size_t(1) << block->size_class) - sizeof(Block)) / sizeof(value_type);
  }

  /// The entry of the key, null when missing.
  value_type* search(const K& key) const {
    if (index_ != nullptr) return *slot(key);
    if (last_ == nullptr) return nullptr;
    for (Block* block = last_->next;; block = block->next) {
      value_type* const entries = entriesOf(block);
      for (std::uint32_t k = 0; k < block->used; ++k) {
        if (entries[k].first == key) return entries + k;
      }
      if (block == last_) return nullptr;
    }
  }
  value_type* existing(const K& key) const {
    value_type* const entry = search(key);
    if (entry == nullptr) throw std::out_of_range("MapWithLockType::at");
    return entry;
  }
  /// Erased entries keep their place and lose their cell of the index.
  bool isThere(const value_type* entry) const {
    return !has_holes_ || *slot(entry->first) == entry;
  }

  template <class Entry>
  Iterator<Entry> first() const {
    if (last_ == nullptr) return {};
    Iterator<Entry> result(this, last_->next, entriesOf(last_->next));
    result.settle();
    return result;
  }
  template <class Entry>
  Iterator<Entry> iteratorAt(value_type* entry) const {
    if (entry == nullptr) return {};
    Block* block = last_;
    while (entry < entriesOf(block) || entry >= entriesOf(block) + block->used) block = block->next;
    return {this, block, entry};
  }

  value_type* append(const K& key, const V& value) {
    if (last_ == nullptr || last_->used == capacityOf(last_)) addBlock(1);
    value_type* const entry = entriesOf(last_) + last_->used++;
    entry->first = key;
    entry->second = value;
    if (index_ != nullptr) *slot(key) = entry;
    ++size_;
    return entry;
  }

  /// A block for `count` entries at least, of about the size of all before.
  void addBlock(std::size_t count) {
    MIVO_CHECK(size_ < UINT32_MAX / 2 && count < UINT32_MAX / 2) << "assembly: a row is too long";
    unsigned size_class = last_ == nullptr ? kFirstClass : kSecondClass;
    const std::size_t wanted = sizeof(Block) + count * sizeof(value_type);
    const std::size_t before = last_ == nullptr ? 0 : usedPlaces() * sizeof(value_type);
    while ((std::size_t(1) << size_class) < std::max(wanted, before)) ++size_class;
    Block* const block = static_cast<Block*>(allocate(size_class));
    block->used = 0;
    block->size_class = static_cast<std::uint8_t>(size_class);
    block->next = last_ == nullptr ? block : last_->next;
    if (last_ != nullptr) last_->next = block;
    last_ = block;
    const std::size_t room = capacityOf(block);
    if (index_ != nullptr || size_ + room > kSearched) rebuildIndex();
  }

  std::size_t usedPlaces() const {
    std::size_t used = 0;
    const Block* block = last_;
    if (block == nullptr) return 0;
    do {
      used += block->used;
      block = block->next;
    } while (block != last_);
    return used;
  }

  /// Cell of the index that points to the key's entry, or the free one where it belongs.
  value_type** slot(const K& key) const {
    const std::size_t mask = cellCount() - 1;
    std::size_t at = home(key);
    while (index_[at] != nullptr && index_[at]->first != key) at = (at + 1) & mask;
    return index_ + at;
  }
  std::size_t cellCount() const { return std::size_t(1) << (index_class_ - kCellBits); }
  /// Multiplicative hashing by the golden ratio; the high bits are the good ones.
  static std::size_t homeIn(unsigned index_class, const K& key) {
    return (static_cast<std::uint64_t>(key) * 0x9E3779B97F4A7C15u) >>
           (64 + kCellBits - index_class);
  }
  std::size_t home(const K& key) const { return homeIn(index_class_, key); }
  /// Entries behind the cell that goes move up where that brings them nearer to their home.
  void removeFromIndex(value_type** cell) {
    const std::size_t mask = cellCount() - 1;
    std::size_t hole = static_cast<std::size_t>(cell - index_);
    for (std::size_t at = (hole + 1) & mask; index_[at] != nullptr; at = (at + 1) & mask) {
      if (((at - home(index_[at]->first)) & mask) >= ((at - hole) & mask)) {
        index_[hole] = index_[at];
        hole = at;
      }
    }
    index_[hole] = nullptr;
  }

  /// An index of two to four cells for each entry that there is room for.
  void rebuildIndex() {
    const std::size_t entries = size_ + capacityOf(last_) - last_->used;
    value_type** const old = index_;
    const unsigned old_class = index_class_;
    unsigned cells = kCellBits + 1;
    while ((std::size_t(1) << (cells - kCellBits)) < 2 * entries) ++cells;
    if (cells < kFirstClass) cells = kFirstClass;
    value_type** const fresh = static_cast<value_type**>(allocate(cells));
    std::memset(fresh, 0, std::size_t(1) << cells);
    // The old index tells which entries are there.
    const std::size_t mask = (std::size_t(1) << (cells - kCellBits)) - 1;
    for (auto entry = first<value_type>(); entry != iterator(); ++entry) {
      std::size_t at = homeIn(cells, entry->first);
      while (fresh[at] != nullptr) at = (at + 1) & mask;
      fresh[at] = &*entry;
    }
    index_ = fresh;
    index_class_ = static_cast<std::uint8_t>(cells);
    if (old != nullptr) release(old, old_class);
  }

  void* allocate(unsigned sizeClass) {
    if (arena_ != nullptr) return arena_->allocate(sizeClass);
    const std::size_t bytes = std::size_t(1) << sizeClass;
    void* const block = std::malloc(bytes);
    if (block == nullptr) detail::endWithoutMemory(bytes, Device(), "a row of an assembly");
    return block;
  }
  void release(void* block, unsigned sizeClass) {
    if (arena_ != nullptr) {
      arena_->release(block, sizeClass);
    } else {
      std::free(block);
    }
  }

  Block* last_ = nullptr;
  value_type** index_ = nullptr;
  RowArena* arena_;
  std::uint32_t size_ = 0;
  std::uint8_t index_class_ = 0;
  bool has_holes_ = false;  ///< there are places whose entries have been erased
  SpinLock lock_;
};

}  // namespace mivo
