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
  explicit Alarm(std::function<void()> fired) : fired_(std::move(fired)) {}
  void onAttribute(Moru::AttributeId attribute, const void*) override {
    if (attribute == Clock::timeMinId) fired_();
  }

 private:
  std::function<void()> fired_;
};

struct ClockTest : testing::Test {
  Ptr<Alarm> alarm(std::function<void()> fired) {
    auto alarm = create<Alarm>(std::move(fired));
    alarm->notifierIs(facility->clock());
    alarm->hasNotificationActiveIs(true);
    return alarm;
  }
  Ptr<Alarm> alarm(int number) {
    return alarm([this, number] { log.push_back(number); });
  }

  Ptr<Moru::VirtualTime> time = create<Moru::VirtualTime>(100.0);
  Ptr<ActivityFacility> facility = create<ActivityFacility>(time);
  std::vector<int> log;
};

TEST_F(ClockTest, FiresInOrderOfDueTimeThenOfArming) {
  const auto one = alarm(1);
  const auto two = alarm(2);
  const auto three = alarm(3);
  const auto past = alarm(4);
  EXPECT_EQ(facility->pollTimeout(), -1);
  two->timeMinIs(101);
  one->timeMinIs(101);
  three->timeMinIs(100.5);
  past->timeMinIs(-std::numeric_limits<double>::infinity());
  EXPECT_EQ(facility->pollTimeout(), 0);
  facility->runUntil(100.9);
  EXPECT_THAT(log, ElementsAre(4, 3));
  EXPECT_EQ(time->time(), 100.9);
  EXPECT_EQ(facility->pollTimeout(), 100);
  two->timeMinIs(101);  // armed anew: behind the other
  facility->runUntil(Clock::never);
  EXPECT_THAT(log, ElementsAre(4, 3, 1, 2));
  EXPECT_EQ(time->time(), 101) << "moved to the last due time, not beyond";
  EXPECT_EQ(one->timeMin(), Clock::never);
  EXPECT_THROW(one->timeMinIs(std::nan("")), Moru::RangeException);
}

TEST_F(ClockTest, IsDisarmedBeforeItFiresAndMayRearmDisarmAndDropInTheFiring) {
  int left = 3;
  Ptr<Alarm> other = alarm(9);
  Ptr<Alarm> self;
  self = alarm([&] {
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

TEST_F(ClockTest, NothingFiresIntoAReactorThatIsGoneDetachedOrOff) {
  auto gone = alarm(1);
  auto zombie = alarm(2);
  auto moved = alarm(3);
  auto off = alarm(4);
  for (const auto& each : {gone, zombie, moved, off}) each->timeMinIs(101);
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

TEST(VirtualTime, MovesByEachReadingIfToldSo) {
  auto time = create<Moru::VirtualTime>(10.0, 0.5);
  auto facility = create<ActivityFacility>(time);
  EXPECT_EQ(facility->now(), 10.0);
  EXPECT_EQ(facility->now(), 10.5);
  EXPECT_EQ(time->time(), 11.0);
  // A clock is due for a time by its due time alone, though readings have moved past it.
  bool fired = false;
  auto alarm = create<Alarm>([&fired] { fired = true; });
  alarm->notifierIs(facility->clock());
  alarm->hasNotificationActiveIs(true);
  alarm->timeMinIs(10.75);
  EXPECT_FALSE(facility->fireNext(10.5));
  EXPECT_TRUE(facility->fireNext(10.75));
  EXPECT_TRUE(fired);
  EXPECT_EQ(time->time(), 11.0) << "time only moves forward";
}

TEST(SteadyTime, RunsTheSameLoop) {
  const auto facility = ActivityFacility::current();
  const double before = facility->now();
  double firedAt = 0;
  auto alarm = create<Alarm>([&] { firedAt = facility->now(); });
  alarm->notifierIs(facility->clock());
  alarm->hasNotificationActiveIs(true);
  alarm->timeMinIs(before + 0.002);
  EXPECT_GE(facility->pollTimeout(), 0);
  facility->runUntil(Clock::never);
  EXPECT_GE(firedAt, before + 0.002);
}

// What a firing does to the clocks, itself included.
struct Step {
  int clock = 0;
  int delay = 0;  // hundredths; negative disarms
};

// Clocks that arm and disarm each other inside firings, against a search through all of them.
RC_GTEST_PROP(Clocks, FireAsAPlainSearchSays,
              (const std::vector<std::vector<std::pair<int, int>>>& scripts)) {
  constexpr int clocks = 5;
  constexpr int mostFirings = 60;
  const auto decode = [](const std::pair<int, int>& raw) {
    return Step{std::abs(raw.first % clocks), raw.second % 7 - 1};
  };
  const auto scriptOf = [&](int clock, int firing) {
    std::vector<Step> steps;
    if (scripts.empty() || firing >= mostFirings) return steps;
    for (const auto& raw : scripts[static_cast<std::size_t>(clock + firing) % scripts.size()])
      steps.push_back(decode(raw));
    return steps;
  };

  auto time = create<Moru::VirtualTime>();
  auto facility = create<ActivityFacility>(time);
  std::vector<Ptr<Alarm>> alarms;
  std::vector<std::pair<int, double>> fired;
  for (int clock = 0; clock < clocks; ++clock) {
    alarms.push_back(create<Alarm>([&, clock] {
      const int firing = static_cast<int>(fired.size());
      fired.emplace_back(clock, time->time());
      for (const Step& step : scriptOf(clock, firing))
        alarms[static_cast<std::size_t>(step.clock)]->timeMinIs(
            step.delay < 0 ? Clock::never : time->time() + step.delay);
    }));
    alarms.back()->notifierIs(facility->clock());
    alarms.back()->hasNotificationActiveIs(true);
    alarms.back()->timeMinIs(clock % 2);
  }
  facility->runUntil(Clock::never);

  std::vector<std::pair<int, double>> expected;
  struct Armed {
    double due = Clock::never;
    int order = 0;
  };
  std::vector<Armed> armed(clocks);
  int order = 0;
  double now = 0;
  for (int clock = 0; clock < clocks; ++clock)
    armed[static_cast<std::size_t>(clock)] = {static_cast<double>(clock % 2), ++order};
  for (;;) {
    const auto next = std::min_element(armed.begin(), armed.end(), [](auto& left, auto& right) {
      return std::pair(left.due, left.order) < std::pair(right.due, right.order);
    });
    if (next->due == Clock::never) break;
    now = std::max(now, next->due);
    next->due = Clock::never;
    const int clock = static_cast<int>(next - armed.begin());
    const int firing = static_cast<int>(expected.size());
    expected.emplace_back(clock, now);
    for (const Step& step : scriptOf(clock, firing))
      armed[static_cast<std::size_t>(step.clock)] = {
          step.delay < 0 ? Clock::never : now + step.delay, ++order};
  }
  RC_ASSERT(fired == expected);
}

}  // namespace
