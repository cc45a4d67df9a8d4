// How far a long replay has come, on one line of a terminal that is written over.
#pragma once

#include <chrono>
#include <cstdint>
#include <ostream>

namespace Agent {

class Progress {
 public:
  Progress(std::ostream& terminal, bool isOn) : terminal_(terminal), isOn_(isOn) {}
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress() { clear(); }

  // To be called for every line; writes a few times a second.
  void update(std::uint64_t line, double at);

  // Takes the line back, for something else to be written.
  void clear();

 private:
  using Clock = std::chrono::steady_clock;

  std::ostream& terminal_;
  const bool isOn_;
  bool isShown_ = false;
  Clock::time_point shown_ = Clock::now();
};

}  // namespace Agent
