// A random walk over a switch and its controller, with an audit after every step.
//
// Some of what may happen leaves something behind on purpose (a VLAN that one VTI unmaps takes the
// machines of other VTIs' VNIs with it; a VTI that goes leaves the modes). From then on the state
// of the client depends on its history; until it is restarted the walk audits it, but does not
// compare it with what the inputs alone would give.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sstream>

#include "tests/Vxlan/World.h"

namespace Test {
namespace {

// What two walkers have in common: a world, and chance.
class Chance {
 protected:
  explicit Chance(unsigned seed) : random_(seed) {}
  unsigned pick(unsigned count) { return static_cast<unsigned>(random_() % count); }

  World world_{0.001};
  unsigned last_ = 0;  // what was done last

 private:
  std::mt19937 random_;
};

class Walker : Chance {
 public:
  Walker(unsigned seed, bool twoVtis) : Chance(seed), twoVtis_(twoVtis) {
    world_.addVti("Vxlan1");
    if (twoVtis_) world_.addVti("Vxlan2");
    world_.bumModes(Vxlan::BumReplicationMode::controller, Vxlan::BumReplicationMode::unknown);
    world_.converging(false);
    world_.start();
    world_.client->maxProcessTimeIs(budget);
  }

  void walk(int steps) {
    for (int step = 0; step < steps; ++step) {
      act();
      SCOPED_TRACE(testing::Message() << "step " << step << " did " << last_);
      ASSERT_NO_FATAL_FAILURE(world_.audit());
      if (dependsOnHistory_) continue;
      ASSERT_EQ(world_.vnis(), expectedVnis(world_));
      ASSERT_EQ(world_.received(), expectedHosts(world_));
      ASSERT_NO_FATAL_FAILURE(auditFloodSets());
    }
    world_.vti("Vxlan1")->controllerClientModeIs(true);  // else nobody follows the controller
    world_.converging(false);
    world_.rest();
    EXPECT_TRUE(world_.received(true).empty()) << "nothing stays marked when all is quiet";
    EXPECT_FALSE(world_.zepConvergenceStatus->unicastDeferredDeletionInProgress());
    EXPECT_FALSE(world_.zepConvergenceStatus->bumDeferredDeletionInProgress());
  }

 private:
  static constexpr double budget = 0.0045;  // four entries at a millisecond a reading

  const char* anyVti() { return twoVtis_ && pick(2) == 0 ? "Vxlan2" : "Vxlan1"; }
  std::uint32_t anyVni() { return 100 + pick(6); }
  // Each VTI has VLANs of its own; every VNI may be mapped by either.
  int anyVlan(const char* intf) { return (intf[5] == '1' ? 10 : 20) + static_cast<int>(pick(4)); }

  std::uint64_t anyListed() { return 1 + pick(3); }  // a MAC with flood lists

  void act() {
    const double now = world_.time->time();
    last_ = pick(140);
    if (last_ < 40) return world_.host(anyVni(), pick(12), 1 + pick(4), pick(3));
    if (last_ < 58) return world_.withdraw(anyVni(), pick(12));
    if (last_ < 66) return world_.converging(pick(2) == 0);
    if (last_ < 74) return static_cast<void>(world_.facility->fireDue());
    if (last_ < 79) return remap();
    if (last_ < 83) return import();
    if (last_ < 86) return world_.unpublish(anyVni());
    if (last_ < 89) return mode();
    if (last_ < 91) return world_.vti(anyVti())->vArpVtepAddrIs(vtep(pick(5)));
    if (last_ < 93) return static_cast<void>(world_.time->waitUntil(now + 0.002));
    if (last_ < 95) return entryState();
    if (last_ < 97) return renewVti();
    if (last_ < 100) return restart();
    if (last_ < 112) return world_.floodList(anyVni(), anyListed(), anyVteps());
    if (last_ < 124) return world_.multiPath(anyVni(), anyListed(), anyVteps());
    if (last_ < 129) return world_.withdrawFloodList(anyVni(), anyListed());
    if (last_ < 134) return world_.withdrawMultiPath(anyVni(), anyListed());
    if (last_ < 137)
      return world_.bumStatus->bumReplicationModeIs(pick(3) == 0
                                                        ? Vxlan::BumReplicationMode::unknown
                                                        : Vxlan::BumReplicationMode::controller);
    world_.converging(pick(3) == 0);
  }

