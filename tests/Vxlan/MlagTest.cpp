// The copying of the MLAG peer's flood sets.
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/Moru/Exception.h"
#include "tests/Vxlan/World.h"

namespace Test {
namespace {

using testing::IsEmpty;
using Mode = Vxlan::BumReplicationMode;

// Two VLANs, both modes the controller's, an active pair, and MAC 1 of the peer's VLAN 10.
struct MlagTest : testing::Test {
  MlagTest() {
    world.addVti("Vxlan1");
    world.mapAndImport("Vxlan1", 10, 100);
    world.mapAndImport("Vxlan1", 20, 200);
    world.bumModes(Mode::controller, Mode::controller);
    world.mlag(true);
    set = world.peerFloodSet(10, 1);
    set->floodSetTypeIs(L2Rib::FloodSetType::sendToAll);
    set->destSetIs(dest(2), true);
    set->destSetIs(dest(3), false);
    world.converging(false);
  }
  void peerMode(Mode mode) const { world.peerBumStatus->bumReplicationModeIs(mode); }
  void expectCopied() const { EXPECT_EQ(world.floodSets(), floodSetsOf(*world.peerSde)); }
  const Ptr<Vxlan::ZepMlagBumStatusSm>& machine() const {
    return world.client->zepMlagBumStatusSm();
  }
  Ptr<L2Rib::FloodSet> local(int vlan, std::uint64_t number) const {
    const auto vlanFloodSet = world.zepSde->vlanFloodSet(VlanId(vlan));
    return vlanFloodSet ? vlanFloodSet->floodSet(mac(number)) : nullptr;
  }

