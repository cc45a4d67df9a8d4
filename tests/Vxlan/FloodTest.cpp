// Flood sets, from the controller's multipath entries and flood lists to the layer-2 RIB, in and
// out of convergence, and the deferred deletion of what no table asks for any more.
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/Moru/Exception.h"
#include "tests/Vxlan/World.h"

namespace {

using namespace Test;
using testing::HasSubstr;
using testing::IsEmpty;
using Mode = Vxlan::BumReplicationMode;

// One VTI that maps VLAN 10 to VNI 100, and a client in controller mode, outside convergence.
struct Flooded {
  explicit Flooded(double timePerRead = 0) : world(timePerRead) {
    world.addVti("Vxlan1");
    world.mapAndImport("Vxlan1", 10, 100);
    world.publish(100);
    world.bumModes(Mode::controller, Mode::unknown);
    world.converging(false);
    world.start();
    world.rest();
  }
  ~Flooded() { world.audit(); }
  Flooded(const Flooded&) = delete;
  Flooded& operator=(const Flooded&) = delete;

  // What MAC 1 has in VLAN 10.
  std::string mac1() const {
    const FloodSets sets = world.floodSets();
    const auto set = sets.find({10, 1});
    return set != sets.end() ? set->second : "none";
  }

  World world;
};

struct FloodTest : testing::Test, Flooded {};

TEST_F(FloodTest, FollowTheControllersTables) {
  world.floodList(100, 1, {2, 3});
  EXPECT_EQ(mac1(), "all 2 3");
  EXPECT_TRUE(world.traced("listType: sendToAll vtepAddr len 2"));
  world.floodList(100, 1, {3, 4});
  EXPECT_EQ(mac1(), "all 3 4");
  EXPECT_TRUE(world.traced(" adding 10.0.0.4 to remoteVtepAddr"));
  EXPECT_TRUE(world.traced(" removing 10.0.0.2 from flood set"));
  world.multiPath(100, 2, {5, 6});
  EXPECT_TRUE(world.traced("(02:00:00:00:00:02) listType: sendToAny vtepAddr len 2"));
  world.multiPath(100, 2, {6, 7});
  EXPECT_EQ(world.floodSets(), (FloodSets{{{10, 1}, "all 3 4"}, {{10, 2}, "any 6 7"}}));
  world.withdrawFloodList(100, 1);
  EXPECT_TRUE(world.traced(" deleting 02:00:00:00:00:01 from vlan 10"));
  world.multiPath(100, 2, {});  // an empty list is none
  EXPECT_TRUE(world.traced(" deleting 02:00:00:00:00:02 from vlanFloodSet"));
  EXPECT_THAT(world.floodSets(), IsEmpty()) << "the VLAN goes with its last MAC";
}

TEST_F(FloodTest, OfAMultipathEntryComeBeforeThoseOfAFloodList) {
  for (const bool converging : {false, true}) {
    SCOPED_TRACE(converging);
    world.converging(converging);
    world.floodList(100, 1, {2, 3});
    world.multiPath(100, 1, {4});
    EXPECT_EQ(mac1(), converging ? "any 2 3 4" : "any 4");
    world.trace();
    world.floodList(100, 1, {2, 5});
    EXPECT_TRUE(world.traced(" mac 02:00:00:00:00:01 found in macVtepMultiPathTable"));
    EXPECT_EQ(mac1(), converging ? "any 2 3 4" : "any 4") << "the list waits";
    world.withdrawMultiPath(100, 1);
    EXPECT_TRUE(world.traced(" mac 02:00:00:00:00:01 found in macVtepFloodListTable"));
    EXPECT_EQ(mac1(), "all 2 5") << "and comes whole, and alone";
    world.multiPath(100, 1, {4});
    world.withdrawFloodList(100, 1);
    EXPECT_EQ(mac1(), converging ? "any 2 4 5" : "any 4") << "is the entry's, not the list's";
    world.floodList(100, 1, {6});
    EXPECT_EQ(mac1(), converging ? "any 2 4 5" : "any 4");
    world.withdrawFloodList(100, 1);
    world.withdrawMultiPath(100, 1);
    EXPECT_EQ(mac1(), "none") << "withdrawn lists go at once";
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

TEST_F(FloodTest, KeepVtepsDuringConvergenceAndTakeNewOnes) {
  world.floodList(100, 1, {2, 3});
  world.multiPath(100, 2, {2, 3});
  world.converging(true);
  world.floodList(100, 1, {3, 4});
  world.multiPath(100, 2, {3, 4});
  EXPECT_EQ(world.floodSets(), (FloodSets{{{10, 1}, "all 2 3 4"}, {{10, 2}, "any 2 3 4"}}));
  world.converging(false);
  EXPECT_TRUE(world.zepConvergenceStatus->bumDeferredDeletionInProgress());
  world.rest();
  EXPECT_EQ(world.floodSets(), (FloodSets{{{10, 1}, "all 3 4"}, {{10, 2}, "any 3 4"}}));
  EXPECT_FALSE(world.zepConvergenceStatus->bumDeferredDeletionInProgress());
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
  list->vtepIpFloodListIs(vtep(3), true);
  list->vtepIpFloodListIs(vtep(2), false);
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

TEST_F(FloodTest, StandInEveryVlanOfTheVni) {
  world.addVti("Vxlan2");
  world.addVti("Vxlan3");
  world.mapAndImport("Vxlan2", 20, 100);
  world.vlanVniMaps->vlanVniMapIs(IntfId("Vxlan3"));  // which maps nothing
  world.floodList(100, 1, {2});
  world.multiPath(100, 1, {3, 4});
  EXPECT_TRUE(world.traced(" no vlan-vni map found for vni: 100"));
  EXPECT_EQ(world.floodSets(), (FloodSets{{{10, 1}, "any 3 4"}, {{20, 1}, "any 3 4"}}));
  world.withdrawMultiPath(100, 1);
  EXPECT_EQ(world.floodSets(), (FloodSets{{{10, 1}, "all 2"}, {{20, 1}, "all 2"}}));
  world.withdrawFloodList(100, 1);
  EXPECT_THAT(world.floodSets(), IsEmpty());
}

TEST_F(FloodTest, AreWrittenOnlyWhileTheHardwareReplicatesForTheController) {
  world.floodList(100, 1, {2});
  world.multiPath(100, 2, {3});
  world.bumStatus->bumReplicationModeIs(Mode::unknown);
  EXPECT_TRUE(world.traced(" Replication Mode is not zep  bum replication mode: 0"));
  EXPECT_THAT(world.floodSets(), IsEmpty());
  world.floodList(100, 1, {4});
  world.floodList(100, 3, {5});
  world.multiPath(100, 2, {6});
  world.zepSde->vlanFloodSetIs(VlanId(10))->floodSetIs(mac(9));
  world.withdrawMultiPath(100, 9);
  EXPECT_EQ(world.floodSets(), (FloodSets{{{10, 9}, "0:"}})) << "nothing is written nor removed";
  world.bumStatus->bumReplicationModeIs(Mode::controller);
  EXPECT_EQ(
      world.floodSets(),
      (FloodSets{{{10, 1}, "all 4"}, {{10, 2}, "any 6"}, {{10, 3}, "all 5"}, {{10, 9}, "0:"}}));
  // Another BUM status that is bound is looked at once.
  const auto other = create<Vxlan::BumStatus>();
  world.client->localBumStatusIs(other);
  EXPECT_THAT(world.floodSets(), IsEmpty());
  EXPECT_EQ(world.client->localBumStatus(), other);
}

TEST_F(FloodTest, RefuseAListThatIsExchanged) {
  world.floodList(100, 1, {2});
  const auto refused = [&] {
    world.publish(100)->macVtepFloodListTableIs(mac(1),
                                                create<VxlanController::MacVtepFloodListV2>());
  };
  try {
    refused();
    FAIL();
  } catch (const Moru::NameInUseException& exception) {
    EXPECT_THAT(exception.what(),
                testing::StartsWith("Reinstantiating the pointer interface where constructor "
                                    "parameter attribute _macVtepFloodListTable has a different"));
  }
  world.publish(100)->macVtepFloodListTableIs(mac(1), nullptr);
  EXPECT_THAT(world.floodSets(), IsEmpty());
}

TEST_F(FloodTest, SurviveWatchersThatTakeTheControllersTablesAway) {
  const std::vector<std::function<void(World&)>> deeds = {
      [](World& world) { world.withdrawFloodList(100, 1); },
      [](World& world) { world.withdrawMultiPath(100, 2); },
      [](World& world) { world.unpublish(100); },
      [](World& world) { world.unmap("Vxlan1", 10); },
      [](World& world) { world.zepSde->vlanFloodSetDelAll(); },
      [](World& world) { world.bumStatus->bumReplicationModeIs(Mode::unknown); },
      [](World& world) { world.vti("Vxlan1")->controllerClientModeIs(false); },
      [](World& world) { world.client = nullptr; },
  };
  for (std::size_t i = 0; i < deeds.size(); ++i) {
    for (const unsigned calls : {1U, 2U, 3U, 5U}) {
      SCOPED_TRACE(testing::Message() << "deed " << i << " after " << calls);
      Flooded each;
      each.world.floodList(100, 1, {2, 3, 4});
      each.world.multiPath(100, 2, {2, 3, 4});
      unsigned left = calls;
      const auto act = [&] {
        if (left != 0 && --left == 0) deeds[i](each.world);
      };
      const auto vlanFloodSet = each.world.zepSde->vlanFloodSet(VlanId(10));
      const auto onVlans = watch(each.world.zepSde, act);
      const auto onVlan = watch(vlanFloodSet, act);
      const auto onFirst = watch(vlanFloodSet->floodSet(mac(1)), act);
      const auto onSecond = watch(vlanFloodSet->floodSet(mac(2)), act);
      each.world.floodList(100, 1, {3, 5, 6});
      if (each.world.client) each.world.multiPath(100, 2, {3, 5, 6});
      EXPECT_EQ(left, 0U);
      left = 0;
      if (!each.world.client) each.world.start();
      each.world.vti("Vxlan1")->controllerClientModeIs(true);
      each.world.map("Vxlan1", 10, 100);
      each.world.bumStatus->bumReplicationModeIs(Mode::unknown);
      each.world.bumStatus->bumReplicationModeIs(Mode::controller);
      EXPECT_EQ(each.world.floodSets(), expectedFloodSets(each.world));
    }
  }
}

// Five VLANs with a flood set each, of a MAC that leaves and one that loses a VTEP, on a time that
// moves on by a millisecond at every reading.
struct BumRunTest : testing::Test, Flooded {
  BumRunTest() : Flooded(0.001) {
    for (const int vlan : vlans) {
      const auto vni = vniOf(vlan);
      world.mapAndImport("Vxlan1", vlan, vni);
      world.floodList(vni, 1, {2, 3});
    }
    world.rest();
  }
  static constexpr std::array<int, 5> vlans{10, 20, 30, 40, 50};
  static std::uint32_t vniOf(int vlan) {
    return vlan == 10 ? 100U : 1000U + static_cast<unsigned>(vlan);
  }

  // Leaves a run pending that has VTEP 2 to delete in these VLANs.
  void convergeWithout(const std::vector<int>& stale) {
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
  void batch(int visits) {
    world.client->maxProcessTimeIs(0.0005 + 0.001 * visits);
    world.trace();
    world.facility->fireDue();
  }
  int bookmark() const {
    return world.client->bumDeferredDeleteBookmarkValid()
               ? world.client->bumDeferredDeleteBookmark().value()
               : 0;
  }
  bool inProgress() const { return world.zepConvergenceStatus->bumDeferredDeletionInProgress(); }
};

TEST_F(BumRunTest, YieldsWhenItsTimeIsSpentAndComesToEveryVlanOnce) {
  convergeWithout({10, 20, 30, 40, 50});
  batch(2);
  EXPECT_TRUE(
      world.traced("processBumDeferredDeletes() init: true convergence in progress: false "
                   "vlan flood list count: 5 bum replication mode: 3"));
  EXPECT_TRUE(world.traced(" no bookmark. start fresh"));
  EXPECT_TRUE(world.traced(" flood dest count mismatch 2 > 1"));
  EXPECT_TRUE(world.traced(" reschedule, resume later from vlan 30 Deleted count 2"));
  EXPECT_EQ(bookmark(), 30);
  EXPECT_TRUE(inProgress());
  EXPECT_NEAR(world.facility->nextDue(), world.time->time() - 0.001, 1e-9) << "the time last read";
  batch(0);
  EXPECT_EQ(bookmark(), 30);
  // The bookmarked VLAN goes, one comes behind the run, and one before it.
  world.zepSde->vlanFloodSetDel(VlanId(30));
  world.zepSde->vlanFloodSetIs(VlanId(15));
  world.zepSde->vlanFloodSetIs(VlanId(45));
  batch(1);
  EXPECT_TRUE(world.traced(" starting at bookmark vlan 30"));
  EXPECT_TRUE(world.traced(" iter vlan 40"));
  EXPECT_EQ(bookmark(), 45);
  batch(2);
  EXPECT_TRUE(world.traced(" flood list deferred delete complete. Deleted 5"));
  EXPECT_FALSE(world.traced(" reached end")) << "what is before 30 has been visited";
  EXPECT_THAT(stale(), IsEmpty());
  EXPECT_FALSE(inProgress());
  EXPECT_EQ(bookmark(), 0);
  EXPECT_EQ(world.facility->nextDue(), Moru::Clock::never);
}

TEST_F(BumRunTest, GoesRoundFromABookmarkThatItIsGiven) {
  world.client->bumDeferredDeleteBookmarkIs(VlanId(35));
  convergeWithout({10, 20, 30, 40, 50});
  world.client->bumDeferredDeleteBookmarkValidIs(true);
  batch(3);
  EXPECT_TRUE(world.traced(" reached end, resume from first entry startKey vlan 35"));
  EXPECT_EQ(stale(), (std::vector<int>{20, 30}));
  EXPECT_EQ(bookmark(), 20);
  batch(9);
  EXPECT_THAT(stale(), IsEmpty());
  EXPECT_FALSE(inProgress());
}

TEST_F(BumRunTest, StartsOverAfterAnotherConvergence) {
  convergeWithout({30});
  batch(2);
  EXPECT_EQ(bookmark(), 30);
  world.converging(true);
  EXPECT_FALSE(inProgress());
  batch(9);
  EXPECT_EQ(stale(), (std::vector<int>{10, 20, 30, 40, 50})) << "nothing while converging";
  EXPECT_EQ(world.facility->nextDue(), Moru::Clock::never);
  world.floodList(vniOf(10), 1, {3});  // behind where it was
  world.converging(false);
  batch(9);
  EXPECT_EQ(stale(), (std::vector<int>{20, 40, 50}));
  EXPECT_FALSE(inProgress());
}

// Each of the three is begun by a watcher of what the run deletes first.
TEST_F(BumRunTest, StopsWhenWhatItDeletesBeginsAnotherTime) {
  const auto runWith = [this](const std::function<void()>& deed) {
    convergeWithout({10, 20, 30, 40, 50});
    bool done = false;
    const auto watcher = watch(world.zepSde->vlanFloodSet(VlanId(10))->floodSet(mac(1)), [&] {
      if (!std::exchange(done, true)) deed();
    });
    batch(9);
    EXPECT_TRUE(done);
    for (const int vlan : vlans) world.floodList(vniOf(vlan), 1, {2, 3});
  };
  runWith([this] { world.converging(true); });
  EXPECT_FALSE(inProgress());
  world.converging(false);
  world.rest();
  runWith([this] {
    world.converging(true);
    world.floodList(vniOf(20), 1, {3, 4});
    world.converging(false);
  });
  EXPECT_TRUE(inProgress()) << "the run that the second convergence has left is to come";
  EXPECT_EQ(bookmark(), 0);
  world.rest();
  EXPECT_FALSE(inProgress());
  world.peerBumStatus->bumReplicationModeIs(Mode::controller);
  world.peerFloodSet(30, 7)->destSetIs(dest(7), true);
  runWith([this] { world.mlag(true); });
  EXPECT_EQ(world.floodSets().at({30, 7}), "0: 7") << "is the peer's";
  EXPECT_FALSE(inProgress());
}

TEST_F(BumRunTest, DeletesWhatNoTableAsksForAndKeepsTheRest) {
  world.converging(true);
  world.unpublish(vniOf(20));
  world.zepSde->vlanFloodSetIs(VlanId(99))->floodSetIs(mac(1));  // mapped by nobody
  const auto strays = world.zepSde->vlanFloodSet(VlanId(30));
  strays->floodSetIs(mac(7))->destSetIs(dest(2), true);  // which no table has
  world.multiPath(vniOf(40), 1, {3, 9});  // its VTEPs, and not the list's that it stands before
  world.floodListOf(vniOf(50), 1)->vtepIpFloodListIs(vtep(2), false);
  world.withdrawFloodList(vniOf(10), 1);
  world.zepSde->vlanFloodSetIs(VlanId(10))->floodSetIs(mac(8));
  world.converging(false);
  world.trace();
  world.rest();
  EXPECT_EQ(
      world.floodSets(),
      (FloodSets{
          {{10, 0}, "empty"}, {{30, 1}, "all 2 3"}, {{40, 1}, "any 3 9"}, {{50, 1}, "all 3"}}));
  EXPECT_TRUE(world.traced("deleteStaleFloodSets"));
  EXPECT_TRUE(world.traced(" deleting vlan 99"));
  EXPECT_TRUE(world.traced(" deleting vlan 30 mac 02:00:00:00:00:07"));
  EXPECT_TRUE(
      world.traced("fsIter->destSets() == vniFdbStatus->macVtepFloodListTable( macAddr ) "
                   "->vtepIpFloodLists()"))
      << "a VTEP whose flag is false is on the list";
}

TEST_F(BumRunTest, KeepsWhatAnyVniOfAVlanAsksFor) {
  world.addVti("Vxlan2");
  world.converging(true);
  world.mapAndImport("Vxlan2", 10, 600);
  world.floodList(600, 1, {4});
  world.floodList(600, 2, {5});
  world.floodList(vniOf(10), 1, {3});
  world.zepSde->vlanFloodSet(VlanId(10))->floodSet(mac(1))->destSetIs(dest(9), true);
  EXPECT_EQ(mac1(), "all 2 3 4 9");
  world.converging(false);
  world.rest();
  EXPECT_EQ(mac1(), "all 3 4");
  EXPECT_EQ(world.floodSets().at({10, 2}), "all 5");
}

TEST_F(BumRunTest, LeavesAloneWhatIsNotItsOwn) {
  world.peerBumStatus->bumReplicationModeIs(Mode::controller);
  convergeWithout({10});
  world.peerFloodSet(10, 1)->destSetIs(dest(7), true);
  world.mlag(true);
  batch(9);
  EXPECT_TRUE(world.traced(" no bumDeferredDeletion "));
  EXPECT_EQ(world.floodSets(), (FloodSets{{{10, 1}, "0: 7"}})) << "is the peer's";
  EXPECT_FALSE(inProgress());
}

}  // namespace
