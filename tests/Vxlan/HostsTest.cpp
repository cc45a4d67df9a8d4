// Hosts, from the controller's table to the layer-2 RIB, in and out of convergence.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Vxlan/World.h"

namespace Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const IntfId vxlan2("Vxlan2");

MacVlanPair key(std::uint64_t number, int vlan) { return {mac(number), VlanId(vlan)}; }

struct HostsTest : testing::Test, Settled {
  std::vector<std::uint64_t> macs(bool marked) const {
    std::vector<std::uint64_t> macs;
    for (const auto& [key, entry] : world.received(marked))
      macs.push_back(key.mac.value() - mac(0).value());
    return macs;
  }
  std::uint32_t markedCount() const { return world.client->hostTable()->markedForDelCount(); }
  double timeOf(std::uint64_t number) const {
    return world.l2RibZepInput->host(key(number, 10)).time;
  }
};

TEST_F(HostsTest, AreWrittenWholeAtEveryAnnouncement) {
  world.time->waitUntil(3);
  world.host(100, 1, 2, 7, 9);
  EXPECT_EQ(world.received(), (Hosts{remote(1, 10, "Vxlan1", 2, 7, 9)}));
  EXPECT_EQ(timeOf(1), 3);
  world.time->waitUntil(4);
  world.host(100, 1, 2, 7, 9);
  EXPECT_EQ(timeOf(1), 4) << "though nothing else is new";
  world.converging(true);
  world.time->waitUntil(5);
  world.withdraw(100, 1);
  EXPECT_EQ(timeOf(1), 4) << "a mark is no announcement";
  EXPECT_EQ(world.received(true).at(key(1, 10)).moveCount, 7U);
  world.client->deleteReceivedTableEntry(key(1, 10));
  world.client->deleteReceivedTableEntry(key(1, 10));  // which is not there
  EXPECT_THAT(world.l2RibZepInput->host(), IsEmpty());
  world.vti("Vxlan1")->vArpVtepAddrIs(vtep(9));  // no longer the address of none
  world.publish(100)->macVtepTableIs(
      mac(2), VxlanController::MacVtepV2{mac(2), IpAddr(), 1});  // not yet withdrawn
  EXPECT_THAT(macs(false), ElementsAre(2));
  world.converging(false);
  world.client->deleteRemoteMacFromController(VlanId(10), true);
  EXPECT_THAT(macs(true), ElementsAre(2)) << "deferred, whatever the controller does";
  world.client->deleteReceivedTableEntry(key(2, 10));
}

TEST_F(HostsTest, BehindTheSwitchsOwnVtepsAreNeverRemote) {
  world.host(100, 1, 1);  // the VTI's own address
  EXPECT_FALSE(world.traced(" delete stale macVtepPair ")) << "there is none";
  for (const std::uint32_t number : {2, 3, 5, 6}) world.host(100, number, number);
  EXPECT_THAT(macs(false), ElementsAre(2, 3, 5, 6));
  world.mlagVxlanStatus->vtepTypeAddrIs(Vxlan::VtepType(5), vtep(3));
  world.mlagVxlanStatus->vtepTypeAddrIs(Vxlan::VtepType(2), vtep(5));
  world.mlagVxlanStatus->vtepTypeAddrIs(Vxlan::VtepType(7), vtep(6));
  world.converging(true);
  for (const std::uint32_t number : {3, 5, 6}) world.host(100, number, number, 1);
  EXPECT_THAT(macs(false), ElementsAre(2)) << "deleted at once, also while converging";
  EXPECT_TRUE(world.traced(" delete stale macVtepPair "));
  world.vti("Vxlan1")->vArpVtepAddrIs(vtep(2));
  EXPECT_THAT(macs(false), IsEmpty());
  EXPECT_EQ(markedCount(), 0U);
  world.vti("Vxlan1")->vArpVtepAddrIs(vtep(4));
  EXPECT_THAT(macs(false), ElementsAre(2));
}

TEST_F(HostsTest, AreEnteredForEachVtiThatMapsTheVni) {
  world.vlanVniMaps->vlanVniMapIs(IntfId("Vxlan0"));  // which maps nothing
  world.addVti("Vxlan2");                             // after the VNI's machine
  world.mapAndImport("Vxlan2", 20, 100);
  world.host(100, 1, 2);
  EXPECT_EQ(world.received(), (Hosts{remote(1, 10, "Vxlan1", 2), remote(1, 20, "Vxlan2", 2)}));
  // Each has an address of its own that a host of its VLAN may be local to.
  world.vti("Vxlan2")->vArpVtepAddrIs(vtep(2));
  EXPECT_EQ(world.received(), (Hosts{remote(1, 10, "Vxlan1", 2)}));
  world.vti("Vxlan1")->vArpVtepAddrIs(vtep(2));
  world.vti("Vxlan2")->vArpVtepAddrIs(vtep(3));
  EXPECT_EQ(world.received(), (Hosts{remote(1, 20, "Vxlan2", 2)}));
  world.converging(true);
  world.withdraw(100, 1);
  EXPECT_EQ(markedCount(), 1U);
  // A VTI without a status has no address of its own: to it every host is remote. Where two map
  // the VNI to one VLAN, the one visited last is named.
  world.map("Vxlan2", 10, 100);
  world.vtiStatusDir->vtiStatusDel(vxlan2);
  world.vti("Vxlan1")->vccImportVlansIs(VlanId(20));
  world.host(100, 3, 1);
  EXPECT_EQ(world.received().at(key(3, 10)).vtiIntfId, vxlan2);
}

