// SPDX-License-Identifier: Apache-2.0
#pragma once

// Storage of an assembly, for the containers that assemble through it. Internal: not installed.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "mivo/mat/COOMatrix.hpp"
#include "mivo/mat/SetValueMode.hpp"

namespace mivo {

/// Rows by number. Neighbouring rows share a page of pointers, so that the hash table of pages is
/// small and a walk in row order hardly touches it. Rows and pages lie in arenas; a row that came
/// from another matrix lies in that one's arena, which is shared. Whoever holds the list of arenas
/// keeps all rows alive.
template <class T, class R, class C>
struct COOMatrixT<T, R, C>::COOMatrixImpl {
  using Arenas = std::vector<std::shared_ptr<RowArena>>;

  R rows = -1;
  C cols = -1;

  /// The row, made when missing. Safe from any thread; the row lives as long as this object keeps
  /// it, or somebody the arenas.
  Row& getRow(R row) {
    const std::lock_guard<std::mutex> guard(lock_);
    Row*& place = getPlace(row);
    if (place == nullptr) {
      place = new (own_arena_->allocate(kRowClass)) Row(own_arena_.get());
      ++row_count_;
    }
    return *place;
  }

  /// Keeps other threads from making rows and from using the cache of `findRow`.
  std::unique_lock<std::mutex> lockRows() { return std::unique_lock<std::mutex>(lock_); }

  /// The row, null when missing. One thread, or under the lock.
  Row* findRow(R row) {
    const R key = pageOf(row);
    if (last_page_ == nullptr || key != last_key_) {
      if (slots_.empty()) return nullptr;
      const Slot& slot = slots_[slotOf(key)];
      if (slot.page == nullptr) return nullptr;
      usePage(slot);
    }
    return last_page_->rows[placeInPage(row)];
  }

  /// Assigns or adds; safe from any thread. The map lock is given back before the row's is taken.
  void setValue(R row, C col, const T& value, SetValueMode mode) {
    Row& entries = getRow(row);
    const std::lock_guard<Row> guard(entries);
    if (mode == SetValueMode::Set) {
      entries[col] = value;
    } else if (mode == SetValueMode::Add) {
      entries[col] += value;
    }
  }

  std::size_t getRowCount() const { return row_count_; }

  /// visit(R row, Row& entries) for each row, in no particular order. One thread.
  template <class Visit>
  void forEachRow(const Visit& visit) {
    for (const Slot& slot : slots_) {
      if (slot.page == nullptr) continue;
      for (int k = 0; k < kPageRows; ++k) {
        Row* const row = slot.page->rows[k];
        if (row != nullptr) visit(static_cast<R>(slot.key * kPageRows + k), *row);
      }
    }
  }

  /// Takes in a row of another matrix under a number that is not in use; `shareArenas` keeps it
  /// alive.
  void shareRow(R row, Row& entries) {
    getPlace(row) = &entries;
    ++row_count_;
  }
  void shareArenas(const Arenas& arenas) {
    arenas_->insert(arenas_->end(), arenas.begin(), arenas.end());
  }
  const std::shared_ptr<Arenas>& getArenas() const { return arenas_; }

  /// Exchanges all rows, not the shape.
  void swapRows(COOMatrixImpl& other) {
    std::swap(slots_, other.slots_);
    std::swap(page_count_, other.page_count_);
    std::swap(row_count_, other.row_count_);
    std::swap(own_arena_, other.own_arena_);
    std::swap(arenas_, other.arenas_);
    last_page_ = nullptr;
    other.last_page_ = nullptr;
  }

 private:
  static constexpr int kPageRows = 16;
  static constexpr unsigned kRowClass = 5;
  static_assert(sizeof(Row) <= std::size_t(1) << kRowClass, "a row fits its block");
  struct Page {
    Row* rows[kPageRows] = {};
  };
  static constexpr unsigned kPageClass = 7;
  static_assert(sizeof(Page) <= std::size_t(1) << kPageClass, "a page fits its block");
  struct Slot {
    R key = 0;
    Page* page = nullptr;
  };

  static R pageOf(R row) { return row >> 4; }
  static std::size_t placeInPage(R row) { return static_cast<std::size_t>(row & (kPageRows - 1)); }

  /// Slot of the page, or the free one where it belongs. The table is never more than half full.
  std::size_t slotOf(R key) const {
    // Multiplicative hashing by the golden ratio; the high bits are the good ones.
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = (static_cast<std::uint64_t>(key) * 0x9E3779B97F4A7C15u >> 20) & mask;
    while (slots_[at].page != nullptr && slots_[at].key != key) at = (at + 1) & mask;
    return at;
  }

  void usePage(const Slot& slot) {
    last_key_ = slot.key;
    last_page_ = slot.page;
  }

  Row*& getPlace(R row) {
    const R key = pageOf(row);
    if (last_page_ == nullptr || key != last_key_) {
      if (2 * (page_count_ + 1) > slots_.size()) enlarge();
      Slot& slot = slots_[slotOf(key)];
      if (slot.page == nullptr) {
        slot = {key, new (own_arena_->allocate(kPageClass)) Page};
        ++page_count_;
      }
      usePage(slot);
    }
    return last_page_->rows[placeInPage(row)];
  }

  void enlarge() {
    std::vector<Slot> old(slots_.empty() ? 16 : 2 * slots_.size());
    std::swap(old, slots_);
    for (const Slot& slot : old) {
      if (slot.page != nullptr) slots_[slotOf(slot.key)] = slot;
    }
  }

  std::mutex lock_;
  std::vector<Slot> slots_;
  std::size_t page_count_ = 0;
  R last_key_ = 0;  ///< of the page that was used last
  Page* last_page_ = nullptr;
  std::size_t row_count_ = 0;
  std::shared_ptr<RowArena> own_arena_ = std::make_shared<RowArena>();
  std::shared_ptr<Arenas> arenas_ =
      std::make_shared<Arenas>(1, own_arena_);  ///< of all rows, own ones included
};

}  // namespace mivo
