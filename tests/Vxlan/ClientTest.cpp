// The root: its life, the modes, the VLAN-VNI maps, the import VLANs, the controller's VNIs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/Moru/Exception.h"
#include "tests/Vxlan/World.h"

namespace Test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const IntfId vxlan1("Vxlan1");
const IntfId vxlan2("Vxlan2");

const char* const vniRange = "VniExt::value < VniExt::min or > VniExt::max not allowed";

// Two VTIs with VLANs of their own, VNI 100 in the first, VNI 200 in the second, a host in each.
void setUp(World& world) {
  world.addVti("Vxlan1");
  world.addVti("Vxlan2");
  world.mapAndImport("Vxlan1", 10, 100);
  world.mapAndImport("Vxlan2", 20, 200);
  world.host(100, 1, 2);
  world.host(200, 2, 2);
  world.converging(false);
}

struct ClientTest : testing::Test {
  ClientTest() { setUp(world); }
  std::size_t hosts() const { return world.l2RibZepInput->host().size(); }
  World world;
};

TEST_F(ClientTest, FoldsTheModesFromTheVtis) {
  world.startAndRest();
  const auto modes = [this] {
    return std::pair(world.client->vxlanControllerClientMode(),
                     world.client->datapathLearningMode());
  };
  EXPECT_EQ(modes(), std::pair(true, false));
  world.vti("Vxlan1")->controllerClientModeIs(false);
  world.vti("Vxlan2")->datapathLearningIs(true);
  EXPECT_EQ(modes(), std::pair(true, false)) << "one VTI is enough for either";
  world.vti("Vxlan1")->datapathLearningIs(true);
  EXPECT_EQ(modes(), std::pair(true, true));
  EXPECT_EQ(hosts(), 0U);
  EXPECT_EQ(world.vnis().size(), 2U) << "the machines stay, with nothing to do";
  world.vtiStatusDir->vtiStatusDel(vxlan2);
  EXPECT_EQ(modes(), std::pair(true, true)) << "a VTI that goes leaves the modes as they are";
  world.addVti("Vxlan4", true, false);
  EXPECT_EQ(modes(), std::pair(true, false)) << "one that comes has them folded";
  world.vtiStatusDir->vtiStatusDel(IntfId("Vxlan4"));
  world.vti("Vxlan1")->datapathLearningIs(false);
  EXPECT_EQ(modes(), std::pair(true, false)) << "only the mode that changes is folded";
  world.addVti("Vxlan3", false, true);
  EXPECT_EQ(modes(), std::pair(false, false));
  EXPECT_THAT(world.vnis(), IsEmpty());
  world.vtiStatusDir->vtiStatusDel(vxlan1);
  world.vtiStatusDir->vtiStatusDel(IntfId("Vxlan3"));
  world.restart();
  EXPECT_EQ(modes(), std::pair(false, true)) << "without VTIs";
}

TEST_F(ClientTest, ClearsAVlanThatLosesItsVniButNotThoseOfAMapThatGoes) {
  world.startAndRest();
  const auto map = world.vlanVniMaps->vlanVniMap(vxlan1);
  world.vlanVniMaps->vlanVniMapDel(vxlan1);
  EXPECT_EQ(world.client->vlanVniMapSm(vxlan1), nullptr);
  EXPECT_EQ(hosts(), 2U);
  EXPECT_THAT(world.vnis(), ElementsAre(100, 200));
  world.vlanVniMaps->vlanVniMapIs(map);
  world.zepSde->vlanFloodSetIs(VlanId(20));
  world.unmap("Vxlan2", 20);
  EXPECT_FALSE(world.l2RibZepInput->host().contains({mac(2), VlanId(20)}));
  EXPECT_FALSE(world.zepSde->vlanFloodSet(VlanId(20)));
  EXPECT_THAT(world.vnis(), IsEmpty()) << "VNI 100, too, which Vxlan2 does not map";
  EXPECT_TRUE(world.l2RibZepInput->host().contains({mac(1), VlanId(10)}));
  world.map("Vxlan1", 10, 100);
  EXPECT_THAT(world.vnis(), ElementsAre(100)) << "until its own VTI's next update";
  world.vti("Vxlan1")->controllerClientModeIs(false);
  world.vti("Vxlan2")->controllerClientModeIs(false);
  world.zepSde->vlanFloodSetIs(VlanId(10));
  world.unmap("Vxlan1", 10);
  EXPECT_FALSE(world.zepSde->vlanFloodSet(VlanId(10))) << "whatever the mode";
  EXPECT_TRUE(world.traced("Returning: controllerMode = false"));
}