  void restart() {
    world_.restart();
    world_.client->maxProcessTimeIs(budget);
    dependsOnHistory_ = false;
  }

  Vteps anyVteps() {
    Vteps vteps;
    for (unsigned count = pick(4); count > 0; --count) vteps.insert(2 + pick(6));
    return vteps;
  }

  // What the tables ask for is there always, and is all there is unless something is postponed. An
  // emptied VLAN may stand.
  void auditFloodSets() const {
    FloodSets sets = world_.floodSets();
    std::erase_if(sets, [](const auto& each) { return each.first.second == 0; });
    const FloodSets expected = expectedFloodSets(world_);
    if (!world_.client->vxlanControllerClientMode() || world_.client->convergenceInProgress() ||
        world_.facility->nextDue() != Moru::Clock::never) {
      for (const auto& [key, text] : expected) {
        ASSERT_TRUE(sets.contains(key)) << key.first << " " << key.second;
        ASSERT_TRUE(holds(sets[key], text)) << sets[key] << " lacks of " << text;
      }
    } else {
      ASSERT_EQ(sets, expected);
    }
  }

  // Whether a flood set is of the type that is asked for, and has its VTEPs among others.
  static bool holds(const std::string& set, const std::string& askedFor) {
    std::istringstream words(askedFor);
    for (std::string word; words >> word;)
      if ((" " + set + " ").find(" " + word + " ") == std::string::npos) return false;
    return true;
  }

  // A VNI stands in one place of a map: it is taken from its VLAN before another gets it.
  void remap() {
    const char* const intf = anyVti();
    const int vlan = anyVlan(intf);
    const std::uint32_t vni = anyVni();
    const auto map = world_.vlanVniMaps->vlanVniMap(IntfId(intf));
    if (map) {
      const int former = map->vniToVlan(VniExt(vni)).value();
      if (former != 0) unmap(intf, former);
      if (!!map->vlanToVsp(VlanId(vlan))) unmap(intf, vlan);
    }
    if (pick(4) == 0) return;
    // That a VLAN is not imported does not count for a machine that another VTI wants.
    if (!world_.client->vccImportVlans().contains(VlanId(vlan)) && twoVtis_)
      dependsOnHistory_ = true;
    world_.map(intf, vlan, vni);
  }

  void unmap(const char* intf, int vlan) {
    world_.unmap(intf, vlan);
    if (twoVtis_) dependsOnHistory_ = true;
  }

  void import() {
    const char* const intf = anyVti();
    const auto vti = world_.vti(intf);
    const VlanId vlan(anyVlan(intf));
    if (pick(4) != 0)
      vti->vccImportVlansIs(vlan);
    else
      vti->vccImportVlansDel(vlan);
  }

  void mode() {
    const auto vti = world_.vti(anyVti());
    if (pick(2) == 0)
      vti->controllerClientModeIs(!vti->controllerClientMode());
    else
      vti->datapathLearningIs(!vti->datapathLearning());
  }

  void entryState() {
    const std::string name = std::to_string(anyVni());
    const bool state = pick(3) != 0;
    if (!state && world_.controllerStatusBaseDir->entryState(name)) dependsOnHistory_ = true;
    world_.controllerStatusBaseDir->entryStateIs(name, state);
  }

  void renewVti() {
    const char* const intf = anyVti();
    const auto vti = world_.vti(intf);
    const bool mode = vti->controllerClientMode();
    const bool learning = vti->datapathLearning();
    world_.vtiStatusDir->vtiStatusDel(IntfId(intf));
    world_.audit();
    if (twoVtis_) dependsOnHistory_ = true;  // its hosts count as remote, whatever their VTEP
    world_.addVti(intf, mode, learning);
  }

  const bool twoVtis_;
  bool dependsOnHistory_ = false;
};

// The same for the copying of the MLAG peer's flood sets, without any of the controller's own.
class MlagWalker : Chance {
 public:
  explicit MlagWalker(unsigned seed) : Chance(seed) {
    world_.addVti("Vxlan1");
    world_.bumModes(controller, controller);
    world_.mlag(true);
    world_.converging(false);
    world_.start();
  }

