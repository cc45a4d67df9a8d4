// Reactions in the middle of which their reason is taken away: each mishap at each of the first
// notifications of what the client writes while it reacts to each event. And inputs that are
// absent, from the start or from one moment on: every handler of every machine can be called all
// the same. Nothing must break, and once all is as it was the client must have what the inputs
// alone ask for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/Moru/Exception.h"
#include "tests/Vxlan/World.h"

namespace Test {
namespace {

using Act = void (*)(World&);
using Client = Vxlan::VxlanControllerClientSm;
using Mode = Vxlan::BumReplicationMode;

const IntfId intf("Vxlan1");
const VlanId vlan(10);
const VniExt vni(100);
const MacVlanPair host{mac(1), vlan};

// Puts a world right, and looks at what a new client makes of it.
void expectPutRight(World& world, bool mlag) {
  world.stop();
  furnish(world, mlag);
  world.startAndRest();
  world.bumModes(Mode::unknown, Mode::unknown);
  furnish(world, mlag);
  const Expected expected = expectedOf(world);
  EXPECT_EQ(world.received(), expected.hosts);
  EXPECT_EQ(world.floodSets(), mlag ? floodSetsOf(*world.peerSde) : expected.floodSets);
}

const std::vector<Act> mishaps = {
    [](World& world) { world.unpublish(100); },
    [](World& world) { world.withdrawFloodList(100, 1); },
    [](World& world) { world.withdrawMultiPath(100, 2); },
    [](World& world) { world.withdraw(100, 2); },
    [](World& world) { world.unmap("Vxlan1", 10); },
    [](World& world) { world.vlanVniMaps->vlanVniMapDel(IntfId("Vxlan1")); },
    [](World& world) { world.vtiStatusDir->vtiStatusDel(IntfId("Vxlan1")); },
    [](World& world) { world.vti("Vxlan1")->controllerClientModeIs(false); },
    [](World& world) { world.vti("Vxlan1")->vccImportVlansDel(VlanId(10)); },
    [](World& world) { world.vti("Vxlan1")->datapathLearningIs(true); },
    [](World& world) { world.zepStateBaseDir->entityPtrDel("controller"); },
    [](World& world) { world.converging(true); },
    [](World& world) { world.mlag(false); },
    [](World& world) { world.peerSde->vlanFloodSetDel(VlanId(10)); },
    [](World& world) { world.peerSde->vlanFloodSetIs(VlanId(10))->floodSetDel(mac(1)); },
    [](World& world) { world.zepSde->vlanFloodSetDelAll(); },
    [](World& world) { world.bumStatus->bumReplicationModeIs(Mode::unknown); },
    [](World& world) { world.peerBumStatus->bumReplicationModeIs(Mode::unknown); },
    [](World& world) { world.client = nullptr; },
};

struct Event {
  bool mlag;  // the peer's flood sets are copied; else there are the controller's
  Act happens;
  Act comesBefore = [](World&) {};
};

void start(World& world) { world.start(); }

const std::vector<Event> events = {
    {false, start},
    {true, start},
    {false, [](World& world) { world.vti("Vxlan1")->vArpVtepAddrIs(vtep(9)); }},
    {false, [](World& world) { world.vti("Vxlan1")->vArpVtepAddrIs(vtep(9)); },
     [](World& world) { world.converging(true); }},
    {false, [](World& world) { world.unmap("Vxlan1", 10); }},
    {false, [](World& world) { world.vti("Vxlan1")->controllerClientModeIs(false); }},
    {false, [](World& world) { world.vti("Vxlan1")->datapathLearningIs(true); }},
    {false, [](World& world) { world.unpublish(100); }},
    {false,
     [](World& world) {
       world.floodList(100, 1, {3, 5, 6});
       if (world.client) world.multiPath(100, 2, {3, 5, 6});
     }},
    {false, [](World& world) { world.rest(); },
     [](World& world) {
       world.converging(true);
       for (const std::uint64_t number : {1, 2, 3}) world.withdraw(100, number);
       world.floodList(100, 1, {8});
       world.multiPath(100, 2, {8});
       world.converging(false);
     }},
    {true,
     [](World& world) {
       world.peerFloodSet(10, 1)->destSetIs(dest(9), true);
       world.peerFloodSet(20, 3)->destSetIs(dest(9), true);
     }},
    {true,
     [](World& world) {
       world.bumModes(Mode::unknown, Mode::controller);
       world.bumModes(Mode::controller, Mode::controller);
     }},
};

// Watches all that the client writes, what comes into being on the way included.
class Tripwire {
 public:
  Tripwire(World& world, unsigned call, Act mishap) : world_(world), left_(call), mishap_(mishap) {
    hook();
  }
  bool tripped() const { return left_ == 0; }

 private:
  template <class E>
  void hook(const Ptr<E>& entity) {
    if (!watched_.insert(entity.get()).second) return;
    watchers_.push_back(watch(entity, [this](auto...) {
      hook();
      if (left_ != 0 && --left_ == 0) mishap_(world_);
    }));
  }
  void hook() {
    hook(world_.l2RibZepInput), hook(world_.zepConvergenceStatus), hook(world_.zepSde);
    for (const auto& [vlan, vlanFloodSet] : world_.zepSde->vlanFloodSet()) {
      hook(vlanFloodSet);
      for (const auto& [address, floodSet] : vlanFloodSet->floodSet()) hook(floodSet);
    }
  }

