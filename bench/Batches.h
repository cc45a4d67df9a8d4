// Work that yields: measuring its batches.
#pragma once

#include <algorithm>
#include <sys/resource.h>

#include "bench/Compare.h"

namespace Bench {

inline long involuntarySwitches() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nivcsw;
}

struct Batches {
  double longest = 0;    // seconds, of those that were not preempted
  double preempted = 0;  // how many were
  double count = 0;
  double seconds = 0;
};

// Runs batches until there is nothing left; run() does one, and says whether more is left.
template <class Run>
Batches runBatches(Run&& run) {
  Batches batches;
  bool more = true;
  while (more) {
    const long switches = involuntarySwitches();
    const double seconds = Bench::secondsOf([&] { more = run(); });
    batches.seconds += seconds;
    ++batches.count;
    if (involuntarySwitches() != switches)
      ++batches.preempted;
    else
      batches.longest = std::max(batches.longest, seconds);
  }
  return batches;
}

}  // namespace Bench