TEST_F(HostsTest, LeftByAnEarlierRunAreSweptAtStart) {
  world.host(100, 1, 2);
  world.stop();
  L2Rib::Host stale;
  stale.key = key(7, 10);
  world.l2RibZepInput->hostIs(stale);
  world.l2RibZepInput->hostIs(L2Rib::Host());  // stands for none, and is left alone
  world.start();
  EXPECT_TRUE(world.l2RibZepInput->host().contains(MacVlanPair()));
  world.l2RibZepInput->hostDel(MacVlanPair());
  EXPECT_THAT(macs(false), ElementsAre(1));
  // The mirror alone over a table that is full already.
  const auto rib = create<L2Rib::HostInput>();
  rib->hostIs(stale);
  const auto mirror =
      Vxlan::receivedHostTableToL2RibHostInputSmFactory(world.client->hostTable(), rib);
  EXPECT_EQ(rib->host().size(), 1U);
  EXPECT_EQ(rib->host(key(1, 10)), world.l2RibZepInput->host(key(1, 10)));
  mirror->initializedIs(false);
  world.host(100, 2, 2);
  EXPECT_EQ(rib->host().size(), 1U);
}

TEST_F(HostsTest, WithdrawnTwiceBreakAnInvariant) {
  world.host(100, 1, 2);
  world.converging(true);
  world.withdraw(100, 1);
  // The default value is what an absent key reads as: withdrawn once more.
  EXPECT_DEATH(world.publish(100)->macVtepTableIs(mac(1), VxlanController::MacVtepV2()),
               "!vxlanControllerClientSm\\(\\)->hostTable\\(\\)->receivedEntry\\( key \\)"
               ".markedForDel\\(\\).*vni 100 host 02:00:00:00:00:01 vlan 10");
}

// Not even those that are marked already, of a VLAN that is no longer imported.
TEST_F(HostsTest, AreTheDataPathsOnceItLearns) {
  for (const std::uint64_t number : {1, 2}) world.host(100, number, 2);
  world.converging(true);
  world.vti("Vxlan1")->vccImportVlansDel(VlanId(10));
  EXPECT_THAT(macs(true), ElementsAre(1, 2));
  world.vti("Vxlan1")->datapathLearningIs(true);
  EXPECT_THAT(world.l2RibZepInput->host(), IsEmpty());
  world.vti("Vxlan1")->vccImportVlansIs(VlanId(10));
  world.trace();
  world.vti("Vxlan1")->vArpVtepAddrIs(vtep(9));
  EXPECT_FALSE(world.traced("macAddr: ")) << "none is looked at";
}

TEST_F(HostsTest, AreNoLongerKeptWhenTheConvergenceWindowEndsWithTheControllersState) {
  const auto& inProgress = world.zepConvergenceStatus->unicastDeferredDeletionInProgress;
  for (const std::uint64_t number : {1, 2}) world.host(100, number, 2);
  world.converging(true);
  world.withdraw(100, 1);
  world.zepStateBaseDir->entityPtrDel("controller");
  EXPECT_FALSE(world.zepStateClientView->convergenceInProgress());
  EXPECT_TRUE(inProgress());
  world.rest();
  EXPECT_THAT(world.l2RibZepInput->host().size(), 1U);

  const auto state = create<VxlanController::ZepStateV2>();
  state->convergenceInProgressIs(true);
  world.zepStateBaseDir->entityPtrIs("controller", state, false);
  EXPECT_FALSE(world.zepStateClientView->convergenceInProgress()) << "is not instantiated";
  world.zepStateBaseDir->entryStateIs("controller", true);
  EXPECT_TRUE(world.zepStateClientView->convergenceInProgress());
  world.vti("Vxlan1")->controllerClientModeIs(false);
  EXPECT_FALSE(world.zepStateClientView->convergenceInProgress());
  EXPECT_THAT(world.l2RibZepInput->host(), IsEmpty()) << "leaving the mode never defers";
  world.rest();
  EXPECT_FALSE(inProgress());
}

}  // namespace
}  // namespace Test
