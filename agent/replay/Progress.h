// How far a long replay has come, on one line of a terminal that is written over.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <ostream>
#include <utility>

namespace Agent {

class Progress {
 public:
  using Clock = std::chrono::steady_clock;

  Progress(std::ostream& terminal, bool isOn, std::function<Clock::time_point()> now = Clock::now)
      : terminal_(terminal), isOn_(isOn), now_(std::move(now)) {}
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress() { clear(); }

  // To be called for every line; writes a few times a second.
  void update(std::uint64_t line, double at);

  // Takes the line back, for something else to be written.
  void clear();

 private:
  std::ostream& terminal_;
  const bool isOn_;
  bool isShown_ = false;
  const std::function<Clock::time_point()> now_;
  Clock::time_point shown_ = now_();
};

}  // namespace Agent
