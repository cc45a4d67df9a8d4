// Flood sets, from the controller's multipath entries and flood lists to the layer-2 RIB, in and
// out of convergence, and the deferred deletion of what no table asks for any more.
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Vxlan/World.h"

namespace Test {
namespace {

using testing::IsEmpty;
using Mode = Vxlan::BumReplicationMode;

struct FloodTest : testing::Test, Settled {
  explicit FloodTest(double timePerRead = 0) : Settled(timePerRead) {}

  // What MAC 1 has in VLAN 10.
  std::string mac1() const {
    const FloodSets sets = world.floodSets();
    const auto set = sets.find({10, 1});
    return set != sets.end() ? set->second : "none";
  }
};

TEST_F(FloodTest, OfAMultipathEntryComeBeforeThoseOfAFloodList) {
  for (const bool converging : {false, true}) {
    SCOPED_TRACE(converging);
    const auto expect = [&](const char* settled, const char* meanwhile) {
      EXPECT_EQ(mac1(), converging ? meanwhile : settled);
    };
    world.converging(converging);
    world.floodList(100, 1, {2, 3});
    EXPECT_TRUE(world.traced("listType: sendToAll vtepAddr len 2"));
    world.multiPath(100, 1, {4});
    EXPECT_TRUE(world.traced("(02:00:00:00:00:01) listType: sendToAny vtepAddr len 1"));
    expect("any 4", "any 2 3 4");
    world.trace();
    world.floodList(100, 1, {2, 5});
    EXPECT_TRUE(world.traced(" mac 02:00:00:00:00:01 found in macVtepMultiPathTable"));
    expect("any 4", "any 2 3 4");  // the list waits
    world.withdrawMultiPath(100, 1);
    EXPECT_TRUE(world.traced(" mac 02:00:00:00:00:01 found in macVtepFloodListTable"));
    EXPECT_EQ(mac1(), "all 2 5") << "and comes whole, and alone";
    world.multiPath(100, 1, {4});
    world.withdrawFloodList(100, 1);
    expect("any 4", "any 2 4 5");  // is the entry's, not the list's
    world.floodList(100, 1, {6});
    expect("any 4", "any 2 4 5");
    world.withdrawFloodList(100, 1);
    world.multiPath(100, 1, {});  // an empty entry is none
    EXPECT_TRUE(world.traced(" deleting 02:00:00:00:00:01 from vlanFloodSet"));
    EXPECT_THAT(world.floodSets(), IsEmpty()) << "withdrawn lists go at once, and the VLAN";
  }
  // Both are there before the client is.
  world.floodList(100, 1, {2});
  world.multiPath(100, 1, {3});
  world.restart();
  EXPECT_EQ(mac1(), "any 3");
  world.multiPath(100, 1, {});
  world.restart();
  EXPECT_EQ(mac1(), "all 2");
}

// The flag of a VTEP counts in a change of its own, and in what is swept; not in what a whole list
// installs, nor anywhere in a multipath entry (where the World sets it for even numbers).
TEST_F(FloodTest, JudgeTheFlagOfAVtepDifferently) {
  const auto list = create<VxlanController::MacVtepFloodListV2>();
  list->vtepIpFloodListIs(vtep(2), true);
  list->vtepIpFloodListIs(vtep(3), false);
  world.publish(100)->macVtepFloodListTableIs(mac(1), list);
  EXPECT_EQ(mac1(), "all 2 3");
  list->vtepIpFloodListIs(vtep(3), false);
  EXPECT_EQ(mac1(), "all 2");
  const auto machine =
      world.client->zepPerVniFdbStatusSm(VniExt(100))->macVtepFloodListTableSm(mac(1));
  machine->handleInitialized();
  EXPECT_EQ(mac1(), "all 2 3");
  machine->handleVtepIpFloodList();
  EXPECT_EQ(mac1(), "all 2");
  world.trace();
  list->vtepIpFloodListIs(vtep(3), true);
  list->vtepIpFloodListIs(vtep(2), false);
  EXPECT_TRUE(world.traced(" adding 10.0.0.3 to remoteVtepAddr"));
  EXPECT_TRUE(world.traced(" removing 10.0.0.2 from flood set"));
  EXPECT_EQ(mac1(), "all 3");
  world.multiPath(100, 2, {3, 5});
  EXPECT_EQ(world.floodSets().at({10, 2}), "any 3 5");
  // Of another kind than the client writes: on no list.
  const auto set = world.zepSde->vlanFloodSet(VlanId(10))->floodSet(mac(2));
  set->destSetIs(L2Rib::Dest(L2Rib::DestId{}, IntfId("Ethernet1")), true);
  set->destSetIs(L2Rib::Dest(L2Rib::DestId{}, L2Rib::DestDataVxlan{Vorn::Ip6Addr()}), true);
  world.multiPath(100, 2, {3, 5});
  EXPECT_EQ(set->destSets(), 2U);
}

TEST_F(FloodTest, AreWrittenOnlyWhileTheHardwareReplicatesForTheController) {
  world.bumStatus->bumReplicationModeIs(Mode::unknown);
  EXPECT_TRUE(world.traced(" Replication Mode is not zep  bum replication mode: 0"));
  world.floodList(100, 1, {4});
  world.zepSde->vlanFloodSetIs(VlanId(10))->floodSetIs(mac(9));
  world.withdrawMultiPath(100, 9);
  EXPECT_EQ(world.floodSets(), (FloodSets{{{10, 9}, "0:"}})) << "nothing is written nor removed";
  world.bumStatus->bumReplicationModeIs(Mode::controller);
  EXPECT_EQ(world.floodSets(), (FloodSets{{{10, 1}, "all 4"}, {{10, 9}, "0:"}}));
  world.client->localBumStatusIs(create<Vxlan::BumStatus>());
  EXPECT_THAT(world.floodSets(), IsEmpty()) << "another that is bound is looked at once";
}

TEST(FloodSetsInTheMiddle, SurviveWatchersThatTakeTheirReasonAway) {
  for (std::size_t i = 0; i < mishaps().size(); ++i) {
    for (const unsigned calls : {1U, 2U, 3U, 5U}) {
      SCOPED_TRACE(testing::Message() << "mishap " << i << " after " << calls);
      Settled settled;
      World& world = settled.world;
      world.floodList(100, 1, {2, 3, 4});
      world.multiPath(100, 2, {2, 3, 4});
      unsigned left = calls;
      const auto act = [&] {
        if (left != 0 && --left == 0) mishaps()[i](world);
      };
      const auto vlanFloodSet = world.zepSde->vlanFloodSet(VlanId(10));
      std::vector<Moru::Ptr<Moru::PtrInterface>> watchers{
          watch(world.zepSde, act), watch(vlanFloodSet, act),
          watch(vlanFloodSet->floodSet(mac(1)), act), watch(vlanFloodSet->floodSet(mac(2)), act)};
      world.floodList(100, 1, {3, 5, 6});
      if (world.client) world.multiPath(100, 2, {3, 5, 6});
      EXPECT_EQ(left, 0U);
      watchers.clear();
      world.repair();
      world.bumModes(Mode::unknown, Mode::unknown);
      world.bumModes(Mode::controller, Mode::unknown);
      EXPECT_EQ(world.floodSets(), expectedFloodSets(world));
    }
  }
}

// Five VLANs with a flood set each, of a MAC that leaves and one that loses a VTEP, on a time that
// moves on by a millisecond at every reading.
struct BumRunTest : FloodTest {
  BumRunTest() : FloodTest(0.001) {
    for (const int vlan : vlans) {
      world.mapAndImport("Vxlan1", vlan, vniOf(vlan));
      world.floodList(vniOf(vlan), 1, {2, 3});
    }
    world.rest();
  }
  static constexpr std::array<int, 5> vlans{10, 20, 30, 40, 50};
  static std::uint32_t vniOf(int vlan) {
    return vlan == 10 ? 100U : 1000U + static_cast<unsigned>(vlan);
  }