TEST_F(ClientTest, ImportsTheUnionOfTheVtisVlans) {
  world.startAndRest();
  const auto filled = create<Vxlan::VtiStatus>(IntfId("Vxlan3"));
  filled->vccImportVlansIs(VlanId(30));
  world.vtiStatusDir->vtiStatusIs(filled);
  EXPECT_TRUE(world.client->vccImportVlans().contains(VlanId(30)));
  world.vti("Vxlan2")->vccImportVlansIs(VlanId(10));
  world.vti("Vxlan1")->vccImportVlansDel(VlanId(10));
  EXPECT_THAT(world.vnis(), ElementsAre(100, 200));
  world.vti("Vxlan2")->vccImportVlansDel(VlanId(10));
  EXPECT_EQ(hosts(), 1U);
  world.vti("Vxlan1")->vccImportVlansIs(VlanId(10));
  EXPECT_EQ(hosts(), 2U);
  world.vtiStatusDir->vtiStatusDel(vxlan1);
  EXPECT_THAT(world.vnis(), ElementsAre(200));
  // One VLAN, two VNIs by two VTIs: it starts and stops both.
  world.map("Vxlan1", 20, 100);
  EXPECT_THAT(world.vnis(), ElementsAre(100, 200));
  world.vti("Vxlan2")->vccImportVlansDel(VlanId(20));
  EXPECT_THAT(world.vnis(), IsEmpty());
  EXPECT_EQ(hosts(), 0U);
  const auto otherDir = create<Vxlan::VtiStatusDir>();
  otherDir->vtiStatusIs(IntfId("Vxlan4"))->vccImportVlansIs(VlanId(40));
  world.client->vtiStatusDirIs(otherDir);
  EXPECT_TRUE(world.client->vccImportVlans().contains(VlanId(40)));
}

TEST_F(ClientTest, FollowsAVniThatIsPublishedMappedAndImported) {
  world.startAndRest();
  auto& dir = *world.controllerStatusBaseDir;
  world.unpublish(100);
  dir.entityPtrIs("100", create<VxlanController::VniFdbStatusV2>(), false);
  EXPECT_TRUE(world.traced(" entry subdir added, but not instantiated "));
  EXPECT_THAT(world.vnis(), ElementsAre(200));
  dir.entryStateIs("100", true);
  dir.entityPtrIs("300", create<VxlanController::VniFdbStatusV2>());  // mapped by nobody
  dir.entityPtrIs("400", create<Vxlan::BumStatus>());                 // of another type
  EXPECT_THAT(world.vnis(), ElementsAre(100, 200));
  // Another VTI maps it to a VLAN that nobody imports: that decides, at the next evaluation.
  world.map("Vxlan2", 21, 100);
  dir.entryStateIs("100", false);
  dir.entryStateIs("100", true);
  EXPECT_THAT(world.vnis(), ElementsAre(200));
  EXPECT_TRUE(world.traced("vlanId  21 Not a member of vccImportVlan"));
}

TEST_F(ClientTest, RefusesEntriesThatAreNamedByNoVni) {
  world.startAndRest();
  auto& dir = *world.controllerStatusBaseDir;
  const auto status = create<VxlanController::VniFdbStatusV2>();
  for (const char* name : {"-1", "4294967295", "4294967396", "99999999999999999999"}) {
    EXPECT_EQ(refusal<Moru::RangeException>([&] { dir.entityPtrIs(name, status); }), vniRange);
    EXPECT_EQ(refusal<Moru::RangeException>([&] { dir.entityPtrDel(name); }), vniRange) << name;
  }
  EXPECT_DEATH(dir.entityPtrIs("zero", status), "!!vniId.*entry zero");
  world.client->handleControllerVniBaseDir("no number");  // which counts as gone
  EXPECT_EQ(hosts(), 2U);
}

