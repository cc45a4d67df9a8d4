// Flood sets, from the controller's multipath entries and flood lists to the layer-2 RIB, in and
// out of convergence.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Vxlan/World.h"

namespace Test {
namespace {

using testing::IsEmpty;
using Mode = Vxlan::BumReplicationMode;

struct FloodTest : testing::Test, Settled {
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
    world.multiPath(100, 1, {4});
    expect("any 4", "any 2 3 4");
    world.floodList(100, 1, {2, 5});
    expect("any 4", "any 2 3 4");  // the list waits
    world.withdrawMultiPath(100, 1);
    EXPECT_EQ(mac1(), "all 2 5") << "and comes whole, and alone";
    world.multiPath(100, 1, {4});
    world.withdrawFloodList(100, 1);
    expect("any 4", "any 2 4 5");  // is the entry's, not the list's
    world.floodList(100, 1, {6});
    expect("any 4", "any 2 4 5");
    world.withdrawFloodList(100, 1);
    world.multiPath(100, 1, {});  // an empty entry is none
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
  list->vtepIpFloodListIs(vtep(3), true);
  list->vtepIpFloodListIs(vtep(2), false);
  EXPECT_EQ(mac1(), "all 3");
  world.trace();
  list->vtepIpFloodListIs(vtep(9), false);
  EXPECT_FALSE(world.traced(" removing ")) << "what is not there";
  world.multiPath(100, 2, {3, 5});
  EXPECT_EQ(world.floodSets().at({10, 2}), "any 3 5");
  // Of another kind than the client writes: on no list.
  const auto set = world.zepSde->vlanFloodSet(VlanId(10))->floodSet(mac(2));
  set->destSetIs(L2Rib::Dest(L2Rib::DestId{}, IntfId("Ethernet1")), true);
  set->destSetIs(L2Rib::Dest(L2Rib::DestId{}, L2Rib::DestDataTunnel{0}), true);
  set->destSetIs(L2Rib::Dest(L2Rib::DestId{}, L2Rib::DestDataVxlan{Vorn::Ip6Addr()}), true);
  VxlanController::MacVtepMultiPathV2 entry(mac(2));
  entry.vtepIpList[IpAddr()] = true;  // as which an IPv6 address could be read
  world.publish(100)->macVtepMultiPathTableIs(mac(2), entry);
  EXPECT_EQ(set->destSets(), 1U);
}

TEST_F(FloodTest, AreWrittenOnlyWhileTheHardwareReplicatesForTheController) {
  world.bumStatus->bumReplicationModeIs(Mode::unknown);
  world.floodList(100, 1, {4});
  world.zepSde->vlanFloodSetIs(VlanId(10))->floodSetIs(mac(9));
  world.withdrawMultiPath(100, 9);
  EXPECT_EQ(world.floodSets(), (FloodSets{{{10, 9}, "0:"}})) << "nothing is written nor removed";
  world.bumStatus->bumReplicationModeIs(Mode::controller);
  EXPECT_EQ(world.floodSets(), (FloodSets{{{10, 1}, "all 4"}, {{10, 9}, "0:"}}));
  world.client->localBumStatusIs(create<Vxlan::BumStatus>());
  EXPECT_THAT(world.floodSets(), IsEmpty()) << "another that is bound is looked at once";
}

// The VNI's second VLAN gets the multipath entries at once, a flood list with its next change.
TEST_F(FloodTest, StandInEachVlanThatTheVtisMapTheVniTo) {
  world.floodList(100, 1, {3, 4});
  world.multiPath(100, 2, {2});
  world.addVti("Vxlan2");
  world.mapAndImport("Vxlan2", 20, 100);
  FloodSets expected{{{10, 1}, "all 3 4"}, {{10, 2}, "any 2"}, {{20, 2}, "any 2"}};
  EXPECT_EQ(world.floodSets(), expected);
  world.floodList(100, 1, {4});
  expected[{10, 1}] = "all 4";
  expected[{20, 1}] = "all";
  EXPECT_EQ(world.floodSets(), expected);
  world.floodList(100, 1, {4, 5});
  EXPECT_EQ(world.floodSets().at({20, 1}), "all 5") << "the change alone";
  world.withdrawFloodList(100, 1);
  world.withdrawMultiPath(100, 2);
  EXPECT_THAT(world.floodSets(), IsEmpty());
  world.floodList(100, 1, {4});
  const auto watcher = watch(world.zepSde->vlanFloodSet(VlanId(20)), [&](auto...) {
    world.zepSde->vlanFloodSetIs(create<L2Rib::VlanFloodSet>(VlanId(20)));
  });
  world.withdrawFloodList(100, 1);
  EXPECT_EQ(world.floodSets(), (FloodSets{{{20, 0}, "empty"}})) << "another's";
}

}  // namespace
}  // namespace Test
