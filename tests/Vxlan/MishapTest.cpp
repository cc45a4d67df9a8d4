// Reactions in the middle of which their reason is taken away: each mishap at each of the first
// notifications of what the client writes while it reacts to each event. Nothing must break, and
// once all is as it was the client must have what the inputs alone ask for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Vxlan/World.h"

namespace Test {
namespace {

using Act = void (*)(World&);
using Mode = Vxlan::BumReplicationMode;

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
        world.stop();
      }
      furnish(world, event.mlag);
      world.startAndRest();
      world.bumModes(Mode::unknown, Mode::unknown);
      furnish(world, event.mlag);
      const Expected expected = expectedOf(world);
      EXPECT_EQ(world.received(), expected.hosts);
      EXPECT_EQ(world.floodSets(), event.mlag ? floodSetsOf(*world.peerSde) : expected.floodSets);
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

}  // namespace
}  // namespace Test
