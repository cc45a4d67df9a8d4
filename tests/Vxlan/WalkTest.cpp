// A random walk over a switch and its controller, with an audit after every step.
//
// Some of what may happen leaves something behind on purpose (a VLAN that one VTI unmaps takes the
// machines of other VTIs' VNIs with it; a VTI that goes leaves the modes). From then on the state
// of the client depends on its history; until it is restarted the walk audits it, but does not
// compare it with what the inputs alone would give.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "tests/Vxlan/World.h"

namespace {

using namespace Test;

class Walker {
 public:
  Walker(unsigned seed, bool twoVtis) : random_(seed), twoVtis_(twoVtis) {
    world_.addVti("Vxlan1");
    if (twoVtis_) world_.addVti("Vxlan2");
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
    }
    world_.vti("Vxlan1")->controllerClientModeIs(true);  // else nobody follows the controller
    world_.converging(false);
    world_.rest();
    EXPECT_TRUE(world_.received(true).empty()) << "nothing stays marked when all is quiet";
    EXPECT_FALSE(world_.zepConvergenceStatus->unicastDeferredDeletionInProgress());
  }

 private:
  static constexpr double budget = 0.0045;  // four entries at a millisecond a reading

  unsigned pick(unsigned count) { return static_cast<unsigned>(random_() % count); }
  const char* anyVti() { return twoVtis_ && pick(2) == 0 ? "Vxlan2" : "Vxlan1"; }
  std::uint32_t anyVni() { return 100 + pick(6); }
  // Each VTI has VLANs of its own; every VNI may be mapped by either.
  int anyVlan(const char* intf) { return (intf[5] == '1' ? 10 : 20) + static_cast<int>(pick(4)); }

  void act() {
    const unsigned die = pick(100);
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

class RandomWalk : public testing::TestWithParam<unsigned> {};

TEST_P(RandomWalk, KeepsTheClientInLineWithItsInputs) {
  for (const bool twoVtis : {false, true}) Walker(GetParam(), twoVtis).walk(500);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomWalk, testing::Range(1U, 25U));

}  // namespace
