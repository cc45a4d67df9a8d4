// The two runs of deferred deletion: what they have in common, once for each, and what the run over
// the flood sets deletes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Vxlan/World.h"

namespace Test {
namespace {

using testing::ElementsAre;
using Items = std::vector<int>;
using Mode = Vxlan::BumReplicationMode;

// Ten items, from which a run deletes what the controller has withdrawn: for the run over the hosts
// those of VLAN 10, for the one over the flood sets VTEP 2 of MAC 1 in VLANs 10 to 100. Each
// reading of the time moves it on, so that a budget is a number of items.
struct DeferredRun : Settled {
  explicit DeferredRun(bool bum) : Settled(tick), isBum(bum) {
    for (int item = 1; item <= 10; ++item) {
      if (isBum) world.mapAndImport("Vxlan1", vlanOf(item), vniOf(item));
      announce(item);
    }
    world.rest();
  }

  static MacVlanPair key(int item) { return {mac(static_cast<unsigned>(item)), VlanId(10)}; }
  static int itemOf(const MacVlanPair& key) {
    return static_cast<int>(key.mac.value() - mac(0).value());
  }
  static int vlanOf(int item) { return 10 * item; }
  static std::uint32_t vniOf(int item) { return 100 * static_cast<unsigned>(item); }

  void announce(int item) {
    if (isBum) return world.floodList(vniOf(item), 1, {2, 3});
    world.host(100, static_cast<unsigned>(item), 2);
  }
  void withdraw(int item) {
    if (isBum) return world.floodList(vniOf(item), 1, {3});
    world.withdraw(100, static_cast<unsigned>(item));
  }
  void remove(int item) {  // from what the run walks over
    world.zepSde->vlanFloodSetDel(VlanId(vlanOf(item)));
    world.client->deleteReceivedTableEntry(key(item));
  }
  // Leaves a run pending.
  void convergeWithout(const Items& items) {
    world.converging(true);
    for (const int item : items) withdraw(item);
    world.converging(false);
  }
  Items standing() const {
    Items items;
    for (const auto& [key, text] : world.floodSets())
      if (text == "all 2 3") items.push_back(key.first / 10);
    for (const auto& [key, host] : world.l2RibZepInput->host()) items.push_back(itemOf(key));
    return items;
  }
  auto watchItem(int item, const OnChange& act) const {
    using Watch = Ptr<Moru::PtrInterface>;
    if (!isBum) return Watch(watch(world.l2RibZepInput, act));
    return Watch(watch(world.zepSde->vlanFloodSet(VlanId(vlanOf(item)))->floodSet(mac(1)), act));
  }

  int bookmark() const {  // 0 if there is none
    const auto& client = *world.client;
    if (isBum && !client.bumDeferredDeleteBookmarkValid()) return 0;
    if (isBum) return client.bumDeferredDeleteBookmark().value() / 10;
    const MacVlanPair bookmark = client.unicastDeferredDeleteBookmark();
    return bookmark == MacVlanPair() ? 0 : itemOf(bookmark);
  }
  void bookmarkIs(int item) const {
    world.client->unicastDeferredDeleteBookmarkIs(key(item));
    world.client->bumDeferredDeleteBookmarkIs(VlanId(vlanOf(item)));
    world.client->bumDeferredDeleteBookmarkValidIs(true);
  }
  bool inProgress() const {
    return isBum ? world.zepConvergenceStatus->bumDeferredDeletionInProgress()
                 : world.zepConvergenceStatus->unicastDeferredDeletionInProgress();
  }

  // Fires what is due with a budget of so many items, and tells how often the time was read: once
  // to fire, once for the deadline, then before each item.
  double batch(int items) {
    const double before = world.time->time();
    world.client->maxProcessTimeIs((items + 1) * tick);  // the reading after the last is too late
    world.trace();
    world.facility->fireDue();
    world.audit();
    return (world.time->time() - before) / tick;
  }
  // One that stops after so many items, at this one.
  void batchYields(int items, int next) {
    const double before = world.time->time();
    EXPECT_EQ(batch(items), items + 3);
    EXPECT_EQ(world.facility->nextDue(), before + (items + 2) * tick)
        << "the reading that ended it";
    EXPECT_EQ(bookmark(), next);
    EXPECT_TRUE(inProgress());
  }
  // One that comes to its end after so many.
  void batchCompletes(int items) {
    EXPECT_EQ(batch(100), items + 2);
    expectDone();
  }
  void expectDone() const {
    EXPECT_FALSE(inProgress());
    EXPECT_EQ(bookmark(), 0);
    EXPECT_EQ(world.facility->nextDue(), Moru::Clock::never);
  }