  // Leaves a run pending that has VTEP 2 to delete in these VLANs, in all by default.
  void convergeWithout(const std::vector<int>& stale = {vlans.begin(), vlans.end()}) {
    world.converging(true);
    for (const int vlan : stale) world.floodList(vniOf(vlan), 1, {3});
    world.converging(false);
  }
  // The VLANs in which VTEP 2 stands.
  std::vector<int> stale() const {
    std::vector<int> vlans;
    for (const auto& [key, text] : world.floodSets())
      if (text == "all 2 3") vlans.push_back(key.first);
    return vlans;
  }
  int bookmark() const {
    return world.client->bumDeferredDeleteBookmarkValid()
               ? world.client->bumDeferredDeleteBookmark().value()
               : 0;
  }
  bool inProgress() const { return world.zepConvergenceStatus->bumDeferredDeletionInProgress(); }
  // Nothing is left to do.
  void expectDone() const {
    EXPECT_FALSE(inProgress());
    EXPECT_EQ(bookmark(), 0);
    EXPECT_EQ(world.facility->nextDue(), Moru::Clock::never);
  }
};

TEST_F(BumRunTest, YieldsWhenItsTimeIsSpentAndComesToEveryVlanOnce) {
  convergeWithout();
  world.batch(2);
  EXPECT_TRUE(
      world.traced("processBumDeferredDeletes() init: true convergence in progress: false "
                   "vlan flood list count: 5 bum replication mode: 3"));
  EXPECT_TRUE(world.traced(" no bookmark. start fresh"));
  EXPECT_TRUE(world.traced(" flood dest count mismatch 2 > 1"));
  EXPECT_TRUE(world.traced(" reschedule, resume later from vlan 30 Deleted count 2"));
  EXPECT_EQ(bookmark(), 30);
  EXPECT_TRUE(inProgress());
  EXPECT_NEAR(world.facility->nextDue(), world.time->time() - 0.001, 1e-9) << "the time last read";
  world.batch(0);
  EXPECT_EQ(bookmark(), 30);
  // The bookmarked VLAN goes, one comes behind the run, and one before it.
  world.zepSde->vlanFloodSetDel(VlanId(30));
  world.zepSde->vlanFloodSetIs(VlanId(15));
  world.zepSde->vlanFloodSetIs(VlanId(45));
  world.batch(1);
  EXPECT_TRUE(world.traced(" starting at bookmark vlan 30"));
  EXPECT_TRUE(world.traced(" iter vlan 40"));
  EXPECT_EQ(bookmark(), 45);
  world.batch(2);
  EXPECT_TRUE(world.traced(" flood list deferred delete complete. Deleted 5"));
  EXPECT_FALSE(world.traced(" reached end")) << "what is before 30 has been visited";
  EXPECT_THAT(stale(), IsEmpty());
  expectDone();
}

TEST_F(BumRunTest, GoesRoundFromABookmarkThatItIsGiven) {
  world.client->bumDeferredDeleteBookmarkIs(VlanId(35));
  convergeWithout();
  world.client->bumDeferredDeleteBookmarkValidIs(true);
  world.batch(3);
  EXPECT_TRUE(world.traced(" reached end, resume from first entry startKey vlan 35"));
  EXPECT_EQ(stale(), (std::vector<int>{20, 30}));
  EXPECT_EQ(bookmark(), 20);
  world.batch(9);
  EXPECT_THAT(stale(), IsEmpty());
  expectDone();
}

TEST_F(BumRunTest, StartsOverAfterAnotherConvergence) {
  convergeWithout({30});
  world.batch(2);
  EXPECT_EQ(bookmark(), 30);
  world.converging(true);
  EXPECT_FALSE(inProgress());
  world.batch(9);
  EXPECT_EQ(stale(), (std::vector<int>{10, 20, 30, 40, 50})) << "nothing while converging";
  world.floodList(vniOf(10), 1, {3});  // behind where it was
  world.converging(false);
  world.batch(9);
  EXPECT_EQ(stale(), (std::vector<int>{20, 40, 50}));
  expectDone();
}

// Each of the three is begun by a watcher of what the run deletes first.
TEST_F(BumRunTest, StopsWhenWhatItDeletesBeginsAnotherTime) {
  const auto runWith = [this](const std::function<void()>& deed) {
    convergeWithout();
    bool done = false;
    const auto watcher = watch(world.zepSde->vlanFloodSet(VlanId(10))->floodSet(mac(1)), [&] {
      if (!std::exchange(done, true)) deed();
    });
    world.batch(9);
    EXPECT_TRUE(done);
    for (const int vlan : vlans) world.floodList(vniOf(vlan), 1, {2, 3});
  };
  runWith([this] { world.converging(true); });
  EXPECT_FALSE(inProgress());
  world.converging(false);
  world.rest();
  runWith([this] { convergeWithout({20}); });
  EXPECT_TRUE(inProgress()) << "the run that the second convergence has left is to come";
  EXPECT_EQ(bookmark(), 0);
  world.rest();
  expectDone();
  world.peerBumStatus->bumReplicationModeIs(Mode::controller);
  world.peerFloodSet(30, 7)->destSetIs(dest(7), true);
  runWith([this] { world.mlag(true); });
  EXPECT_EQ(world.floodSets().at({30, 7}), "0: 7") << "is the peer's";
  expectDone();
  world.converging(true);
  world.converging(false);
  world.batch(9);
  EXPECT_TRUE(world.traced(" no bumDeferredDeletion "));
  EXPECT_EQ(world.floodSets().at({30, 7}), "0: 7");
  expectDone();
}

TEST_F(BumRunTest, DeletesWhatNoTableAsksForAndKeepsTheRest) {
  world.addVti("Vxlan2");
  world.converging(true);
  world.unpublish(vniOf(20));
  world.zepSde->vlanFloodSetIs(VlanId(99))->floodSetIs(mac(1));  // mapped by nobody
  const auto strays = world.zepSde->vlanFloodSet(VlanId(30));
  strays->floodSetIs(mac(7))->destSetIs(dest(2), true);  // which no table has
  world.multiPath(vniOf(40), 1, {3, 9});  // its VTEPs, and not the list's that it stands before
  world.floodListOf(vniOf(50), 1)->vtepIpFloodListIs(vtep(2), false);
  world.withdrawFloodList(vniOf(10), 1);
  world.zepSde->vlanFloodSetIs(VlanId(10))->floodSetIs(mac(8));
  // Two VNIs of one VLAN.
  world.mapAndImport("Vxlan1", 60, 1060);
  world.mapAndImport("Vxlan2", 60, 600);
  world.floodList(600, 1, {4});
  world.floodList(600, 2, {5});
  world.floodList(1060, 1, {3});
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
  EXPECT_TRUE(world.traced(" deleting vlan 99"));
  EXPECT_TRUE(world.traced(" deleting vlan 30 mac 02:00:00:00:00:07"));
  EXPECT_TRUE(
      world.traced("fsIter->destSets() == vniFdbStatus->macVtepFloodListTable( macAddr ) "
                   "->vtepIpFloodLists()"))
      << "a VTEP whose flag is false is on the list";
}

}  // namespace
}  // namespace Test
