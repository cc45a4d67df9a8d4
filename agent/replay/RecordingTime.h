// The real clock, counted from the start of the recording: for a replay that takes as long as what
// it replays, or a fixed part of that.
#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

#include "agent/base/StopSignal.h"
#include "framework/Moru/TimeSource.h"

namespace Agent {

class RecordingTime final : public Moru::TimeSource {
 public:
  // `speed`: seconds of the recording for each that passes, above 0.
  explicit RecordingTime(double speed) : speed_(speed) {}

  double now() override {
    return std::chrono::duration<double>(Clock::now() - start_).count() * speed_;
  }

  // Returns early when the program is to stop.
  void waitUntil(double time) override {
    constexpr double longestNap = 0.05;  // seconds
    while (now() < time && StopSignal::number() == 0)
      std::this_thread::sleep_for(
          std::chrono::duration<double>(std::min((time - now()) / speed_, longestNap)));
  }

 private:
  using Clock = std::chrono::steady_clock;
  const double speed_;
  const Clock::time_point start_ = Clock::now();
};

}  // namespace Agent
