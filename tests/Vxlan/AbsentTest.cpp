// Any input may be absent, from the start or from one moment on: every handler of every machine can
// be called all the same.
#include <gtest/gtest.h>

#include "framework/Moru/Exception.h"
#include "tests/Vxlan/World.h"

namespace Test {
namespace {

using Client = Vxlan::VxlanControllerClientSm;

const IntfId intf("Vxlan1");
const VlanId vlan(10);
const VniExt vni(100);
const MacVlanPair host{mac(1), vlan};

// Calls them on what `find` finds, if anything; some find that a child of theirs was made from
// another entity.
template <class Find, class... Handlers>
void on(Find&& find, Handlers&&... handlers) {
  const auto call = [&](auto&& handler) {
    try {
      if (const auto machine = find()) handler(*machine);
    } catch (const Moru::NameInUseException&) {
    }
  };
  (call(handlers), ...);
}

void callEveryHandler(const Ptr<Client>& client) {
  const auto vniSm = [&] { return client->zepPerVniFdbStatusSm(vni); };
  const auto mlagSm = [&] { return client->zepMlagBumStatusSm(); };
  const auto vlanSm = [&] { return mlagSm() ? mlagSm()->vlanFloodSet(vlan) : nullptr; };
  on([&] { return client->zepStateSm(); }, [](auto& sm) { sm.handleInitialized(); },
     [](auto& sm) { sm.cleanup(); });
  on([&] { return client->receivedHostTableToL2RibHostInputSm(); },
     [](auto& sm) { sm.handleReceivedHostEntry(); },
     [](auto& sm) { sm.handleReceivedHostEntry(host); },
     [](auto& sm) { sm.initializedIs(false), sm.handleInitialized(); });
  on([&] { return client->vlanVniMapSm(intf); }, [](auto& sm) { sm.handleInitialized(); },
     [](auto& sm) { sm.handleVlanVniMapUpdate(vlan); });
  on(
      vniSm, [](auto& sm) { sm.handleInitialized(); },
      [](auto& sm) { sm.handleZepHostTable(mac(1)); }, [](auto& sm) { sm.handleVarpVtepAddr(); },
      [](auto& sm) { sm.handleMacVtepMultiPathTable(mac(2)); },
      [](auto& sm) { sm.handleMacVtepMultiPathTable(); },
      [](auto& sm) { sm.handleMacVtepFloodListTable(); });
  on([&] { return vniSm() ? vniSm()->macVtepFloodListTableSm(mac(1)) : nullptr; },
     [](auto& sm) { sm.handleInitialized(); }, [](auto& sm) { sm.handleVtepIpFloodList(); },
     [](auto& sm) { sm.handleVtepIpFloodList(vtep(2)); }, [](auto& sm) { sm.cleanup(); });
  on(vniSm, [](auto& sm) { sm.handleMacVtepFloodListTable(mac(1)); });
  on(
      mlagSm, [](auto& sm) { sm.handleInitialized(); },
      [](auto& sm) { sm.handleVlanFloodSet(vlan); }, [](auto& sm) { sm.markAndSweep(vlan); });
  on([&] { return mlagSm() ? mlagSm()->vtiVlanVniMap(intf) : nullptr; },
     [](auto& reactor) { reactor.handleVlanVniMapUpdate(vlan); });
  on(
      vlanSm, [](auto& reactor) { reactor.handleVfsInit(); },
      [](auto& reactor) { reactor.handleFloodSet(mac(1)), reactor.handleFloodSet(); });
  on([&] { return vlanSm() ? vlanSm()->floodSet(mac(1)) : nullptr; },
     [](auto& set) { set.handleDest(dest(2)), set.handleDest(), set.handleFloodSetType(); });
  on([&] { return client; }, [](auto& c) { c.handleInitialized(); },
     [](auto& c) { c.handleControllerClientMode(), c.handleDatapathLearningMode(); },
     [](auto& c) { c.handleVlanVniMapVti(intf); }, [](auto& c) { c.handleVlanVniMapVti(); },
     [](auto& c) { c.vccImportVlansDel(vlan), c.updateAggregateImportVlans(); },
     [](auto& c) { c.handleZepStateBaseDir("controller"); },
     [](auto& c) { c.handleConvergenceInProgress(); },
     [](auto& c) { c.handleControllerVniBaseDir("100"); },
     [](auto& c) { c.vxlanControllerScanVniStatus(vni); }, [](auto& c) { c.handleMlagState(); },
     [](auto& c) { c.handleBumReplicationMode(); },
     [](auto& c) { c.isVtepIpMine(vni, vtep(2), intf); },
     [](auto& c) { c.deferDeleteReceivedTableEntry(host); },
     [](auto& c) { c.processUnicastDeferredDeletes(), c.processBumDeferredDeletes(); },
     [](auto& c) { c.deleteReceivedTableEntry(host), c.deleteBumVtepListTable(vlan); },
     [](auto& c) { c.deleteRemoteMacFromController(vlan, false); },
     [](auto& c) { c.cleanupZepPerVniFdbStatusSm(vni, true); },
     [](auto& c) { c.cleanupZepPerVniFdbStatusSm(), c.deleteBumVtepListTable(); });
}

TEST(Client, DoesWithoutAnyInputFromTheStart) {
  const auto liveWithout = [](auto World::*input, bool controllerMode = true) {
    World world;
    furnish(world, false);
    world.vti("Vxlan1")->controllerClientModeIs(controllerMode);
    const auto kept = std::exchange(world.*input, nullptr);
    world.start();
    callEveryHandler(world.client);
    world.rest();
    world.*input = kept;
    world.restart();
    world.rest();
    const Expected expected = expectedOf(world);
    EXPECT_EQ(world.received(), expected.hosts);
    EXPECT_EQ(world.floodSets(), expected.floodSets);
  };
  liveWithout(&World::vtiStatusDir), liveWithout(&World::controllerStatusBaseDir);
  liveWithout(&World::zepStateClientView), liveWithout(&World::vxlanHwStatusDir);
  liveWithout(&World::mlagVxlanStatus), liveWithout(&World::zepStateBaseDir);
  liveWithout(&World::vlanVniMaps), liveWithout(&World::zepSde);
  liveWithout(&World::l2RibZepInput), liveWithout(&World::zepConvergenceStatus);
  liveWithout(&World::mlagStatus, false);
  EXPECT_DEATH(liveWithout(&World::mlagStatus), "mlagStatus\\(\\)");
  callEveryHandler(Vxlan::vxlanControllerClientSmFactory(nullptr, nullptr, nullptr, nullptr,
                                                         nullptr, nullptr, nullptr, nullptr,
                                                         nullptr, nullptr, nullptr));
}

TEST(Client, DoesWithoutAnyInputThatIsTakenFromItLater) {
  const auto liveWithout = [](bool mlag, auto remove) {
    World world;
    furnish(world, mlag);
    world.startAndRest();
    remove(*world.client);
    callEveryHandler(world.client);
    world.restart();
    world.rest();
    EXPECT_EQ(world.received(), expectedOf(world).hosts);
  };
  const auto vniSm = [](Client& c) { return c.zepPerVniFdbStatusSm(vni); };
  const auto mlagSm = [](Client& c) { return c.zepMlagBumStatusSm(); };
  for (const bool mlag : {false, true}) {
    liveWithout(mlag, [](Client& c) { c.vtiStatusDirDel(); });
    liveWithout(mlag, [](Client& c) { c.controllerStatusBaseDirDel(); });
    liveWithout(mlag, [](Client& c) { c.zepStateClientViewDel(); });
    liveWithout(mlag, [](Client& c) { c.zepStateBaseDirDel(); });
    liveWithout(mlag, [](Client& c) { c.vlanVniMapsDel(); });
    liveWithout(mlag, [](Client& c) { c.localBumStatusDel(); });
    liveWithout(mlag, [](Client& c) { c.unicastDeferredDeleteClockDel(); });
    liveWithout(mlag, [](Client& c) { c.bumDeferredDeleteClockDel(); });
    liveWithout(mlag, [&](Client& c) { vniSm(c)->zepVniFdbStatusV2Del(); });
    liveWithout(mlag, [&](Client& c) { vniSm(c)->vtiStatusDirDel(); });
    liveWithout(mlag, [&](Client& c) { vniSm(c)->vxlanHwStatusDirDel(); });
    liveWithout(mlag, [](Client& c) { c.vlanVniMapSm(intf)->vlanVniMapDel(); });
    liveWithout(mlag, [](Client& c) { c.zepStateSm()->zepStateDel(); });
    liveWithout(mlag,
                [](Client& c) { c.receivedHostTableToL2RibHostInputSm()->receivedHostTableDel(); });
  }
  liveWithout(false, [&](Client& c) {
    vniSm(c)->macVtepFloodListTableSm(mac(1))->macVtepFloodListTableDel();
  });
  liveWithout(true, [&](Client& c) { mlagSm(c)->vlanVniMapsDel(); });
  liveWithout(true, [&](Client& c) { mlagSm(c)->remoteBumStatusDel(); });
  liveWithout(true, [&](Client& c) { mlagSm(c)->localBumStatusDel(); });
}

// Children that are made over less than the root has.
TEST(Client, MakesChildrenWithoutTheirInputs) {
  World world;
  furnish(world, false);
  world.startAndRest();
  auto& client = *world.client;
  const auto vniSm = client.zepPerVniFdbStatusSm(vni);
  const auto list = world.floodListOf(100, 1);
  for (const auto& sm :
       {vniSm->macVtepFloodListTableSmIs(mac(7), list, nullptr, vniSm.get()),
        vniSm->macVtepFloodListTableSmIs(mac(8), nullptr, world.zepSde, vniSm.get())}) {
    sm->handleVtepIpFloodList(vtep(2)), sm->handleVtepIpFloodList(), sm->handleInitialized();
    sm->cleanup();
  }
  client.zepPerVniFdbStatusSmIs(VniExt(7), nullptr, nullptr, nullptr, nullptr, &client)
      ->handleZepHostTable(mac(1));
  client.vlanVniMapSmIs(IntfId("Vxlan7"), nullptr, &client)->handleVlanVniMapUpdate(vlan);
  Vxlan::receivedHostTableToL2RibHostInputSmFactory(nullptr, nullptr)
      ->handleReceivedHostEntry(host);
  create<Vxlan::ZepStateSm>(nullptr, nullptr)->handleConvergenceInProgress();
}

}  // namespace
}  // namespace Test
