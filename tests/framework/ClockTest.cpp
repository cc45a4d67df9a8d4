#include <cmath>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
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

TEST_F(ClockTest, FiresByTheDueTimeAndThenByTheOrderOfArming) {
  std::vector<Ptr<Alarm>> alarms;
  alarms.reserve(8);
  for (int number = 0; number < 8; ++number) alarms.push_back(alarm(number));
  for (const std::size_t number : {3, 0, 5, 1, 6, 7}) alarms[number]->timeMinIs(101);
  alarms[4]->timeMinIs(102);
  alarms[2]->timeMinIs(100.75);
  alarms[3]->timeMinIs(101);  // anew: behind the others of its time
  alarms[4]->timeMinIs(100.5);
  alarms[5]->timeMinIs(Clock::never);
  const auto first = create<Alarm>(facility, [&] {
    alarms[6]->timeMinIs(Clock::never);
    alarms[0]->timeMinIs(101);
    alarms[7]->timeMinIs(100);  // past, and so the next
  });
  first->timeMinIs(100.25);
  facility->runUntil(Clock::never);
  EXPECT_THAT(log, ElementsAre(7, 4, 2, 1, 3, 0));
}

}  // namespace