  const bool isBum;
};

struct BothRuns : testing::TestWithParam<bool>, DeferredRun {
  BothRuns() : DeferredRun(GetParam()) {}
};
INSTANTIATE_TEST_SUITE_P(Bum, BothRuns, testing::Bool());

TEST_P(BothRuns, YieldAtTheDeadlineAndResumeAtTheItemNotYetExamined) {
  EXPECT_EQ(world.client->maxProcessTime(), 0.01);
  convergeWithout({2, 5, 9});
  batchYields(3, 4);
  EXPECT_THAT(standing(), ElementsAre(1, 3, 4, 5, 6, 7, 8, 9, 10));
  EXPECT_EQ(isBum, world.traced(" flood dest count mismatch 2 > 1"));
  batchYields(0, 4);
  batchYields(1, 5);
  EXPECT_FALSE(world.traced("no bookmark. start fresh"));
  batchYields(1, 6);
  EXPECT_THAT(standing(), ElementsAre(1, 3, 4, 6, 7, 8, 9, 10));
  batchCompletes(isBum ? 5 : 4);  // the hosts' run ends with the last mark
  EXPECT_THAT(standing(), ElementsAre(1, 3, 4, 6, 7, 8, 10));
}

TEST_P(BothRuns, GoRoundFromABookmarkThatTheyAreGiven) {
  convergeWithout({2, 8});
  batchYields(1, 2);
  bookmarkIs(7);  // from which the flood sets' run goes the whole round anew
  batchYields(2, 9);
  EXPECT_THAT(standing(), ElementsAre(1, 2, 3, 4, 5, 6, 7, 9, 10));
  batchCompletes(isBum ? 8 : 4);
  EXPECT_THAT(standing(), ElementsAre(1, 3, 4, 5, 6, 7, 9, 10));
}

TEST_P(BothRuns, SurviveWhatHappensBetweenTheirBatches) {
  convergeWithout({1, 3, 5, 7, 9});
  batchYields(4, 5);
  announce(5);
  batchYields(1, 6);
  remove(6);
  batchYields(1, 8);
  if (isBum) world.zepSde->vlanFloodSetIs(VlanId(15));  // where it has been
  batchCompletes(isBum ? 3 : 2);
  EXPECT_THAT(standing(), ElementsAre(2, 4, 5, 8, 10));
}

TEST_P(BothRuns, WaitForTheEndOfANewConvergence) {
  convergeWithout({2, 8});
  batchYields(4, 5);
  world.converging(true);
  EXPECT_FALSE(inProgress());
  EXPECT_NE(world.facility->nextDue(), Moru::Clock::never) << "the clock is left as it is";
  EXPECT_EQ(batch(100), 1);
  EXPECT_EQ(standing().size(), 9U);
  EXPECT_EQ(world.facility->nextDue(), Moru::Clock::never);
  announce(8);
  withdraw(7);
  withdraw(1);
  world.converging(false);
  EXPECT_TRUE(inProgress());
  batchYields(1, isBum ? 2 : 6);  // the flood sets' starts over
  batchCompletes(isBum ? 9 : 6);
  EXPECT_THAT(standing(), ElementsAre(3, 4, 5, 6, 8, 9, 10));
}

TEST_P(BothRuns, CopeWithWatchersThatChangeTheTableUnderThem) {
  convergeWithout({2, 3, 4, 9});
  bool done = false;
  const auto watcher = watchItem(2, [&](auto...) {
    if (std::exchange(done, true)) return;
    remove(3);  // the next one
    announce(4);
    withdraw(10);
  });
  batch(100);
  expectDone();
  EXPECT_THAT(standing(), ElementsAre(1, 4, 5, 6, 7, 8));
}

TEST_P(BothRuns, EndAtOnceWithNothingToDoAndDoNothingUninitialized) {
  convergeWithout({2});
  world.client->initializedIs(false);
  world.client->processUnicastDeferredDeletes();
  world.client->processBumDeferredDeletes();
  EXPECT_TRUE(world.traced("processBumDeferredDeletes() init: false convergence in progress: "));
  EXPECT_EQ(standing().size(), 10U);
  world.client->initializedIs(true);
  bookmarkIs(3);
  announce(2);
  if (isBum) world.zepSde->vlanFloodSetDelAll();
  EXPECT_EQ(batch(5), 1);
  EXPECT_TRUE(world.traced(isBum ? " no bumDeferredDeletion " : " no markedForDel entries"));
  expectDone();
}

struct BumRun : testing::Test, DeferredRun {
  BumRun() : DeferredRun(true) {}
};

// Each of the three is begun by a watcher of what the run deletes first.
TEST_F(BumRun, StopsWhenWhatItDeletesBeginsAnotherTime) {
  const auto runWith = [this](const std::function<void()>& deed) {
    convergeWithout({1, 2, 3, 4, 5});
    bool done = false;
    const auto watcher = watchItem(1, [&](auto...) {
      if (!std::exchange(done, true)) deed();
    });
    batch(9);
    EXPECT_TRUE(done);
    for (const int item : {1, 2, 3, 4, 5}) announce(item);
  };
  runWith([this] { world.converging(true); });
  EXPECT_FALSE(inProgress());
  world.converging(false);
  world.rest();
  runWith([this] { convergeWithout({2}); });
  EXPECT_TRUE(inProgress()) << "the run that the second convergence has left is to come";
  EXPECT_EQ(bookmark(), 0);
  world.rest();
  expectDone();
  world.peerBumStatus->bumReplicationModeIs(Mode::controller);
  world.peerFloodSet(30, 7)->destSetIs(dest(7), true);
  runWith([this] { world.mlag(true); });
  EXPECT_EQ(world.floodSets().at({30, 7}), "0: 7") << "is the peer's";
  expectDone();
}

TEST_F(BumRun, LeavesAloneWhatTheControllerDoesNotReplicate) {
  for (const bool mlag : {false, true}) {
    world.mlag(mlag);
    world.bumStatus->bumReplicationModeIs(mlag ? Mode::controller : Mode::unknown);
    world.zepSde->vlanFloodSetIs(VlanId(99));
    convergeWithout({});
    batch(9);
    EXPECT_TRUE(world.floodSets().contains({99, 0})) << mlag;
    expectDone();
  }
}

TEST_F(BumRun, ComesToEveryVlanNumber) {
  for (const bool given : {false, true}) {
    for (const int vlan : {1, 69, 4094}) world.zepSde->vlanFloodSetIs(VlanId(vlan));
    convergeWithout({});
    if (given) bookmarkIs(7);
    batch(100);
    EXPECT_EQ(world.floodSets().size(), 10U);
    expectDone();
  }
}

TEST_F(BumRun, DeletesWhatNoTableAsksForAndKeepsTheRest) {
  world.addVti("Vxlan2");
  world.converging(true);
  for (const int item : {2, 7, 8, 9, 10}) world.unpublish(vniOf(item));
  world.zepSde->vlanFloodSetIs(VlanId(99))->floodSetIs(mac(1));  // mapped by nobody
  const auto strays = world.zepSde->vlanFloodSet(VlanId(30));
  strays->floodSetIs(mac(7))->destSetIs(dest(2), true);  // which no table has
  world.multiPath(vniOf(4), 1, {3, 9});  // its VTEPs, and not the list's that it stands before
  world.floodListOf(vniOf(5), 1)->vtepIpFloodListIs(vtep(2), false);
  world.withdrawFloodList(vniOf(1), 1);
  world.zepSde->vlanFloodSetIs(VlanId(10))->floodSetIs(mac(8));
  // Two VNIs of one VLAN.
  world.mapAndImport("Vxlan2", 60, 601);
  world.floodList(601, 1, {4});
  world.floodList(601, 2, {5});
  world.floodList(600, 1, {3});
  world.zepSde->vlanFloodSet(VlanId(60))->floodSet(mac(1))->destSetIs(dest(9), true);
  world.converging(false);
  world.trace();
  world.rest();
  EXPECT_EQ(world.floodSets(), (FloodSets{{{10, 0}, "empty"},
                                          {{30, 1}, "all 2 3"},
                                          {{40, 1}, "any 3 9"},
                                          {{50, 1}, "all 3"},
                                          {{60, 1}, "all 3 4"},
                                          {{60, 2}, "all 5"}}));
  EXPECT_TRUE(world.traced(" complete. Deleted 12"));
}

// A list and what stands for it, told when they differ and no other time.
TEST_F(BumRun, ComparesItsCountsBeforeAndAfterTheSweep) {
  const auto set = world.zepSde->vlanFloodSet(VlanId(10))->floodSet(mac(1));
  const auto counts = [&](std::size_t extra) {
    world.converging(true);
    for (std::uint32_t number = 0; number < extra; ++number)
      set->destSetIs(dest(90 + number), true);
    world.converging(false);
    world.trace();
    world.rest();
    return std::tuple(world.traced("mismatch"), world.traced("destSets() >= "),
                      world.traced("destSets() == "));
  };
  EXPECT_EQ(counts(0), std::tuple(false, false, false));
  EXPECT_EQ(counts(1), std::tuple(true, false, false));
  set->destSetDel(dest(3));
  EXPECT_EQ(counts(0), std::tuple(false, true, true));
  EXPECT_TRUE(world.traced("macVtepFloodListTable( macAddr )"));
  world.multiPath(100, 1, {4, 5});
  set->destSetDel(dest(4));
  EXPECT_EQ(counts(0), std::tuple(false, true, true));
  EXPECT_TRUE(world.traced("macVtepMultiPathTable( macAddr )"));
}

}  // namespace
}  // namespace Test