  World world;
  Ptr<L2Rib::FloodSet> set;
};

// What else there is in following the peer, the random walk does.
TEST_F(MlagTest, FollowsEntitiesThatAreFilledBeforeTheyAreAddedOrReplaceOthers) {
  world.startAndRest();
  EXPECT_EQ(world.floodSets(), (FloodSets{{{10, 1}, "all 2"}}));
  EXPECT_EQ(local(10, 1)->destSets(), 1U) << "a false flag is no destination";
  world.peerFloodSet(20, 5)->destSetIs(L2Rib::Dest(L2Rib::DestId(9), L2Rib::DestDataVxlan{vtep(6)}),
                                       true);
  const auto filled = create<L2Rib::FloodSet>(mac(5));
  filled->destSetIs(dest(8), true);
  world.peerSde->vlanFloodSetIs(VlanId(20))->floodSetIs(filled);
  expectCopied();
  const auto filledVlan = create<L2Rib::VlanFloodSet>(VlanId(10));
  filledVlan->floodSetIs(mac(6))->destSetIs(dest(9), true);
  world.peerSde->vlanFloodSetIs(filledVlan);
  expectCopied();
  world.peerFloodSet(10, 6)->destSetIs(dest(10), true);
  set->destSetIs(dest(11), true);  // which is the peer's no longer
  expectCopied();
  world.peerSde->vlanFloodSetDel(VlanId(10));
  EXPECT_TRUE(world.traced("Deleting local vlanFloodSet"));
  expectCopied();
}

TEST_F(MlagTest, SweepsWhatThePeerLacksWhetherOrNotItCopies) {
  for (const Mode mode : {Mode::unknown, Mode::controller}) {
    peerMode(mode);
    const auto& sde = world.zepSde;
    sde->vlanFloodSetDelAll();
    sde->vlanFloodSetIs(VlanId(20))->floodSetIs(mac(1));  // which the peer lacks
    sde->vlanFloodSetIs(VlanId(30))->floodSetIs(mac(1));  // mapped by nobody
    const auto vlan = sde->vlanFloodSetIs(VlanId(10));
    for (const std::uint64_t number : {1, 2, 3})
      for (const std::uint32_t vtepNumber : {2, 3, 4})
        vlan->floodSetIs(mac(number))->destSetIs(dest(vtepNumber), true);
    world.start();
    EXPECT_EQ(world.floodSets(),
              (FloodSets{{{10, 1}, mode == Mode::controller ? "all 2" : "0: 2"}, {{30, 1}, "0:"}}));
    EXPECT_TRUE(world.traced("Sweeping vlan 20"));
    if (mode == Mode::unknown) {
      EXPECT_TRUE(world.traced("Sweeping 02:00:00:00:00:02 from vlan 10"));
      EXPECT_TRUE(world.traced("Sweeping vxlan 10.0.0.4 from 02:00:00:00:00:01 on vlan 10"));
    }
    world.rest();
    world.stop();
  }
}

TEST_F(MlagTest, CopiesWhileBothReplicateForTheController) {
  peerMode(Mode::unknown);
  world.startAndRest();
  world.peerFloodSet(20, 1)->destSetIs(dest(4), true);
  EXPECT_THAT(world.floodSets(), IsEmpty());
  peerMode(Mode::controller);
  EXPECT_TRUE(world.traced("handling vtep 20"));
  expectCopied();
  const FloodSets before = world.floodSets();
  peerMode(Mode::unknown);
  set->destSetIs(dest(5), true);
  set->destSetDel(dest(2));
  world.peerFloodSet(20, 2);
  EXPECT_EQ(world.floodSets(), before) << "what is there stays";
  set->floodSetTypeIs(L2Rib::FloodSetType(9));
  EXPECT_EQ(local(10, 1)->floodSetType(), L2Rib::FloodSetType(9)) << "the type always follows";
  world.peerSde->vlanFloodSetDel(VlanId(20));
  EXPECT_FALSE(world.zepSde->vlanFloodSet(VlanId(20))) << "so does the end of a VLAN";
  world.bumStatus->bumReplicationModeIs(Mode::unknown);
  peerMode(Mode::controller);
  set->destSetIs(dest(6), true);
  EXPECT_THAT(world.floodSets(), IsEmpty()) << "the root has cleared all";
  world.bumStatus->bumReplicationModeIs(Mode::controller);
  expectCopied();
}

TEST_F(MlagTest, FollowsAVlanWhileItHasAVni) {
  world.peerFloodSet(30, 1)->destSetIs(dest(2), true);
  world.startAndRest();
  EXPECT_EQ(world.floodSets(), (FloodSets{{{10, 1}, "all 2"}})) << "VLAN 30 has none";
  world.map("Vxlan1", 30, 300);
  expectCopied();
  // The machine by itself keeps what it has; it is the root that clears a VLAN without a VNI.
  const auto other = create<L2Rib::SourceDirEntry>();
  const auto alone = Vxlan::zepMlagBumStatusSmFactory(world.mlagVxlanStatus, world.vxlanHwStatusDir,
                                                      world.vlanVniMaps, other);
  world.unmap("Vxlan1", 10);
  EXPECT_EQ(world.floodSets(), (FloodSets{{{30, 1}, "0: 2"}}));
  set->destSetIs(dest(4), true);
  world.peerFloodSet(10, 2);
  EXPECT_EQ(floodSetsOf(*other), (FloodSets{{{10, 1}, "all 2"}, {{30, 1}, "0: 2"}}));
  world.map("Vxlan1", 10, 100);
  expectCopied();
  EXPECT_EQ(floodSetsOf(*other), world.floodSets());
  world.vlanVniMaps->vlanVniMapDel(IntfId("Vxlan1"));  // what has been followed is followed on
  peerMode(Mode::unknown);
  peerMode(Mode::controller);
  set->destSetIs(dest(5), true);
  expectCopied();
  // Until an update finds that nothing is copied.
  world.map("Vxlan1", 10, 100);
  peerMode(Mode::unknown);
  world.map("Vxlan1", 10, 100);
  world.vlanVniMaps->vlanVniMapDel(IntfId("Vxlan1"));
  peerMode(Mode::controller);
  const FloodSets before = world.floodSets();
  set->destSetIs(dest(6), true);
  EXPECT_EQ(world.floodSets(), before);
}

TEST_F(MlagTest, IsThereWhileThePairIsActiveAndTheClientInControllerMode) {
  world.mlag(false);
  world.startAndRest();
  EXPECT_EQ(machine(), nullptr);
  world.multiPath(100, 9, {2});
  world.mlag(true);
  ASSERT_NE(machine(), nullptr);
  EXPECT_FALSE(local(10, 9));
  const auto first = machine();
  world.vti("Vxlan1")->datapathLearningIs(true);  // which evaluates it anew
  EXPECT_EQ(machine(), first);
  // With another input it is another.
  world.client->vlanVniMapsIs(create<Vxlan::VlanVniMaps>());
  world.client->handleMlagState();
  EXPECT_NE(machine(), first);
  EXPECT_EQ(first->remoteSde.reactor()->notifier(), nullptr) << "the first reacts no more";
  world.client->vlanVniMapsIs(world.vlanVniMaps);
  world.client->handleMlagState();
  const auto third = machine();
  const auto hwStatusDir = create<Vxlan::VxlanHwStatusDir>();
  world.client->vxlanHwStatusDirIs(hwStatusDir);
  world.client->handleMlagState();
  EXPECT_NE(machine(), third);
  world.client->vxlanHwStatusDirIs(world.vxlanHwStatusDir);
  world.client->mlagStatusIs(create<Mlag::Status>());
  EXPECT_EQ(machine(), nullptr);
  world.client->mlagStatusIs(world.mlagStatus);
  EXPECT_NE(machine(), nullptr);
  // A VNI that goes is swept, not wiped.
  world.zepSde->vlanFloodSetIs(VlanId(10))->floodSetIs(mac(4));
  world.publish(100);
  world.unpublish(100);
  expectCopied();
  world.mlagStatus->mlagStateIs(Mlag::MlagState(3));
  EXPECT_EQ(machine(), nullptr);
  EXPECT_TRUE(local(10, 1)) << "what has been copied stays";
  // Which peer there is, is looked at when the machine is initialized.
  world.mlag(true);
  world.mlagVxlanStatus->peerSourceDirEntryIs(create<L2Rib::SourceDirEntry>());
  EXPECT_TRUE(local(10, 1));
  machine()->handleInitialized();
  EXPECT_THAT(world.floodSets(), IsEmpty());
}

TEST_F(MlagTest, NeedsItsInputsAndRefusesNull) {
  world.startAndRest();
  EXPECT_EQ(refusal<Moru::RangeException>(
                [&] { machine()->vlanFloodSet(VlanId(10))->floodSetIs(nullptr); }),
            "null _floodSet parameter to mutator for "
            "Vxlan::ZepMlagBumStatusSm::MoruVlanFloodSet::floodSet not allowed\"");
  const auto make = [this](const auto& status, const auto& dir) {
    return Vxlan::zepMlagBumStatusSmFactory(status, dir, world.vlanVniMaps, world.zepSde);
  };
  EXPECT_DEATH(make(nullptr, world.vxlanHwStatusDir), "mlagVxlanStatus\\(\\)");
  EXPECT_DEATH(make(world.mlagVxlanStatus, nullptr), "vxlanHwStatusDir\\(\\)");
  // A peer that has nothing yet, and then, with flood sets to compare, one that must be there.
  const auto status = create<Mlag::VxlanStatus>();
  EXPECT_DEATH(make(status, world.vxlanHwStatusDir), "remoteSde\\(\\)");
  world.zepSde->vlanFloodSetDelAll();
  EXPECT_EQ(make(status, world.vxlanHwStatusDir)->bumRepMode(), Mode::unknown);
}

// A change at the peer is copied by itself, and takes nothing that the controller has listed since.
TEST_F(MlagTest, LeavesToTheControllerWhatItHasListedMeanwhile) {
  world.startAndRest();
  const auto peers = world.peerFloodSet(20, 4);
  peers->destSetIs(dest(2), true);
  expectCopied();
  world.floodList(200, 4, {3});
  world.withdrawFloodList(200, 4);
  world.floodList(200, 1, {5});
  peers->destSetIs(dest(3), true);
  EXPECT_EQ(world.floodSets().at({20, 1}), "all 5");
  world.peerSde->vlanFloodSet(VlanId(20))->floodSetDel(mac(4));
  EXPECT_EQ(world.floodSets().at({20, 1}), "all 5");
}

// Two clients of one process, each the other's MLAG peer, come to rest in any order of the first
// deeds, and are alike.
TEST(Mlag, ClientsThatCopyEachOtherComeToRest) {
  std::vector<int> order{0, 1, 2, 3};
  do {
    World first;
    World second;
    const auto alikeAfter = [&](auto deed) {
      deed();
      first.rest();
      EXPECT_EQ(first.floodSets(), second.floodSets());
    };
    for (World* const world : {&first, &second}) {
      world->facility = first.facility;
      furnish(*world, false);
      world->mlag(true);
      world->bumModes(Mode::unknown, Mode::unknown);
    }
    Moru::ActivityFacility::currentIs(first.facility);
    first.mlagVxlanStatus->peerSourceDirEntryIs(second.zepSde);
    second.mlagVxlanStatus->peerSourceDirEntryIs(first.zepSde);
    first.mlagVxlanStatus->peerBumStatusIs(second.bumStatus);
    second.mlagVxlanStatus->peerBumStatusIs(first.bumStatus);
    const auto begin = [&] {
      for (const int deed : order) {
        World& world = deed % 2 == 0 ? first : second;
        if (deed < 2) world.start();
        if (deed >= 2) world.bumStatus->bumReplicationModeIs(Mode::controller);
      }
    };
    alikeAfter(begin);
    alikeAfter([&] { first.floodList(100, 1, {3, 5}); });
    EXPECT_TRUE(second.floodSets().contains({10, 1}));
    alikeAfter([&] { second.multiPath(200, 7, {6}); });
    EXPECT_TRUE(first.floodSets().contains({20, 7}));
    alikeAfter([&] { second.withdrawMultiPath(200, 7); });
    EXPECT_FALSE(first.floodSets().contains({20, 7}));
    first.client = second.client = nullptr;
    EXPECT_EQ(first.zepSde->notifiees() + second.zepSde->notifiees(), 0U);
  } while (std::next_permutation(order.begin(), order.end()));
}

}  // namespace
}  // namespace Test
