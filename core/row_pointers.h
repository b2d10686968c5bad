// A growing array of row pointers. Never destroyed: at exit, a thread may still be in a table.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <span>

namespace tavo {

class RowPointers {
 public:
  void clear() { size_ = 0; }

  // Appends `row`. False, and nothing changed, if memory is short.
  [[nodiscard]] bool push(void *row) {
    if (size_ == capacity_) {
      const std::size_t wider = capacity_ == 0 ? 16 : 2 * capacity_;
      void *grown = reallocarray(rows_, wider, sizeof *rows_);
      if (grown == nullptr) {
        return false;
      }
      rows_ = static_cast<void **>(grown);
      capacity_ = wider;
    }
    rows_[size_++] = row;
    return true;
  }

  // Keeps the first `count`.
  void shrink(std::size_t count) { size_ = count; }

  std::span<void *> rows() { return {rows_, size_}; }
  std::span<void *const> rows() const { return {rows_, size_}; }

 private:
  void **rows_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace tavo
