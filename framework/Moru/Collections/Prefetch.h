// Asks the processor to fetch a line of memory that will be needed soon, and goes on. Inside the
// framework only.
#pragma once

namespace Moru {

inline void prefetchLine(const void* place) {
  __builtin_prefetch(place);
  // g++ takes a function that only prefetches for one without effect, and drops calls of it.
  asm volatile("");
}

}  // namespace Moru
