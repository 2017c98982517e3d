// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "mivo/mat/RowArena.hpp"
#include "mivo/utils/export.hpp"
#include "mivo/utils/logging.hpp"

namespace mivo {

/// Map from integer keys to plain values with a lock of its own: one row of an assembly.
///
/// Entries stand in one array in the order in which their keys first came. A short map is searched
/// from front to back, a long one through a hash index. Nothing locks by itself: who writes while
/// others may, holds the map by std::lock_guard. References and iterators hold until the next new
/// key.
template <class K, class V>
class MIVO_API MapWithLockType {
  static_assert(std::is_integral_v<K> && std::is_trivially_copyable_v<V>,
                "entries are moved as their bytes");

 public:
  struct value_type {
    K first;
    V second;
  };
  using iterator = value_type*;
  using const_iterator = const value_type*;

  /// Takes its memory from `arena`, which outlives it, or from the heap.
  explicit MapWithLockType(RowArena* arena = nullptr) : arena_(arena) {}
  ~MapWithLockType() {
    if (entries_ != nullptr) release(entries_, entries_class_);
    if (index_ != nullptr) release(index_, index_class_);
  }
  MapWithLockType(const MapWithLockType&) = delete;
  MapWithLockType& operator=(const MapWithLockType&) = delete;

  void lock() { lock_.lock(); }
  void unlock() { lock_.unlock(); }

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  iterator begin() { return entries_; }
  iterator end() { return entries_ + size_; }
  const_iterator begin() const { return entries_; }
  const_iterator end() const { return entries_ + size_; }

  iterator find(const K& key) { return entries_ + position(key); }
  const_iterator find(const K& key) const { return entries_ + position(key); }
  std::size_t count(const K& key) const { return position(key) < size_ ? 1 : 0; }

  /// The value of `key`, which is added as V() when missing.
  V& operator[](const K& key) {
    const std::size_t at = position(key);
    if (at < size_) return entries_[at].second;
    if (size_ == capacity()) grow();
    value_type& entry = entries_[size_];
    entry.first = key;
    entry.second = V();
    if (index_ != nullptr) *slot(key) = size_ + 1;
    ++size_;
    return entry.second;
  }

 private:
  /// A longer map has an index.
  static constexpr std::size_t kSearched = 32;
  static constexpr unsigned kFirstClass = 5;

  std::size_t capacity() const {
    return entries_ == nullptr ? 0 : (std::size_t(1) << entries_class_) / sizeof(value_type);
  }

  /// Place of the key, size() when missing.
  std::size_t position(const K& key) const {
    if (index_ != nullptr) {
      const std::uint32_t at = *slot(key);
      return at == 0 ? size_ : at - 1;
    }
    std::size_t k = 0;
    while (k < size_ && entries_[k].first != key) ++k;
    return k;
  }

  /// Cell of the index that holds the key's place + 1, or the free one (0) where it belongs.
  std::uint32_t* slot(const K& key) const {
    const unsigned bits = index_class_ - 2u;
    const std::size_t mask = (std::size_t(1) << bits) - 1;
    // Multiplicative hashing by the golden ratio; the high bits are the good ones.
    std::size_t at = (static_cast<std::uint64_t>(key) * 0x9E3779B97F4A7C15u) >> (64 - bits);
    while (index_[at] != 0 && entries_[index_[at] - 1].first != key) at = (at + 1) & mask;
    return index_ + at;
  }

  void grow() {
    unsigned larger = entries_ == nullptr ? kFirstClass : entries_class_ + 1u;
    while ((std::size_t(1) << larger) < sizeof(value_type)) ++larger;
    MIVO_CHECK(size_ < UINT32_MAX / 2) << "assembly: a row is too long";
    value_type* const moved = static_cast<value_type*>(allocate(larger));
    if (entries_ != nullptr) {
      std::memcpy(static_cast<void*>(moved), entries_, size_ * sizeof(value_type));
      release(entries_, entries_class_);
    }
    entries_ = moved;
    entries_class_ = static_cast<std::uint8_t>(larger);
    if (capacity() > kSearched) rebuildIndex();
  }

  /// An index of two to four cells an entry.
  void rebuildIndex() {
    if (index_ != nullptr) release(index_, index_class_);
    unsigned cells = 3;  // 2 bits for the size of a cell
    while ((std::size_t(1) << (cells - 2)) < 2 * capacity()) ++cells;
    index_class_ = static_cast<std::uint8_t>(cells);
    index_ = static_cast<std::uint32_t*>(allocate(cells));
    std::memset(index_, 0, std::size_t(1) << cells);
    for (std::uint32_t k = 0; k < size_; ++k) *slot(entries_[k].first) = k + 1;
  }

  void* allocate(unsigned sizeClass) {
    void* const block =
        arena_ != nullptr ? arena_->allocate(sizeClass) : std::malloc(std::size_t(1) << sizeClass);
    MIVO_CHECK(block != nullptr) << "assembly: no memory for a row";
    return block;
  }
  void release(void* block, unsigned sizeClass) {
    if (arena_ != nullptr) {
      arena_->release(block, sizeClass);
    } else {
      std::free(block);
    }
  }

  value_type* entries_ = nullptr;
  std::uint32_t* index_ = nullptr;
  RowArena* arena_;
  std::uint32_t size_ = 0;
  std::uint8_t entries_class_ = 0;
  std::uint8_t index_class_ = 0;
  SpinLock lock_;
};

}  // namespace mivo
