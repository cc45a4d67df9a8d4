#include <algorithm>
#include <cmath>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <rapidcheck/gtest.h>
#include <vector>

#include "framework/Moru/ActivityFacility.h"
#include "framework/Moru/Exception.h"

namespace {

using Moru::ActivityFacility;
using Moru::Clock;
using Moru::create;
using Moru::Ptr;
using testing::ElementsAre;

class Alarm final : public Clock::NotifieeConst {
 public:
  Alarm(const Ptr<ActivityFacility>& facility, std::function<void()> fired)
      : fired_(std::move(fired)) {
    notifierIs(facility->clock());
    hasNotificationActiveIs(true);
  }
  void onAttribute(Moru::AttributeId attribute, const void*) override {
    if (attribute == Clock::timeMinId) fired_();
  }

 private:
  std::function<void()> fired_;
};

struct ClockTest : testing::Test {
  Ptr<Alarm> alarm(int number) {
    return create<Alarm>(facility, [this, number] { log.push_back(number); });
  }

  Ptr<Moru::VirtualTime> time = create<Moru::VirtualTime>(100.0);
  Ptr<ActivityFacility> facility = create<ActivityFacility>(time);
  std::vector<int> log;
};

TEST_F(ClockTest, TellsWhenItIsDueAndMovesTimeNoFurther) {
  const auto late = alarm(1);
  const auto past = alarm(2);
  EXPECT_EQ(facility->pollTimeout(), -1);
  EXPECT_THROW(late->timeMinIs(std::nan("")), Moru::RangeException);
  late->timeMinIs(101);
  past->timeMinIs(-std::numeric_limits<double>::infinity());
  EXPECT_EQ(facility->pollTimeout(), 0);
  facility->runUntil(100.9);
  EXPECT_THAT(log, ElementsAre(2));
  EXPECT_EQ(time->time(), 100.9);
  EXPECT_EQ(facility->pollTimeout(), 100);
  facility->runUntil(Clock::never);
  EXPECT_THAT(log, ElementsAre(2, 1));
  EXPECT_EQ(time->time(), 101) << "moved to the last due time, not beyond";
}

TEST_F(ClockTest, IsDisarmedBeforeItFiresAndMayRearmDisarmAndDropInTheFiring) {
  int left = 3;
  Ptr<Alarm> other = alarm(9);
  Ptr<Alarm> self;
  self = create<Alarm>(facility, [&] {
    EXPECT_EQ(self->timeMin(), Clock::never);
    if (--left > 0) self->timeMinIs(facility->now());
    if (left == 0) self = nullptr;   // its own last pointer
    if (left == 1) other = nullptr;  // armed, and due next
  });
  self->timeMinIs(100);
  other->timeMinIs(100.1);
  // A foreign loop: one turn each, so that work in between is served.
  EXPECT_EQ(facility->fireDue(), 1U);
  EXPECT_EQ(left, 2);
  EXPECT_EQ(facility->fireDue(), 1U);
  EXPECT_EQ(facility->nextDue(), 100) << "only the rearmed one is left";
  EXPECT_EQ(facility->fireDue(), 1U);
  EXPECT_EQ(facility->nextDue(), Clock::never);
  EXPECT_EQ(self, nullptr);
  EXPECT_TRUE(log.empty());
}

// A sanitizer sees what touches the facility after that; the time says that the loop went on to its
// end.
TEST_F(ClockTest, OutlivesAFiringThatDropsItsClockAndTheFacility) {
  const std::function<void()> loops[] = {[&] { EXPECT_EQ(facility->fireDue(), 1U); },
                                         [&] { EXPECT_TRUE(facility->fireNext(100)); },
                                         [&] { facility->runUntil(200); }};
  for (const auto& loop : loops) {
    facility = create<ActivityFacility>(time);
    Ptr<Alarm> alarm;
    alarm = create<Alarm>(facility, [&] { alarm = nullptr, facility = nullptr; });
    alarm->timeMinIs(100);
    loop();
    EXPECT_EQ(facility, nullptr);
  }
  EXPECT_EQ(time->time(), 200);
  EXPECT_EQ(time->references(), 1U);
}

TEST_F(ClockTest, NothingFiresIntoAReactorThatIsGoneDetachedOrOff) {
  auto gone = alarm(1);
  auto zombie = alarm(2);
  auto moved = alarm(3);
  auto off = alarm(4);
  auto unregistered = alarm(5);
  for (const auto& each : {gone, zombie, moved, off, unregistered}) each->timeMinIs(101);
  unregistered->isRegisteredNotifieeIs(false);
  gone = nullptr;
  zombie->moruDoZombieReactors(true);
  moved->notifierIs(facility->clock());
  off->hasNotificationActiveIs(false);
  facility->runUntil(102);
  EXPECT_TRUE(log.empty());
  moved->timeMinIs(103);
  zombie->timeMinIs(103);
  facility->runUntil(103);
  EXPECT_THAT(log, ElementsAre(3));
}

TEST_F(ClockTest, MovesByEachReadingIfToldSo) {
  time = create<Moru::VirtualTime>(10.0, 0.5);
  facility = create<ActivityFacility>(time);
  EXPECT_EQ(facility->now(), 10.0);
  EXPECT_EQ(facility->now(), 10.5);
  EXPECT_EQ(time->time(), 11.0);
  // A clock is due for a time by its due time alone, though readings have moved past it.
  const auto one = alarm(1);
  one->timeMinIs(10.75);
  EXPECT_FALSE(facility->fireNext(10.5));
  EXPECT_TRUE(facility->fireNext(10.75));
  EXPECT_THAT(log, ElementsAre(1));
  EXPECT_EQ(time->time(), 11.0) << "time only moves forward";
}

TEST_F(ClockTest, RunsTheSameLoopInSteadyTime) {
  facility = ActivityFacility::current();
  const double due = facility->now() + 0.002;
  const auto one = alarm(1);
  one->timeMinIs(due);
  EXPECT_GE(facility->pollTimeout(), 0);
  facility->runUntil(Clock::never);
  EXPECT_GE(facility->now(), due);
  EXPECT_THAT(log, ElementsAre(1));
}

// Clocks that arm and disarm each other inside firings, against a search through all of them.
RC_GTEST_PROP(Clocks, FireAsAPlainSearchSays,
              (const std::vector<std::vector<std::pair<int, int>>>& scripts)) {
  constexpr std::size_t clocks = 5;
  constexpr std::size_t mostFirings = 60;
  // What a firing does to the clocks, itself included.
  const auto run = [&](std::size_t clock, std::size_t firing, double now, const auto& arm) {
    if (scripts.empty() || firing >= mostFirings) return;
    for (const auto& [which, number] : scripts[(clock + firing) % scripts.size()]) {
      const int delay = number % 7 - 1;
      arm(static_cast<unsigned>(which) % clocks, delay < 0 ? Clock::never : now + delay);
    }
  };
  std::vector<std::pair<std::size_t, double>> fired;
  std::vector<std::pair<std::size_t, double>> expected;

  const auto time = create<Moru::VirtualTime>();
  const auto facility = create<ActivityFacility>(time);
  std::vector<Ptr<Alarm>> alarms;
  const auto arm = [&](std::size_t clock, double due) { alarms[clock]->timeMinIs(due); };
  std::vector<std::pair<double, int>> armed(clocks);  // when each is due, and its turn
  int turns = 0;
  const auto armPlain = [&](std::size_t clock, double due) { armed[clock] = {due, ++turns}; };
  for (std::size_t clock = 0; clock < clocks; ++clock) {
    alarms.push_back(create<Alarm>(facility, [&, clock] {
      fired.emplace_back(clock, time->time());
      run(clock, fired.size(), time->time(), arm);
    }));
    arm(clock, static_cast<double>(clock % 2));
    armPlain(clock, static_cast<double>(clock % 2));
  }
  facility->runUntil(Clock::never);
  for (double now = 0;;) {
    const auto next = std::min_element(armed.begin(), armed.end());
    if (next->first == Clock::never) break;
    now = std::max(now, next->first);
    next->first = Clock::never;
    expected.emplace_back(next - armed.begin(), now);
    run(expected.back().first, expected.size(), now, armPlain);
  }
  RC_ASSERT(fired == expected);
}

}  // namespace
