// What the C library's heap keeps for itself, in case it is wanted, and a controller needs elsewhere.
#pragma once

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

namespace tavo {

// Has all threads take memory from one heap, where each would begin one of its own and keep pages in it. Before the
// first thread.
inline void share_one_heap() {
#ifdef __GLIBC__
  mallopt(M_ARENA_MAX, 1);
#endif
}

// Gives the pages that hold nothing any more back to the system: after a mass of anything that is megabytes. Takes some
// 100 us for each MiB.
inline void give_memory_back() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

// Gives the whole pages among the `size` octets from `block` on back to the system, while the block remains its
// owner's. They are zero when they are next read.
inline void give_pages_back(std::byte *block, std::size_t size) {
  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto address = reinterpret_cast<std::uintptr_t>(block);
  const std::size_t before = (page - address % page) % page;
  if (before < size) {
    madvise(block + before, (size - before) / page * page, MADV_DONTNEED);
  }
}

}  // namespace tavo