  void walk(int steps) {
    for (int step = 0; step < steps; ++step) {
      act();
      ASSERT_NO_FATAL_FAILURE(audit()) << "step " << step << " " << last_;
    }
    world_.rest();
  }

 private:
  static constexpr Vxlan::BumReplicationMode controller = Vxlan::BumReplicationMode::controller;

  int anyVlan() { return 10 + static_cast<int>(pick(4)); }
  Vxlan::BumReplicationMode anyMode() {
    return pick(3) == 0 ? Vxlan::BumReplicationMode::unknown : controller;
  }
  Ptr<L2Rib::FloodSet> anySet() { return world_.peerFloodSet(anyVlan(), 1 + pick(3)); }

  void act() {
    last_ = pick(100);
    if (last_ < 30) return anySet()->destSetIs(dest(2 + pick(6)), pick(4) != 0);
    if (last_ < 45) return anySet()->destSetDel(dest(2 + pick(6)));
    if (last_ < 50) return anySet()->floodSetTypeIs(L2Rib::FloodSetType(pick(5)));
    if (last_ < 57)
      return world_.peerSde->vlanFloodSetIs(VlanId(anyVlan()))->floodSetDel(mac(1 + pick(3)));
    if (last_ < 61) return world_.peerSde->vlanFloodSetDel(VlanId(anyVlan()));
    if (last_ < 65) return world_.peerBumStatus->bumReplicationModeIs(anyMode());
    if (last_ < 69) return world_.bumStatus->bumReplicationModeIs(anyMode());
    if (last_ < 81) return remap();
    if (last_ < 85) return world_.mlag(pick(3) != 0);
    if (last_ < 89) return world_.vti("Vxlan1")->controllerClientModeIs(pick(3) != 0);
    if (last_ < 92) return world_.converging(pick(2) == 0);
    if (last_ < 94) return world_.host(100 + pick(4), 1, 2);
    if (last_ < 96) return world_.unpublish(100 + pick(4));
    if (last_ < 98) return static_cast<void>(world_.facility->fireDue());
    world_.restart();
  }

  // Every VLAN has one VNI that it may be mapped to.
  void remap() {
    const int vlan = anyVlan();
    const auto map = world_.vlanVniMaps->vlanVniMap(IntfId("Vxlan1"));
    if (map && !!map->vlanToVsp(VlanId(vlan)) && pick(2) == 0)
      world_.unmap("Vxlan1", vlan);
    else
      world_.mapAndImport("Vxlan1", vlan, 90U + static_cast<unsigned>(vlan));
  }

  void audit() const {
    const auto machine = world_.client->zepMlagBumStatusSm();
    ASSERT_EQ(machine != nullptr, world_.client->vxlanControllerClientMode() &&
                                      world_.mlagStatus->mlagState() == Mlag::MlagState::active);
    if (!machine || world_.bumStatus->bumReplicationMode() != controller ||
        world_.peerBumStatus->bumReplicationMode() != controller)
      return;
    const auto map = world_.vlanVniMaps->vlanVniMap(IntfId("Vxlan1"));
    const auto isUnmapped = [&](const auto& each) {
      return !map || !map->vlanToVsp(VlanId(each.first.first));
    };
    FloodSets sets = world_.floodSets();
    FloodSets peers = floodSetsOf(*world_.peerSde);
    std::erase_if(sets, isUnmapped);
    std::erase_if(peers, isUnmapped);
    ASSERT_EQ(sets, peers);
  }
};

class RandomWalk : public testing::TestWithParam<unsigned> {};

TEST_P(RandomWalk, KeepsTheClientInLineWithItsInputs) {
  for (const bool twoVtis : {false, true}) Walker(GetParam(), twoVtis).walk(500);
}

TEST_P(RandomWalk, KeepsTheFloodSetsEqualToTheMlagPeers) { MlagWalker(GetParam()).walk(1000); }

INSTANTIATE_TEST_SUITE_P(Seeds, RandomWalk, testing::Range(1U, 25U));

}  // namespace
}  // namespace Test
