// Hosts, from the controller's table to the layer-2 RIB, in and out of convergence, and the
// deferred deletion of those that were withdrawn.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Vxlan/World.h"

namespace Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const IntfId vxlan1("Vxlan1");
const IntfId vxlan2("Vxlan2");

MacVlanPair key(std::uint64_t number, int vlan) { return {mac(number), VlanId(vlan)}; }

struct HostsTest : testing::Test, Settled {
  explicit HostsTest(double timePerRead = 0) : Settled(timePerRead) {}

  std::vector<std::uint64_t> macs(bool marked) const {
    std::vector<std::uint64_t> macs;
    for (const auto& [key, facts] : world.received(marked))
      macs.push_back(key.mac.value() - mac(0).value());
    return macs;
  }
  std::uint32_t markedCount() const { return world.client->hostTable()->markedForDelCount(); }
};

// The texts are an interface: they are what a recording of the trace is searched for.
TEST_F(HostsTest, TellEveryStepOfTheTypicalEvent) {
  const std::string sm = "void Vxlan::ZepPerVniFdbStatusSm::";
  const std::string root = "void Vxlan::VxlanControllerClientSm::";
  world.time->waitUntil(3);
  world.host(100, 1, 2, 7);
  EXPECT_EQ(world.received(), (Hosts{{key(1, 10), {vxlan1, vtep(2), 7}}}));
  EXPECT_EQ(world.l2RibZepInput->host(key(1, 10)).time, 3);
  EXPECT_THAT(
      world.trace(),
      ElementsAre(
          sm + "handleZepHostTable(Vorn::EthAddr) macAddr: 02:00:00:00:00:01 datapathLearningMode "
               "false",
          sm + "handleZepHostTable(Vorn::EthAddr) vniId: 100vlanId: 10",
          "bool Vxlan::VxlanControllerClientSm::isVtepIpMine(Vxlan::VniExt, Vorn::IpAddr, "
          "Vorn::IntfId) const vtepIp: 10.0.0.2",
          "bool Vxlan::VxlanControllerClientSm::isVtepIpMine(Vxlan::VniExt, Vorn::IpAddr, "
          "Vorn::IntfId) const local vtepIp: 10.0.0.1 local varp vtepIp: 0.0.0.0",
          testing::EndsWith("Adding remote host entry for mac: 02:00:00:00:00:01 vlan: 10 vtepIp: "
                            "10.0.0.2 moveCount: 7"),
          testing::StartsWith("void Vxlan::ReceivedHostTableToL2RibHostInputSm::"
                              "handleReceivedHostEntry(Bridging::MacVlanPair")));
  world.converging(true);
  world.trace();
  world.withdraw(100, 1);
  EXPECT_TRUE(
      world.traced("Evaluating delete of remote host entry for mac: 02:00:00:00:00:01 vlan: 10"));
  EXPECT_TRUE(world.traced(root +
                           "deferDeleteReceivedTableEntry(Bridging::MacVlanPair) defer delete of "
                           "02:00:00:00:00:01 vlan 10 old vtep: 10.0.0.2"));
  EXPECT_TRUE(world.traced("new marked for deletion count 1"));
  world.trace();
  world.converging(false);
  EXPECT_THAT(world.trace(),
              ElementsAre("void Vxlan::ZepStateSm::handleConvergenceInProgress() init true",
                          "void Vxlan::ZepStateSm::handleConvergenceInProgress() init true "
                          "convergence state false echo convergence state",
                          root + "handleConvergenceInProgress() init true",
                          root + "handleConvergenceInProgress() init true convergence state false",
                          root + "handleConvergenceInProgress() schedule deferred deletes"));
  const std::string run = root + "processUnicastDeferredDeletes()";
  world.facility->fireNext(world.time->time());
  EXPECT_THAT(world.trace(),
              ElementsAre(run + " init true convergence state false marked for del count 1",
                          run + " no bookmark. start fresh", run + " initial count 1",
                          testing::EndsWith(" deleting 02:00:00:00:00:01 vlan 10"),
                          testing::EndsWith(" new marked for deletion count 0"),
                          testing::HasSubstr("handleReceivedHostEntry("),
                          run + " unicast mac deferred delete complete."));
}

TEST_F(HostsTest, BehindTheSwitchsOwnVtepsAreNeverRemote) {
  world.host(100, 1, 1);  // the VTI's own address
  world.host(100, 2, 2);
  world.host(100, 3, 3);
  EXPECT_THAT(macs(false), ElementsAre(2, 3));
  world.mlagVxlanStatus->vtepTypeAddrIs(Vxlan::VtepType(5), vtep(3));
  world.converging(true);
  world.host(100, 3, 3, 1);
  EXPECT_THAT(macs(false), ElementsAre(2)) << "deleted at once, also while converging";
  EXPECT_TRUE(world.traced(" delete stale macVtepPair "));
  world.vti("Vxlan1")->vArpVtepAddrIs(vtep(2));
  EXPECT_THAT(macs(false), IsEmpty());
  EXPECT_EQ(markedCount(), 0U);
  world.vti("Vxlan1")->vArpVtepAddrIs(vtep(4));
  EXPECT_THAT(macs(false), ElementsAre(2));
}

