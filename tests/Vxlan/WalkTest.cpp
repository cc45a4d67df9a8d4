// Random walks over a switch and its controller, with an audit after every step.
//
// They start in a world where all VNIs are followed and have hosts and lists. Some of what may
// happen leaves something behind on purpose (a VLAN that one VTI unmaps takes the machines of other
// VTIs' VNIs with it). From then on the state of the client depends on its history; until the world
// is put right again, soon, and the client restarted, the walk audits it, but does not compare it
// with what the inputs alone would give.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sstream>

#include "tests/Vxlan/World.h"

namespace Test {
namespace {

using Mode = Vxlan::BumReplicationMode;

// What two walkers have in common: a world, and chance.
class Chance {
 protected:
  explicit Chance(unsigned seed) : random_(seed) {}
  unsigned pick(unsigned count) { return static_cast<unsigned>(random_() % count); }

  World world_{tick};
  unsigned last_ = 0;  // what was done last

 private:
  std::mt19937 random_;
};

class Walker : Chance {
 public:
  Walker(unsigned seed, bool twoVtis) : Chance(seed), twoVtis_(twoVtis) {
    world_.converging(false);
    world_.start();
    settle();
    for (std::uint32_t vni = 100; vni < 106; ++vni) {
      for (std::uint64_t number = 0; number < 8; ++number) world_.host(vni, number, 2 + pick(3));
      world_.floodList(vni, 1, {2, 3});
      world_.multiPath(vni, 2, {3, 4});
    }
  }

  void walk(int steps) {
    for (int step = 0; step < steps; ++step) {
      act();
      SCOPED_TRACE(testing::Message() << "step " << step << " did " << last_);
      ASSERT_NO_FATAL_FAILURE(world_.audit());
      if (dependsOnHistory_) continue;
      const Expected expected = expectedOf(world_);
      ASSERT_EQ(world_.vnis(), expected.vnis);
      ASSERT_EQ(world_.received(), expected.hosts);
      ASSERT_NO_FATAL_FAILURE(auditFloodSets(expected.floodSets));
      if (!expected.hosts.empty() && !expected.floodSets.empty()) ++lively_;
    }
    settle();
    world_.converging(false);
    world_.rest();
    EXPECT_TRUE(world_.received(true).empty()) << "nothing stays marked when all is quiet";
    EXPECT_FALSE(world_.zepConvergenceStatus->unicastDeferredDeletionInProgress());
    EXPECT_FALSE(world_.zepConvergenceStatus->bumDeferredDeletionInProgress());
    EXPECT_GT(lively_, steps / 2) << "steps with hosts and flood sets to compare";
  }

 private:
  static constexpr double budget = 5 * tick;  // four entries

  const char* anyVti() { return twoVtis_ && pick(2) == 0 ? "Vxlan2" : "Vxlan1"; }
  std::uint32_t anyVni() { return 100 + pick(6); }
  // Each VTI has VLANs of its own; every VNI may be mapped by either.
  static int firstVlan(const char* intf) { return intf[5] == '1' ? 10 : 20; }
  int anyVlan(const char* intf) { return firstVlan(intf) + static_cast<int>(pick(4)); }
  std::uint64_t anyListed() { return 1 + pick(3); }  // a MAC with flood lists
  Vteps anyVteps() {
    Vteps vteps;
    for (unsigned count = pick(4); count > 0; --count) vteps.insert(2 + pick(6));
    return vteps;
  }

  void act() {
    if (isAway_ && pick(5) == 0) return settle();
    last_ = pick(200);
    if (last_ < 60) return host();
    if (last_ < 88) return world_.withdraw(anyVni(), pick(12));
    if (last_ < 100) return world_.converging(pick(2) == 0);
    if (last_ < 118) return static_cast<void>(world_.facility->fireDue());
    if (last_ < 120) return world_.time->waitUntil(world_.time->time() + 2 * tick);
    if (last_ < 142) return world_.floodList(anyVni(), anyListed(), anyVteps());
    if (last_ < 160) return world_.multiPath(anyVni(), anyListed(), anyVteps());
    if (last_ < 165) return withdrawList();
    if (last_ < 171) return world_.unpublish(anyVni());
    if (last_ < 179) return import();
    if (last_ < 184) return world_.vti(anyVti())->vArpVtepAddrIs(vtep(pick(5)));
    if (last_ < 187) return restart();
    isAway_ = true;
    if (last_ < 190) return mode();
    if (last_ < 194) return remap();
    if (last_ < 198) return world_.bumStatus->bumReplicationModeIs(Mode::unknown);
    world_.vlanVniMaps->vlanVniMapDel(IntfId(anyVti()));
    dependsOnHistory_ = true;
  }

