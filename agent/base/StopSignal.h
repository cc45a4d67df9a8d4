// The signals that end the program in good order: SIGINT and SIGTERM. Whoever works for long asks
// between two pieces of work. A piece that does not end is ended by a second signal.
#pragma once

#include <atomic>

namespace Agent {

class StopSignal {
 public:
  // From here on the first of the two signals no longer ends the process by itself.
  static void install();

  // 0 while there was none.
  static int number() { return number_; }
  static const std::atomic<bool>& isSet() { return isSet_; }

 private:
  static void take(int signal);

  static inline std::atomic<int> number_ = 0;
  static inline std::atomic<bool> isSet_ = false;
  static_assert(std::atomic<int>::is_always_lock_free, "a signal handler writes it");
};

}  // namespace Agent