TEST_F(HostsTest, AreEnteredForEachVtiThatMapsTheVni) {
  world.addVti("Vxlan2");
  world.mapAndImport("Vxlan2", 20, 100);
  world.vlanVniMaps->vlanVniMapIs(IntfId("Vxlan3"));  // which maps nothing
  world.host(100, 1, 2);
  EXPECT_EQ(world.received(),
            (Hosts{{key(1, 10), {vxlan1, vtep(2), 0}}, {key(1, 20), {vxlan2, vtep(2), 0}}}));
  EXPECT_TRUE(world.traced("Returning as no valid vlan-vni map found"));
  // A VTI without a status has no address of its own: to it every host is remote. Where two map
  // the VNI to one VLAN, the one visited last is named.
  world.map("Vxlan2", 10, 100);
  world.vtiStatusDir->vtiStatusDel(vxlan2);
  world.vti("Vxlan1")->vccImportVlansIs(VlanId(20));
  world.host(100, 3, 1);
  EXPECT_EQ(std::get<0>(world.received().at(key(3, 10))), vxlan2);
}

TEST_F(HostsTest, WithdrawnDuringConvergenceAreMarkedOnceAndUnmarkedByAnyAnnouncement) {
  for (const std::uint64_t number : {1, 2, 3}) world.host(100, number, 2, 5);
  world.converging(true);
  world.withdraw(100, 1);
  world.withdraw(100, 2);
  EXPECT_THAT(macs(true), ElementsAre(1, 2));
  EXPECT_EQ(world.ribHosts().at(key(1, 10)), HostFacts(vxlan1, vtep(2), 5)) << "stays as it was";
  world.host(100, 1, 2, 5);  // as it was
  EXPECT_TRUE(world.traced("Re-add, entry was marked for delete"));
  EXPECT_EQ(markedCount(), 1U);
  world.withdraw(100, 1);
  world.client->deferDeleteReceivedTableEntry(key(1, 10));  // is marked
  world.client->deferDeleteReceivedTableEntry(key(9, 10));  // is not there
  EXPECT_EQ(markedCount(), 2U);
  world.host(100, 2, 3, 6);
  world.converging(false);
  EXPECT_TRUE(world.zepConvergenceStatus->unicastDeferredDeletionInProgress());
  world.rest();
  EXPECT_THAT(macs(false), ElementsAre(2, 3));
  EXPECT_FALSE(world.zepConvergenceStatus->unicastDeferredDeletionInProgress());
}

