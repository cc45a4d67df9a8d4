#include "framework/Moru/ActivityFacility.h"

#include <chrono>
#include <cmath>
#include <limits>
#include <thread>
#include <utility>

#include "framework/Moru/Delivery.h"
#include "framework/Moru/Exception.h"

namespace Moru {

double SteadyTime::now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void SteadyTime::waitUntil(double time) {
  // A sleep is cut into pieces: the longest time that a duration can hold is not a bound to rely
  // on.
  constexpr double longestSleep = 3600;
  double left = time - now();
  while (left > 0) {
    std::this_thread::sleep_for(std::chrono::duration<double>(std::min(left, longestSleep)));
    left = time - now();
  }
}

Clock::Clock(Ptr<ActivityFacility> facility) : facility_(std::move(facility)) {}

Clock::~Clock() = default;

Clock::NotifieeConst::~NotifieeConst() { disarm(); }

void Clock::NotifieeConst::timeMinIs(double timeMin) {
  if (std::isnan(timeMin)) throw RangeException("Clock::timeMin: not a number not allowed");
  disarm();
  if (timeMin < never && notifier()) notifier()->facility_->arm(*this, timeMin);
}

void Clock::NotifieeConst::notifierIs(Ptr<Clock const> clock) {
  if (clock == notifier()) return;
  disarm();
  NotifieeOf<Clock const>::notifierIs(std::move(clock));
}

void Clock::NotifieeConst::moruDoZombieReactors(bool zombie) {
  if (zombie) disarm();
  NotifieeOf<Clock const>::moruDoZombieReactors(zombie);
}

void Clock::NotifieeConst::disarm() {
  if (timeMin_ < never) notifier()->facility_->disarm(*this);
}

void Clock::NotifieeConst::fire() {
  disarm();
  if (isRegisteredNotifiee()) Delivery::toOne(*this, timeMinId, nullptr);
}

bool ActivityFacility::Earlier::operator()(const Reactor* left, const Reactor* right) const {
  return left->timeMin_ != right->timeMin_ ? left->timeMin_ < right->timeMin_
                                           : left->armed_ < right->armed_;
}

ActivityFacility::ActivityFacility(Ptr<TimeSource> timeSource)
    : timeSource_(std::move(timeSource)) {
  if (!timeSource_) refuseNull("Moru::ActivityFacility::timeSource");
}

namespace {

Ptr<ActivityFacility>& currentFacility() {
  static Ptr<ActivityFacility> facility = create<ActivityFacility>(create<SteadyTime>());
  return facility;
}

}  // namespace

const Ptr<ActivityFacility>& ActivityFacility::current() { return currentFacility(); }

void ActivityFacility::currentIs(Ptr<ActivityFacility> facility) {
  if (!facility) refuseNull("Moru::ActivityFacility::current");
  currentFacility().swap(facility);
}

Ptr<Clock> ActivityFacility::clock() { return create<Clock>(Ptr<ActivityFacility>(this)); }

double ActivityFacility::nextDue() const {
  return due_.empty() ? Clock::never : (*due_.begin())->timeMin();
}

int ActivityFacility::pollTimeout() const {
  if (due_.empty()) return -1;
  const double milliseconds = std::ceil((nextDue() - now()) * 1000);
  constexpr double longest = std::numeric_limits<int>::max();
  return static_cast<int>(std::clamp(milliseconds, 0.0, longest));
}

// What fires may drop the last clock and the last pointer to the facility: each of these holds it.
std::size_t ActivityFacility::fireDue() {
  const Ptr<ActivityFacility> held(this);
  const double now = this->now();
  const std::uint64_t armedBefore = armed_;
  std::size_t fired = 0;
  for (;;) {
    auto next = due_.begin();
    while (next != due_.end() && (*next)->armed_ > armedBefore) ++next;
    if (next == due_.end() || (*next)->timeMin() > now) return fired;
    fire(**next);
    ++fired;
  }
}

bool ActivityFacility::fireNext(double until) {
  const Ptr<ActivityFacility> held(this);
  if (due_.empty() || nextDue() > until) return false;
  timeSource_->waitUntil(nextDue());
  fire(**due_.begin());
  return true;
}

void ActivityFacility::fire(Reactor& reactor) {
  if (watches_.empty()) return reactor.fire();
  struct Firing {
    Firing(const std::vector<FiringWatch*>& all, const Clock& clock) : watches(all) {
      for (FiringWatch* const watch : watches) watch->firingBegins(clock);
    }
    Firing(const Firing&) = delete;
    Firing& operator=(const Firing&) = delete;
    ~Firing() {
      for (FiringWatch* const watch : watches) watch->firingEnds();
    }

    const std::vector<FiringWatch*>& watches;
  };
  const Firing firing(watches_, *reactor.notifier());
  reactor.fire();
}

void ActivityFacility::runUntil(double until) {
  const Ptr<ActivityFacility> held(this);
  while (fireNext(until)) {
  }
  if (until < Clock::never) timeSource_->waitUntil(until);
}

void ActivityFacility::arm(Reactor& reactor, double timeMin) {
  reactor.timeMin_ = timeMin;
  reactor.armed_ = ++armed_;
  due_.insert(&reactor);
}

void ActivityFacility::disarm(Reactor& reactor) {
  due_.erase(&reactor);
  reactor.timeMin_ = Clock::never;
}

}  // namespace Moru