  World& world_;
  unsigned left_;
  const Act mishap_;
  std::set<const void*> watched_;
  std::vector<Ptr<Moru::PtrInterface>> watchers_;
};

class Mishap : public testing::TestWithParam<std::size_t> {};
INSTANTIATE_TEST_SUITE_P(Each, Mishap, testing::Range(std::size_t{0}, mishaps.size()));

TEST_P(Mishap, InTheMiddleOfAnyReactionBreaksNothing) {
  for (const Event& event : events) {
    for (const unsigned call : {1U, 2U, 3U, 4U, 6U, 9U, 14U}) {
      SCOPED_TRACE(testing::Message() << "event " << &event - events.data() << " call " << call);
      World world;
      furnish(world, event.mlag);
      if (event.happens != start) world.startAndRest();
      event.comesBefore(world);
      bool tripped = false;
      {
        const Tripwire tripwire(world, call, mishaps[GetParam()]);
        event.happens(world);
        tripped = tripwire.tripped();
      }
      EXPECT_TRUE(tripped || call > 1);
      if (!tripped) break;
      if (world.client) {
        EXPECT_EQ(world.client->zepMlagBumStatusSm() != nullptr,
                  world.client->vxlanControllerClientMode() &&
                      world.mlagStatus->mlagState() == Mlag::MlagState::active);
        world.converging(false);
        world.rest();
        world.audit();
        EXPECT_TRUE(world.received(true).empty());
      }
      expectPutRight(world, event.mlag);
    }
  }
}

TEST(Client, HearsNothingMoreInTheMiddleOfItsEnd) {
  World world;
  furnish(world, false);
  world.converging(true);
  world.start();
  const FloodSets floodSets = world.floodSets();
  int calls = 0;
  // The end of the client ends the convergence window, and that is seen.
  const auto watcher = watch(world.zepStateClientView, [&](auto...) {
    ++calls;
    world.host(100, 5, 2);
    world.vti("Vxlan1")->vccImportVlansDel(VlanId(10));
    world.unmap("Vxlan1", 10);
    world.vti("Vxlan1")->controllerClientModeIs(false);
  });
  world.client = nullptr;
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(world.l2RibZepInput->host().size(), 3U) << "what stands in the RIB is for the next";
  EXPECT_EQ(world.floodSets(), floodSets);
  EXPECT_EQ(world.facility->nextDue(), Moru::Clock::never);
}

Ptr<Vxlan::ZepPerVniFdbStatusSm> vniSmOf(Client& client) {
  return client.zepPerVniFdbStatusSm(vni);
}

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
  const auto vniSm = [&] { return vniSmOf(*client); };
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
    expectPutRight(world, false);
  };
  liveWithout(&World::vtiStatusDir), liveWithout(&World::controllerStatusBaseDir);
  liveWithout(&World::zepStateClientView), liveWithout(&World::vxlanHwStatusDir);
  liveWithout(&World::mlagVxlanStatus), liveWithout(&World::zepStateBaseDir);
  liveWithout(&World::vlanVniMaps), liveWithout(&World::zepSde);
  liveWithout(&World::l2RibZepInput), liveWithout(&World::zepConvergenceStatus);
  liveWithout(&World::mlagStatus, false);
  EXPECT_DEATH(liveWithout(&World::mlagStatus), "mlagStatus\\(\\)");
  callEveryHandler(Vxlan::vxlanControllerClientSmFactory(Vxlan::ClientInputs{}));
}

TEST(Client, DoesWithoutAnyInputThatIsTakenFromItLater) {
  const auto liveWithout = [](bool mlag, const std::vector<void (*)(Client&)>& removals) {
    for (const auto remove : removals) {
      World world;
      furnish(world, mlag);
      world.startAndRest();
      remove(*world.client);
      callEveryHandler(world.client);
      expectPutRight(world, mlag);
    }
  };
  for (const bool mlag : {false, true})
    liveWithout(
        mlag,
        {[](Client& c) { c.vtiStatusDirDel(); }, [](Client& c) { c.controllerStatusBaseDirDel(); },
         [](Client& c) { c.zepStateClientViewDel(); }, [](Client& c) { c.zepStateBaseDirDel(); },
         [](Client& c) { c.vlanVniMapsDel(); }, [](Client& c) { c.localBumStatusDel(); },
         [](Client& c) { c.unicastDeferredDeleteClockDel(); },
         [](Client& c) { c.bumDeferredDeleteClockDel(); },
         [](Client& c) { vniSmOf(c)->zepVniFdbStatusV2Del(); },
         [](Client& c) { vniSmOf(c)->vtiStatusDirDel(); },
         [](Client& c) { vniSmOf(c)->vxlanHwStatusDirDel(); },
         [](Client& c) { c.vlanVniMapSm(intf)->vlanVniMapDel(); },
         [](Client& c) { c.zepStateSm()->zepStateDel(); },
         [](Client& c) { c.receivedHostTableToL2RibHostInputSm()->receivedHostTableDel(); }});
  liveWithout(false, {[](Client& c) {
                vniSmOf(c)->macVtepFloodListTableSm(mac(1))->macVtepFloodListTableDel();
              }});
  liveWithout(true, {[](Client& c) { c.zepMlagBumStatusSm()->vlanVniMapsDel(); },
                     [](Client& c) { c.zepMlagBumStatusSm()->remoteBumStatusDel(); },
                     [](Client& c) { c.zepMlagBumStatusSm()->localBumStatusDel(); }});
}

// Children that are made over less than the root has.
TEST(Client, MakesChildrenWithoutTheirInputs) {
  World world;
  furnish(world, false);
  world.startAndRest();
  auto& client = *world.client;
  const auto vniSm = vniSmOf(client);
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