TEST_F(HostsTest, OfAVniThatGoesDuringConvergenceStayUntilItIsOver) {
  world.zepSde->vlanFloodSetIs(VlanId(10));
  for (const std::uint64_t number : {1, 2}) world.host(100, number, 2);
  world.converging(true);
  world.unpublish(100);
  EXPECT_THAT(world.vnis(), IsEmpty());
  EXPECT_THAT(macs(true), ElementsAre(1, 2));
  EXPECT_TRUE(world.zepSde->vlanFloodSet(VlanId(10)));
  world.host(100, 2, 2);
  EXPECT_THAT(macs(true), ElementsAre(1));
  world.converging(false);
  world.rest();
  EXPECT_THAT(macs(false), ElementsAre(2));
  world.unpublish(100);
  EXPECT_THAT(world.ribHosts(), IsEmpty());
  EXPECT_FALSE(world.zepSde->vlanFloodSet(VlanId(10))) << "outside convergence both go at once";
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
  EXPECT_EQ(world.ribHosts(), world.received());
  EXPECT_THAT(macs(false), ElementsAre(1));
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

// Ten hosts on a time that moves on by a millisecond at every reading.
struct DeferredRunTest : HostsTest {
  DeferredRunTest() : HostsTest(0.001) {
    for (std::uint64_t number = 0; number < 10; ++number) world.host(100, number, 2);
  }

  // Leaves a run pending that has these to delete.
  void convergeWithout(const std::vector<std::uint64_t>& numbers) {
    world.converging(true);
    for (const std::uint64_t number : numbers) world.withdraw(100, number);
    world.converging(false);
  }

  void batch(int entries) {
    world.batch(entries);
    world.audit();
  }
  // Nothing is left to do.
  void expectDone() const {
    EXPECT_FALSE(inProgress());
    EXPECT_EQ(bookmark(), MacVlanPair());
    EXPECT_EQ(world.facility->nextDue(), Moru::Clock::never);
  }
  MacVlanPair bookmark() const { return world.client->unicastDeferredDeleteBookmark(); }
  bool inProgress() const {
    return world.zepConvergenceStatus->unicastDeferredDeletionInProgress();
  }
};

TEST_F(DeferredRunTest, YieldsWhenItsTimeIsSpentAndResumesAtTheEntryNotYetExamined) {
  convergeWithout({1, 4, 8});
  batch(2);
  EXPECT_THAT(macs(true), ElementsAre(4, 8));
  EXPECT_EQ(bookmark(), key(2, 10));
  EXPECT_TRUE(inProgress());
  EXPECT_TRUE(
      world.traced(" reschedule, resume later from 02:00:00:00:00:02 vlan 10 Remaining count 2"));
  EXPECT_NEAR(world.facility->nextDue(), world.time->time() - 0.001, 1e-9) << "the time last read";
  batch(0);
  EXPECT_EQ(bookmark(), key(2, 10));
  batch(3);
  EXPECT_TRUE(world.traced(" starting at bookmark 02:00:00:00:00:02 vlan 10"));
  EXPECT_THAT(macs(true), ElementsAre(8));
  EXPECT_EQ(bookmark(), key(5, 10));
  batch(100);
  EXPECT_THAT(macs(true), IsEmpty());
  expectDone();
}

TEST_F(DeferredRunTest, WrapsAroundAndEndsWithTheLastMark) {
  convergeWithout({6, 9});
  batch(5);
  EXPECT_EQ(bookmark(), key(5, 10));
  world.converging(true);
  world.withdraw(100, 1);
  world.withdraw(100, 3);
  world.converging(false);
  batch(9);  // from 5 to 9, and on from 0 to 3
  EXPECT_TRUE(world.traced(" reached end, resume from first entry"));
  expectDone();  // 4 need not be reached again
}

TEST_F(DeferredRunTest, SurvivesWhatHappensBetweenItsBatches) {
  convergeWithout({0, 2, 4, 6, 8});
  batch(4);
  EXPECT_EQ(bookmark(), key(4, 10));
  world.host(100, 4, 3);  // the bookmarked entry is announced again
  batch(1);
  EXPECT_EQ(bookmark(), key(5, 10));
  world.withdraw(100, 5);  // and here it goes for good, with its neighbour
  world.client->deleteReceivedTableEntry(key(6, 10));
  batch(1);
  EXPECT_EQ(bookmark(), key(8, 10));
  world.host(100, 8, 3);
  EXPECT_EQ(markedCount(), 0U);
  batch(1);
  EXPECT_TRUE(world.traced(" no markedForDel entries"));
  EXPECT_FALSE(inProgress());
  EXPECT_THAT(macs(false), ElementsAre(1, 3, 4, 7, 8, 9));
}

TEST_F(DeferredRunTest, WaitsForTheEndOfANewConvergence) {
  convergeWithout({1, 2});
  batch(2);
  EXPECT_THAT(macs(true), ElementsAre(2));
  world.converging(true);
  EXPECT_FALSE(inProgress());
  EXPECT_NE(world.facility->nextDue(), Moru::Clock::never) << "the clock is left as it is";
  batch(100);
  EXPECT_TRUE(world.traced(" called but nothing to do - korvo rebooted again?"));
  EXPECT_THAT(macs(true), ElementsAre(2));
  EXPECT_EQ(world.facility->nextDue(), Moru::Clock::never);
  world.host(100, 2, 2);
  world.withdraw(100, 7);
  world.converging(false);
  EXPECT_TRUE(inProgress());
  batch(100);
  EXPECT_THAT(macs(false), ElementsAre(0, 2, 3, 4, 5, 6, 8, 9));
}

TEST_F(DeferredRunTest, CopesWithWatchersThatChangeTheTableUnderIt) {
  convergeWithout({1, 2, 3, 8});
  bool done = false;
  const auto watcher = watch(world.l2RibZepInput, [&] {
    if (std::exchange(done, true)) return;
    world.client->deleteReceivedTableEntry(key(2, 10));  // the next one
    world.withdraw(100, 9);
    world.host(100, 20, 2);
    world.host(100, 3, 2);
  });
  batch(100);
  EXPECT_TRUE(done);
  EXPECT_THAT(macs(false), ElementsAre(0, 3, 4, 5, 6, 7, 20));
  EXPECT_FALSE(inProgress());
}

TEST_F(DeferredRunTest, EndsWithTheControllersStateEntryAndWithTheControllerMode) {
  world.converging(true);
  world.withdraw(100, 1);
  world.zepStateBaseDir->entityPtrDel("controller");
  EXPECT_TRUE(world.traced("void Vxlan::ZepStateSm::cleanup() convergence window true"));
  EXPECT_FALSE(world.zepStateClientView->convergenceInProgress());
  EXPECT_TRUE(inProgress());
  batch(100);
  EXPECT_THAT(macs(true), IsEmpty());
  EXPECT_EQ(macs(false).size(), 9U);

  const auto state = create<VxlanController::ZepStateV2>();
  state->convergenceInProgressIs(true);
  world.zepStateBaseDir->entityPtrIs("controller", state);
  EXPECT_TRUE(world.zepStateClientView->convergenceInProgress());
  world.vti("Vxlan1")->controllerClientModeIs(false);
  EXPECT_FALSE(world.zepStateClientView->convergenceInProgress());
  EXPECT_THAT(world.ribHosts(), IsEmpty()) << "leaving the mode never defers";
  batch(1);
  EXPECT_FALSE(inProgress());
}

}  // namespace
}  // namespace Test
