// The real clock, counted from the start of the recording: for a replay that takes as long as what
// it replays.
#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

#include "agent/base/StopSignal.h"
#include "framework/Moru/TimeSource.h"

namespace Agent {

class RecordingTime final : public Moru::TimeSource {
 public:
  double now() override { return std::chrono::duration<double>(Clock::now() - start_).count(); }

  // Returns early when the program is to stop.
  void waitUntil(double time) override {
    constexpr double longestNap = 0.05;  // seconds
    while (now() < time && StopSignal::number() == 0)
      std::this_thread::sleep_for(
          std::chrono::duration<double>(std::min(time - now(), longestNap)));
  }

 private:
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start_ = Clock::now();
};

}  // namespace Agent