  void host() {
    world_.host(anyVni(), pick(12), 1 + pick(5), pick(3), static_cast<std::uint8_t>(16 + pick(2)));
  }

  void withdrawList() {
    if (pick(2) == 0)
      world_.withdrawFloodList(anyVni(), anyListed());
    else
      world_.withdrawMultiPath(anyVni(), anyListed());
  }

  void restart() {
    world_.restart();
    world_.client->maxProcessTimeIs(budget);
    dependsOnHistory_ = false;
  }

  // Puts the switch back to where it follows all VNIs.
  void settle() {
    for (const char* const intf : {"Vxlan1", "Vxlan2"}) {
      if (intf[5] == '2' && !twoVtis_) break;
      if (!world_.vti(intf)) world_.addVti(intf);
      world_.vti(intf)->controllerClientModeIs(true);
      world_.vti(intf)->datapathLearningIs(false);
      const IntfId key(intf);
      if (!world_.vlanVniMaps->vlanVniMap(key) && pick(2) == 0)
        world_.vlanVniMaps->vlanVniMapIs(key);  // empty: else it is added filled
      const int first = firstVlan(intf);
      for (int vlan = first; vlan < first + 4; ++vlan) {
        const std::uint32_t vni = 90U + static_cast<unsigned>(first == 10 ? vlan : vlan - 8);
        const auto map = world_.vlanVniMaps->vlanVniMap(key);
        const int former = map ? map->vniToVlan(VniExt(vni)).value() : 0;
        if (former != 0 && former != vlan) world_.unmap(intf, former);
        world_.mapAndImport(intf, vlan, vni);
      }
    }
    world_.bumModes(Mode::controller, Mode::unknown);
    isAway_ = false;
    restart();
  }

