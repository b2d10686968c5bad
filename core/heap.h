// What the C library's heap keeps for itself, in case it is wanted, and a controller needs elsewhere.
#pragma once

#include <malloc.h>

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

}  // namespace tavo
