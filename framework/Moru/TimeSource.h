// Where the time comes from: seconds on a base of the source's own, never going back.
#pragma once

#include <algorithm>

#include "framework/Moru/PtrInterface.h"

namespace Moru {

class TimeSource : public PtrInterface {
 public:
  // The current time, in seconds.
  virtual double now() = 0;

  // Returns when the current time is at least `time`.
  virtual void waitUntil(double time) = 0;
};

// The machine's steady clock; seconds since its own start. Waiting sleeps.
class SteadyTime final : public TimeSource {
 public:
  double now() override;
  void waitUntil(double time) override;
};

// A time that stands still until it is moved: by waiting, and by reading if `timePerRead` says so.
class VirtualTime final : public TimeSource {
 public:
  // Each reading returns the time as it stands and then moves it on by `timePerRead` seconds.
  explicit VirtualTime(double start = 0, double timePerRead = 0)
      : time_(start), timePerRead_(timePerRead) {}

  double now() override {
    const double time = time_;
    time_ += timePerRead_;
    return time;
  }

  void waitUntil(double time) override { time_ = std::max(time_, time); }

  // The time as it stands, without counting as a reading.
  double time() const { return time_; }

 private:
  double time_;
  double timePerRead_;
};

}  // namespace Moru
