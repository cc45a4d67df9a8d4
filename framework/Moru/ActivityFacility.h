// The activity facility: the current time, the clocks, and the loop that fires them.
//
// It can be the process's own event loop (runUntil), or be driven by another one:
//
//   poll(fds, n, facility->pollTimeout());
//   facility->fireDue();
//
// A clock that is armed again, or for the first time, while clocks fire waits for the next turn:
// work that goes on by re-arming at the current time leaves room for everything else in between.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <vector>

#include "framework/Moru/Clock.h"
#include "framework/Moru/Ptr.h"
#include "framework/Moru/TimeSource.h"

namespace Moru {

// Is told of each firing of a clock, for whoever measures what reactions do and how long they take.
class FiringWatch {
 public:
  virtual void firingBegins(const Clock& clock) noexcept = 0;

  // Also of a firing that has thrown.
  virtual void firingEnds() noexcept = 0;

 protected:
  ~FiringWatch() = default;
};

class ActivityFacility final : public PtrInterface {
 public:
  // Throws RangeException for a null source, as currentIs does for a null facility.
  explicit ActivityFacility(Ptr<TimeSource> timeSource);

  // The one that machines take their clocks from: the process has one at a time, on the steady
  // clock unless another has been set. Clocks made before a change stay with the facility they came
  // from.
  static const Ptr<ActivityFacility>& current();
  static void currentIs(Ptr<ActivityFacility> facility);

  Ptr<Clock> clock();

  // The current time, in seconds of the time source. On a virtual time a reading may move it.
  double now() const { return timeSource_->now(); }

  // The time at which the next clock is due, Clock::never if none is armed. Not a reading.
  double nextDue() const;

  // How long a foreign loop may sleep until then, for poll(2): milliseconds, rounded up; 0 if a
  // clock is due, -1 if none is armed.
  int pollTimeout() const;

  // Fires, once each, the clocks that are due now, the earliest first and of equal times the one
  // that was armed first. Returns how many fired.
  std::size_t fireDue();

  // Fires the first clock that is due at or before `until`, by its due time alone, after waiting
  // for that time. False if there is none.
  bool fireNext(double until);

  // The event loop: fires what is due at or before `until`, also what is armed meanwhile, then
  // waits for `until` itself. With Clock::never it returns when no clock is armed.
  void runUntil(double until);

  // A watch is told until it is taken out again, neither of which is done while a clock fires.
  void firingWatchIs(FiringWatch& watch) { watches_.push_back(&watch); }
  void firingWatchDel(FiringWatch& watch) { std::erase(watches_, &watch); }

 private:
  friend class Clock;

  using Reactor = Clock::NotifieeConst;
  struct Earlier {
    bool operator()(const Reactor* left, const Reactor* right) const;
  };
  using DueList = std::set<Reactor*, Earlier>;

  void arm(Reactor& reactor, double timeMin);
  void disarm(Reactor& reactor);
  void fire(Reactor& reactor);

  Ptr<TimeSource> timeSource_;
  DueList due_;
  std::uint64_t armed_ = 0;
  std::vector<FiringWatch*> watches_;
};

}  // namespace Moru
