#include "core/row_list.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <span>
#include <utility>

#include "core/zeroed.h"

namespace tavo {
namespace {

// Heads and links are pointers to the table's own row type, which is unknown here: they are copied as octets.
void *load_pointer(const void *from) {
  void *pointer;
  std::memcpy(&pointer, from, sizeof pointer);
  return pointer;
}

void store_pointer(void *to, void *pointer) {
  std::memcpy(to, &pointer, sizeof pointer);
}

// Sorts by index; rows with the same index keep their order. False, and nothing changed, if memory is short. The
// library's stable sort does the same with 4 KiB of code.
bool sort_by_index(std::span<void *> rows) {
  const Zeroed<std::byte[]> memory = make_zeroed_octets(rows.size(), sizeof(void *));
  if (memory == nullptr) {
    return rows.empty();
  }
  const std::span<void *> scratch(reinterpret_cast<void **>(memory.get()), rows.size());
  std::span<void *> from = rows;
  std::span<void *> to = scratch;
  for (std::size_t run = 1; run < rows.size(); run *= 2) {
    for (std::size_t begin = 0; begin < rows.size(); begin += 2 * run) {
      const std::span<void *> pair = from.subspan(begin, std::min(2 * run, rows.size() - begin));
      const auto middle = pair.begin() + static_cast<std::ptrdiff_t>(std::min(run, pair.size()));
      std::merge(pair.begin(), middle, middle, pair.end(), to.begin() + static_cast<std::ptrdiff_t>(begin),
                 [](const void *row, const void *other) { return RowList::index_of(row) < RowList::index_of(other); });
    }
    std::swap(from, to);
  }
  if (from.data() != rows.data()) {
    std::ranges::copy(from, rows.begin());
  }
  return true;
}

}  // namespace

void *RowList::first() const {
  return load_pointer(head_);
}

void *RowList::next(const void *row) const {
  return load_pointer(static_cast<const std::byte *>(row) + layout_.next);
}

std::uint32_t RowList::index_of(const void *row) {
  std::uint32_t index;
  std::memcpy(&index, row, sizeof index);
  return index;
}

void RowList::set_first(void *row) {
  store_pointer(head_, row);
  ordered_is_current_ = false;
}

void RowList::set_next(void *row, void *next) const {
  store_pointer(static_cast<std::byte *>(row) + layout_.next, next);
}

void RowList::push_front(void *row) {
  set_next(row, first());
  set_first(row);
  count_.fetch_add(1, std::memory_order_relaxed);
}

bool RowList::unlink(void *row, void *before) {
  void *last = before;
  for (void *candidate = last == nullptr ? first() : next(last); candidate != nullptr; candidate = next(candidate)) {
    if (candidate == row) {
      if (last == nullptr) {
        set_first(next(row));
      } else {
        set_next(last, next(row));
        ordered_is_current_ = false;
      }
      count_.fetch_sub(1, std::memory_order_relaxed);
      return true;
    }
    last = candidate;
  }
  return before != nullptr && unlink(row);
}

std::size_t RowList::clear() {
  std::size_t freed = 0;
  void *row = first();
  while (row != nullptr) {
    void *following = next(row);
    std::free(row);
    row = following;
    ++freed;
  }
  set_first(nullptr);
  count_.store(0, std::memory_order_relaxed);
  return freed;
}

const RowPointers *RowList::ordered() {
  if (ordered_is_current_ && ordered_from_ == first()) {
    return &ordered_;
  }
  ordered_is_current_ = false;
  ordered_.clear();
  for (void *row = first(); row != nullptr; row = next(row)) {
    if (!ordered_.push(row)) {
      return nullptr;
    }
  }
  const auto rows = ordered_.items();
  if (!sort_by_index(rows)) {
    return nullptr;
  }
  const auto end = std::unique(rows.begin(), rows.end(),
                               [](const void *row, const void *other) { return index_of(row) == index_of(other); });
  ordered_.shrink(static_cast<std::size_t>(end - rows.begin()));
  ordered_from_ = first();
  ordered_is_current_ = true;
  return &ordered_;
}

}  // namespace tavo