  // What the tables ask for is there always, and is all there is unless something is postponed. An
  // emptied VLAN may stand.
  void auditFloodSets(const FloodSets& expected) const {
    FloodSets sets = world_.floodSets();
    std::erase_if(sets, [](const auto& each) { return each.first.second == 0; });
    for (const auto& [key, text] : expected)
      ASSERT_TRUE(holds(sets[key], text)) << key.first << ": " << sets[key] << " lacks of " << text;
    if (world_.client->vxlanControllerClientMode() && !world_.client->convergenceInProgress() &&
        world_.facility->nextDue() == Moru::Clock::never) {
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
    if (twoVtis_) dependsOnHistory_ = true;
    if (const auto map = world_.vlanVniMaps->vlanVniMap(IntfId(intf))) {
      const int former = map->vniToVlan(VniExt(vni)).value();
      if (former != 0) world_.unmap(intf, former);
      if (!!map->vlanToVsp(VlanId(vlan))) world_.unmap(intf, vlan);
    }
    if (pick(2) == 0) world_.map(intf, vlan, vni);
  }

  void import() {
    const char* const intf = anyVti();
    const auto vti = world_.vti(intf);
    const VlanId vlan(anyVlan(intf));
    isAway_ = true;
    if (pick(2) != 0)
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

  const bool twoVtis_;
  bool isAway_ = false;
  bool dependsOnHistory_ = false;
  int lively_ = 0;
};

// The same for the copying of the MLAG peer's flood sets, without any of the controller's own.
class MlagWalker : Chance {
 public:
  explicit MlagWalker(unsigned seed) : Chance(seed) {
    for (const char* const intf : {"Vxlan1", "Vxlan2"}) {
      world_.addVti(intf);
      world_.vlanVniMaps->vlanVniMapIs(IntfId(intf));  // one that is added filled begins no copying
    }
    for (int vlan = 10; vlan < 14; ++vlan) {
      map(vlan);
      for (std::uint64_t number = 1; number < 4; ++number)
        world_.peerFloodSet(vlan, number)->destSetIs(dest(2), true);
    }
    beginCopying();
    world_.converging(false);
    world_.start();
  }

  void walk(int steps) {
    for (int step = 0; step < steps; ++step) {
      act();
      ASSERT_NO_FATAL_FAILURE(audit()) << "step " << step << " " << last_;
    }
    world_.rest();
    EXPECT_GT(lively_, steps / 2) << "steps with copies to compare";
  }

 private:
  int anyVlan() { return 10 + static_cast<int>(pick(4)); }
  Mode anyMode() { return pick(3) == 0 ? Mode::unknown : Mode::controller; }
  Ptr<L2Rib::FloodSet> anySet() { return world_.peerFloodSet(anyVlan(), 1 + pick(3)); }
  // The VTI that maps a VLAN; null if none does. One at a time: the other's unmapping of it would
  // end the copying of the VLAN until its next update.
  const char* vtiOf(int vlan) const {
    for (const char* const intf : {"Vxlan1", "Vxlan2"}) {
      const auto map = world_.vlanVniMaps->vlanVniMap(IntfId(intf));
      if (map && !!map->vlanToVsp(VlanId(vlan))) return intf;
    }
    return nullptr;
  }
  void map(int vlan) {
    const char* const present = vtiOf(vlan);
    world_.mapAndImport(present != nullptr ? present
                        : pick(2) == 0     ? "Vxlan1"
                                           : "Vxlan2",
                        vlan, 90U + static_cast<unsigned>(vlan));
  }

  void act() {
    if (!isCopying() && pick(4) == 0) return beginCopying();
    last_ = pick(100);
    if (last_ < 30) return anySet()->destSetIs(dest(2 + pick(6)), pick(4) != 0);
    if (last_ < 45) return anySet()->destSetDel(dest(2 + pick(6)));
    if (last_ < 50) return anySet()->floodSetTypeIs(L2Rib::FloodSetType(pick(5)));
    if (last_ < 57)
      return world_.peerSde->vlanFloodSetIs(VlanId(anyVlan()))->floodSetDel(mac(1 + pick(3)));
    if (last_ < 61) return world_.peerSde->vlanFloodSetDel(VlanId(anyVlan()));
    if (last_ < 69) return world_.bumModes(anyMode(), anyMode());
    if (last_ < 81) return remap();
    if (last_ < 85) return world_.mlag(pick(4) != 0);
    if (last_ < 89) return mode();
    if (last_ < 92) return world_.converging(pick(2) == 0);
    if (last_ < 94) return world_.host(100 + pick(4), 1, 2);
    if (last_ < 96) return world_.unpublish(100 + pick(4));
    if (last_ < 98) return static_cast<void>(world_.facility->fireDue());
    world_.restart();
  }

  void mode() {
    for (const char* const intf : {"Vxlan1", "Vxlan2"})
      world_.vti(intf)->controllerClientModeIs(pick(3) != 0);
  }

  bool isCopying() const {
    return world_.client->zepMlagBumStatusSm() &&
           world_.bumStatus->bumReplicationMode() == Mode::controller &&
           world_.peerBumStatus->bumReplicationMode() == Mode::controller;
  }
  void beginCopying() {
    last_ = 0;
    world_.bumModes(Mode::controller, Mode::controller);
    world_.mlag(true);
    world_.vti("Vxlan1")->controllerClientModeIs(true);
  }

  void remap() {
    const int vlan = anyVlan();
    const char* const present = vtiOf(vlan);
    if (present != nullptr && pick(2) == 0)
      world_.unmap(present, vlan);
    else
      map(vlan);
  }

  void audit() {
    ASSERT_NO_FATAL_FAILURE(world_.audit());
    const auto machine = world_.client->zepMlagBumStatusSm();
    ASSERT_EQ(machine != nullptr, world_.client->vxlanControllerClientMode() &&
                                      world_.mlagStatus->mlagState() == Mlag::MlagState::active);
    if (!isCopying()) return;
    const auto isUnmapped = [&](const auto& each) { return vtiOf(each.first.first) == nullptr; };
    FloodSets sets = world_.floodSets();
    FloodSets peers = floodSetsOf(*world_.peerSde);
    std::erase_if(sets, isUnmapped);
    std::erase_if(peers, isUnmapped);
    ASSERT_EQ(sets, peers);
    if (!peers.empty()) ++lively_;
  }

  int lively_ = 0;
};

class RandomWalk : public testing::TestWithParam<unsigned> {};

TEST_P(RandomWalk, KeepsTheClientInLineWithItsInputs) {
  for (const bool twoVtis : {false, true}) Walker(GetParam(), twoVtis).walk(400);
}

TEST_P(RandomWalk, KeepsTheFloodSetsEqualToTheMlagPeers) { MlagWalker(GetParam()).walk(800); }

INSTANTIATE_TEST_SUITE_P(Seeds, RandomWalk, testing::Range(1U, 25U));

}  // namespace
}  // namespace Test
