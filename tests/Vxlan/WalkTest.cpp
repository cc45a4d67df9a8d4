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

namespace {

using namespace Test;

class Walker {
 public:
  Walker(unsigned seed, bool twoVtis) : random_(seed), twoVtis_(twoVtis) {
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
      ASSERT_NO_FATAL_FAILURE(world_.audit()) << "step " << step << ": " << last_;
      if (dependsOnHistory_) continue;
      ASSERT_EQ(world_.vnis(), expectedVnis(world_)) << "step " << step << ": " << last_;
      ASSERT_EQ(world_.received(), expectedHosts(world_)) << "step " << step << ": " << last_;
      ASSERT_NO_FATAL_FAILURE(auditFloodSets()) << "step " << step << ": " << last_;
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

  unsigned pick(unsigned count) { return static_cast<unsigned>(random_() % count); }
  const char* anyVti() { return twoVtis_ && pick(2) == 0 ? "Vxlan2" : "Vxlan1"; }
  std::uint32_t anyVni() { return 100 + pick(6); }
  // Each VTI has VLANs of its own; every VNI may be mapped by either.
  int anyVlan(const char* intf) { return (intf[5] == '1' ? 10 : 20) + static_cast<int>(pick(4)); }

  void act() {
    const unsigned die = pick(140);
    if (die >= 100) return actOnFloodLists(die - 100);
    if (die < 40)
      return change("host", [this] { world_.host(anyVni(), pick(12), 1 + pick(4), pick(3)); });
    if (die < 58) return change("withdraw", [this] { world_.withdraw(anyVni(), pick(12)); });
    if (die < 66) return change("convergence", [this] { world_.converging(pick(2) == 0); });
    if (die < 74) return change("a turn of the loop", [this] { world_.facility->fireDue(); });
    if (die < 79) return change("map", [this] { remap(); });
    if (die < 83) return change("import", [this] { import(); });
    if (die < 86) return change("unpublish", [this] { world_.unpublish(anyVni()); });
    if (die < 89) return change("mode", [this] { mode(); });
    if (die < 91)
      return change("virtual ARP", [this] { world_.vti(anyVti())->vArpVtepAddrIs(vtep(pick(5))); });
    if (die < 93) return change("pass of time", [this] { world_.time->waitUntil(now() + 0.002); });
    if (die < 95) return change("entry state", [this] { entryState(); });
    if (die < 97) return change("VTI", [this] { renewVti(); });
    change("restart", [this] {
      world_.restart();
      world_.client->maxProcessTimeIs(budget);
      dependsOnHistory_ = false;
    });
  }

  void actOnFloodLists(unsigned die) {
    if (die < 12)
      return change("flood list", [this] { world_.floodList(anyVni(), 1 + pick(3), anyVteps()); });
    if (die < 24)
      return change("multipath", [this] { world_.multiPath(anyVni(), 1 + pick(3), anyVteps()); });
    if (die < 29)
      return change("no flood list", [this] { world_.withdrawFloodList(anyVni(), 1 + pick(3)); });
    if (die < 34)
      return change("no multipath", [this] { world_.withdrawMultiPath(anyVni(), 1 + pick(3)); });
    if (die < 37)
      return change("BUM mode", [this] {
        world_.bumStatus->bumReplicationModeIs(pick(3) == 0
                                                   ? Vxlan::BumReplicationMode::unknown
                                                   : Vxlan::BumReplicationMode::controller);
      });
    change("convergence", [this] { world_.converging(pick(3) == 0); });
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

  template <class Change>
  void change(const char* what, Change change) {
    last_ = what;
    change();
  }

  double now() const { return world_.time->time(); }

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

  World world_{0.001};
  std::mt19937 random_;
  const bool twoVtis_;
  bool dependsOnHistory_ = false;
  const char* last_ = "";
};

// The same for the copying of the MLAG peer's flood sets, without any of the controller's own.
class MlagWalker {
 public:
  explicit MlagWalker(unsigned seed) : random_(seed) {
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

  unsigned pick(unsigned count) { return static_cast<unsigned>(random_() % count); }
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

  World world_{0.001};
  std::mt19937 random_;
  unsigned last_ = 0;
};

class RandomWalk : public testing::TestWithParam<unsigned> {};

TEST_P(RandomWalk, KeepsTheClientInLineWithItsInputs) {
  for (const bool twoVtis : {false, true}) Walker(GetParam(), twoVtis).walk(500);
}

TEST_P(RandomWalk, KeepsTheFloodSetsEqualToTheMlagPeers) { MlagWalker(GetParam()).walk(1000); }

INSTANTIATE_TEST_SUITE_P(Seeds, RandomWalk, testing::Range(1U, 25U));

}  // namespace
