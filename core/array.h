// A growing array of what may be copied octet by octet. It says when memory is short instead of throwing.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <span>
#include <type_traits>

namespace tavo {

// Makes room for at least one more element of `size` octets, where `*capacity` are. False, and nothing changed, if
// memory is short.
[[nodiscard]] bool make_wider(void **elements, std::size_t *capacity, std::size_t size);

// Not freed unless release() is called: most arrays stay until the process ends, and then a thread may still use one.
template <class T>
class Array {
 public:
  static_assert(std::is_trivially_copyable_v<T>);

  // Appends `item`. False, and nothing changed, if memory is short.
  [[nodiscard]] bool push(const T &item) {
    if (size_ == capacity_ && !make_wider(&elements_, &capacity_, sizeof(T))) {  // NOLINT(bugprone-sizeof-expression)
      return false;
    }
    static_cast<T *>(elements_)[size_++] = item;
    return true;
  }

  std::span<T> items() { return {static_cast<T *>(elements_), size_}; }
  std::span<const T> items() const { return {static_cast<const T *>(elements_), size_}; }
  bool empty() const { return size_ == 0; }
  std::size_t size() const { return size_; }

  // Keeps the first `count`.
  void shrink(std::size_t count) { size_ = count; }
  void clear() { size_ = 0; }
  // Removes the elements that `leaves` is true of, which it is asked in their order.
  template <class Leaves>
  void remove_if(Leaves leaves) {
    std::size_t kept = 0;
    for (const T &item : items()) {
      if (!leaves(item)) {
        static_cast<T *>(elements_)[kept++] = item;
      }
    }
    size_ = kept;
  }
  void remove(const T &item) {
    remove_if([&](const T &other) { return other == item; });
  }

  // Frees the memory. Nothing else may be called afterwards.
  void release() { std::free(elements_); }

 private:
  void *elements_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace tavo
