// A timer. Machines are called back at a time of their choice by a reactor on a clock:
//
//   class MoruRetryClock : public Moru::Reactor<Moru::Clock::NotifieeConst, TheMachine> { ... };
//   retryClockIs(Moru::ActivityFacility::current()->clock());
//   retryClock.reactor()->timeMinIs(now + 0.5);
//
// When the time has come the reactor is disarmed, and then called once, with Clock::timeMinId.
#pragma once

#include <cstdint>
#include <limits>

#include "framework/Moru/Entity.h"

namespace Moru {

class ActivityFacility;

class Clock final : public Entity {
 public:
  static constexpr AttributeId timeMinId = 1;
  static constexpr double never = std::numeric_limits<double>::infinity();

  class NotifieeConst : public NotifieeOf<Clock const> {
   public:
    ~NotifieeConst() override;

    // When the reactor is called, in seconds of the facility's time; `never` when it is not armed.
    double timeMin() const { return timeMin_; }

    // Arms the reactor, or disarms it with `never`. A time that has passed is due at once. Throws
    // RangeException for a value that is not a number.
    void timeMinIs(double timeMin);

    // A reactor that changes its clock, or loses it, is disarmed.
    void notifierIs(Ptr<Clock const> clock) override;
    void moruDoZombieReactors(bool zombie) override;

   protected:
    explicit NotifieeConst(Reactive* owner = nullptr) : NotifieeOf<Clock const>(owner) {}

   private:
    friend class ActivityFacility;
    void disarm();
    void fire();

    double timeMin_ = never;
    std::uint64_t armed_ = 0;  // the place in the order of arming
  };

 private:
  friend class ActivityFacility;
  template <class T, class... Args>
  friend Ptr<T> create(Args&&... args);

  // From ActivityFacility::clock(), which the clock keeps alive.
  explicit Clock(Ptr<ActivityFacility> facility);
  ~Clock() override;

  Ptr<ActivityFacility> facility_;
};

}  // namespace Moru