TEST_F(ClientTest, RefusesWhatTheModelRefuses) {
  world.bumModes(Vxlan::BumReplicationMode::controller, Vxlan::BumReplicationMode::unknown);
  world.floodList(100, 1, {2});
  world.startAndRest();
  auto& client = *world.client;
  const VniExt vni(100);
  const auto vniSm = client.zepPerVniFdbStatusSm(vni);
  const auto list = world.floodListOf(100, 1);
  const auto expectRange = [](const std::string& text, auto act) {
    EXPECT_EQ(refusal<Moru::RangeException>(act), text);
  };
  const std::string null = "null _vtiStatus parameter to mutator for Vxlan::";
  expectRange(null + "VxlanControllerClientSm::vtiStatus not allowed\"",
              [&] { client.vtiStatusIs(nullptr); });
  expectRange(null + "ZepPerVniFdbStatusSm::vtiStatus not allowed\"",
              [&] { vniSm->vtiStatusIs(nullptr); });
  const auto map = world.vlanVniMaps->vlanVniMapIs(vxlan1);
  expectRange(vniRange, [&] { map->vlanToVspIs(VlanId(11), Vxlan::VniSourcePair(4294967295)); });
  map->vlanToVspDel(VlanId(11));

  // Children that are asked for with another of the entities that they were made from.
  const auto expectInUse = [](const std::string& parameter, auto act) {
    EXPECT_THAT(refusal<Moru::NameInUseException>(act),
                testing::StartsWith("Reinstantiating the pointer interface where constructor "
                                    "parameter attribute " +
                                    parameter + " has a different value of "));
  };
  const auto vniSmIs = [&](const auto&... inputs) {
    client.zepPerVniFdbStatusSmIs(vni, inputs..., &client);
  };
  const auto status = world.publish(100);
  const auto& dir = world.vtiStatusDir;
  const auto& hw = world.vxlanHwStatusDir;
  const auto& sde = world.zepSde;
  const auto otherStatus = create<VxlanController::VniFdbStatusV2>();
  const auto otherDir = create<Vxlan::VtiStatusDir>();
  const auto otherHw = create<Vxlan::VxlanHwStatusDir>();
  const auto otherSde = create<L2Rib::SourceDirEntry>();
  const auto otherList = create<VxlanController::MacVtepFloodListV2>();
  const auto otherRib = create<L2Rib::HostInput>();
  const auto otherView = create<VxlanController::ZepStateClientViewV2>();
  expectInUse("_zepVniFdbStatusV2", [&] { vniSmIs(otherStatus, dir, hw, sde); });
  expectInUse("_vtiStatusDir", [&] { vniSmIs(status, otherDir, hw, sde); });
  expectInUse("_vxlanHwStatusDir", [&] { vniSmIs(status, dir, otherHw, sde); });
  expectInUse("_zepSde", [&] { vniSmIs(status, dir, hw, otherSde); });
  expectInUse("_zepSde",
              [&] { vniSm->macVtepFloodListTableSmIs(mac(1), list, otherSde, vniSm.get()); });
  expectInUse("_macVtepFloodListTable",
              [&] { status->macVtepFloodListTableIs(mac(1), otherList); });
  expectInUse("_l2RibZepInput",
              [&] { client.receivedHostTableToL2RibHostInputSmIs(client.hostTable(), otherRib); });
  expectInUse("_zepStateClientView",
              [&] { client.zepStateSmIs(client.zepStateSm()->zepState(), otherView); });
  // A second controller, and then the end of either.
  const auto second = create<VxlanController::ZepStateV2>();
  expectInUse("_zepState", [&] { world.zepStateBaseDir->entityPtrIs("second", second); });
  world.zepStateBaseDir->entityPtrDel("second");
  EXPECT_EQ(client.zepStateSm(), nullptr);
  status->macVtepFloodListTableIs(mac(1), nullptr);
  EXPECT_THAT(world.floodSets(), IsEmpty());
  const auto otherMap = create<Vxlan::VlanVniMap>(vxlan1);
  expectInUse("_vlanVniMap", [&] { world.vlanVniMaps->vlanVniMapIs(otherMap); });
}

// Two controllers: that is refused, and must leave no convergence behind that nobody ends.
TEST_F(ClientTest, EndsTheConvergenceWindowWhenItCannotBeMade) {
  world.converging(true);
  world.zepStateBaseDir->entityPtrIs("second", create<VxlanController::ZepStateV2>());
  EXPECT_THAT(refusal<Moru::NameInUseException>([&] { world.start(); }), HasSubstr("_zepState"));
  EXPECT_FALSE(world.zepStateClientView->convergenceInProgress());
  world.zepStateBaseDir->entityPtrDel("controller");
  world.zepStateBaseDir->entityPtrDel("second");
  world.startAndRest();
  world.withdraw(100, 1);
  world.rest();
  world.audit();
  EXPECT_EQ(hosts(), 1U);
}

}  // namespace
}  // namespace Test
