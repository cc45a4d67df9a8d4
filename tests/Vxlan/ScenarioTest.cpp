// Whole stories. Each is told once for each of its chapters, with the client destroyed and rebuilt
// at the end of that chapter, and once without: in the end nobody can tell.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Vxlan/World.h"

namespace Test {
namespace {

constexpr int chapters = 8;

// The number of the chapter after which the agent is restarted; none for `chapters`.
class Scenario : public testing::TestWithParam<int> {
 protected:
  Scenario() {
    world.addVti("Vxlan1");
    for (const int vlan : {10, 20})
      world.mapAndImport("Vxlan1", vlan, 1000U + static_cast<unsigned>(vlan));
    world.bumModes(Vxlan::BumReplicationMode::controller, Vxlan::BumReplicationMode::unknown);
    world.converging(false);
    world.start();
  }
  ~Scenario() override {
    EXPECT_LE(chapter_, chapters);
    world.converging(false);
    world.rest();
    world.audit();
    EXPECT_TRUE(world.received(true).empty());
    EXPECT_FALSE(world.zepConvergenceStatus->unicastDeferredDeletionInProgress());
    EXPECT_EQ(world.received(), expectedHosts(world));
    EXPECT_EQ(world.vnis(), expectedVnis(world));
    EXPECT_EQ(world.floodSets(), expectedFloodSets(world));
  }

  void endOfChapter() {
    if (chapter_++ == GetParam()) world.restart();
    world.audit();
  }
  void announce(std::uint32_t vni, std::uint64_t from, std::uint64_t to, std::uint32_t vtepNumber) {
    for (std::uint64_t number = from; number < to; ++number) world.host(vni, number, vtepNumber);
  }
  void withdraw(std::uint32_t vni, std::uint64_t from, std::uint64_t to) {
    for (std::uint64_t number = from; number < to; ++number) world.withdraw(vni, number);
  }

  World world{0.001};

 private:
  int chapter_ = 0;
};

INSTANTIATE_TEST_SUITE_P(RestartedAfter, Scenario, testing::Range(0, chapters + 1));

TEST_P(Scenario, BringUpAndMoves) {
  announce(1010, 0, 20, 2);
  endOfChapter();
  announce(1020, 20, 40, 3);
  endOfChapter();
  announce(1010, 5, 10, 4);
  endOfChapter();
  announce(1010, 12, 14, 1);  // to the switch itself
  endOfChapter();
  withdraw(1020, 20, 25);
  endOfChapter();
  EXPECT_EQ(world.ribHosts().size(), 20U - 2 + 15);
}

TEST_P(Scenario, ControllerRestart) {
  announce(1010, 0, 30, 2);
  world.floodList(1010, 50, {2, 3});
  world.floodList(1020, 50, {2, 3});
  world.multiPath(1020, 50, {4, 5});
  endOfChapter();
  const Hosts before = world.ribHosts();
  world.converging(true);
  endOfChapter();
  withdraw(1010, 0, 30);
  world.floodList(1010, 50, {3, 6});
  world.multiPath(1020, 50, {5});
  if (GetParam() >= chapters) {
    EXPECT_EQ(world.ribHosts(), before) << "nothing is wiped";
  }
  endOfChapter();
  announce(1010, 10, 30, 2);
  world.withdrawMultiPath(1020, 50);
  endOfChapter();
  world.converging(false);
  endOfChapter();
  world.facility->fireDue();
  endOfChapter();
  world.rest();
  EXPECT_EQ(world.ribHosts().size(), 20U);
}

TEST_P(Scenario, ConvergenceThatIsInterrupted) {
  announce(1010, 0, 30, 2);
  world.converging(true);
  withdraw(1010, 0, 15);
  endOfChapter();
  world.client->maxProcessTimeIs(0.005);
  world.converging(false);
  world.facility->fireDue();
  endOfChapter();
  world.converging(true);
  world.rest();
  announce(1010, 12, 15, 3);
  withdraw(1010, 20, 25);
  endOfChapter();
  world.converging(false);
  world.facility->fireDue();
  endOfChapter();
  world.rest();
  EXPECT_EQ(world.ribHosts().size(), 30U - 12 - 5);
}

TEST_P(Scenario, VnisAndVlansThatComeAndGoMeanwhile) {
  announce(1010, 0, 10, 2);
  announce(1020, 10, 20, 2);
  for (const std::uint32_t vni : {1010, 1020}) world.floodList(vni, 50, {2, 3});
  world.converging(true);
  world.unpublish(1010);
  endOfChapter();
  world.unmap("Vxlan1", 20);
  endOfChapter();
  announce(1010, 3, 8, 3);
  world.map("Vxlan1", 20, 1020);
  endOfChapter();
  world.vti("Vxlan1")->vccImportVlansDel(VlanId(10));
  endOfChapter();
  world.vti("Vxlan1")->vccImportVlansIs(VlanId(10));
  world.converging(false);
  endOfChapter();
  world.vti("Vxlan1")->controllerClientModeIs(false);
  endOfChapter();
  EXPECT_TRUE(world.ribHosts().empty());
  world.vti("Vxlan1")->controllerClientModeIs(true);
  endOfChapter();
  EXPECT_EQ(world.ribHosts().size(), 15U);
}

}  // namespace
}  // namespace Test
