// A table's rows: heap records in a singly linked list behind a global head, with a view of them in index order.
#pragma once

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "core/array.h"

namespace tavo {

// The shape of a row record: a standard-layout struct that begins with its index (uint32) and holds a link to the next
// row.
struct RowLayout {
  std::size_t size;  // octets
  std::size_t next;  // offset of the link
};

template <class Row>
consteval RowLayout layout_of() {
  static_assert(std::is_standard_layout_v<Row> && std::is_trivially_copyable_v<Row>);
  static_assert(offsetof(Row, index) == 0 && sizeof(Row::index) == sizeof(std::uint32_t));
  return {.size = sizeof(Row), .next = offsetof(Row, next)};
}

using RowPointers = Array<void *>;

// Nothing here locks: callers hold the table's lock. Rows come from calloc and are freed with free.
class RowList {
 public:
  // `head`: the table's exported list head, a pointer to its row record.
  constexpr RowList(RowLayout layout, void *head) : layout_(layout), head_(head) {}

  void *first() const;
  void *next(const void *row) const;
  static std::uint32_t index_of(const void *row);

  // Puts `row` at the front of the list, which then owns it.
  void push_front(void *row);
  // Takes `row` out of the list; the caller then owns it. False if it is not listed: it is looked for, not read. In a
  // long list it is found sooner behind `before`, a listed row somewhere before it.
  bool unlink(void *row, void *before = nullptr);
  // Frees every row. Returns how many there were.
  std::size_t clear();
  // May be read without the lock.
  const std::atomic<std::size_t> &count() const { return count_; }

  // The rows by ascending index, one for each index: of several with the same index, the first in the list. Sorted
  // again once the list has changed, even through the exported head. Null if memory is short.
  const RowPointers *ordered();

 private:
  void set_first(void *row);
  void set_next(void *row, void *next) const;

  RowLayout layout_;
  void *head_;
  std::atomic<std::size_t> count_ = 0;
  RowPointers ordered_;
  const void *ordered_from_ = nullptr;  // the first row when `ordered_` was sorted
  bool ordered_is_current_ = false;
};

}  // namespace tavo
