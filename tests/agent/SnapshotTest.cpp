// Snapshots of entities: orders, what is absent, and what is not there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "agent/ClientSnapshot.h"
#include "agent/FloodSetText.h"
#include "agent/Snapshot.h"

namespace {

using Agent::takeSnapshot;
using Bridging::VlanId;
using Moru::create;
using Moru::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

Bridging::MacVlanPair key(std::uint64_t mac, std::uint16_t vlan) {
  return {Vorn::EthAddr::fromValue(mac), VlanId(vlan)};
}

L2Rib::Dest vtep(const char* address) {
  return {L2Rib::DestId{}, L2Rib::DestDataVxlan{*Vorn::IpGenAddr::parse(address)}};
}

TEST(SnapshotTest, SortsHostsByMacThenVlanAndIsACopy) {
  const auto input = create<L2Rib::HostInput>();
  for (const auto& each :
       {key(0x0300, 5), key(0x0200, 20), key(0x0200, 3), key(0xff0000000001, 1)}) {
    L2Rib::Host host;
    host.key = each;
    host.moveCount = each.vlan.value();
    input->hostIs(host);
  }
  Agent::Outputs outputs;
  outputs.hosts = input;
  const auto snapshot = takeSnapshot("one", 2.5, outputs, std::nullopt);
  input->hostDel(key(0x0200, 3));
  std::vector<std::uint32_t> moveCounts;
  for (const auto& host : *snapshot.hosts) moveCounts.push_back(host.moveCount);
  EXPECT_THAT(moveCounts, ElementsAre(3, 20, 5, 1));
  EXPECT_EQ(snapshot.label, "one");
  EXPECT_EQ(snapshot.at, 2.5);
}

TEST(SnapshotTest, SortsFloodSetsAndListsTheDestinationsThatArePresent) {
  const auto entry = create<L2Rib::SourceDirEntry>();
  entry->vlanFloodSetIs(VlanId(300));
  const auto set = entry->vlanFloodSetIs(VlanId(20))->floodSetIs(key(0x0900, 1).mac);
  set->floodSetTypeIs(L2Rib::FloodSetType::sendToAny);
  set->destSetIs(L2Rib::Dest(L2Rib::DestId{}, L2Rib::DestDataTunnel{7}), true);
  set->destSetIs(vtep("10.0.0.10"), true);
  set->destSetIs(vtep("10.0.0.9"), true);
  set->destSetIs(vtep("10.0.0.1"), false);
  set->destSetIs(L2Rib::Dest(L2Rib::DestId{}, Vorn::IntfId("Et1")), true);
  entry->vlanFloodSetIs(VlanId(20))->floodSetIs(key(0x0100, 1).mac);
  entry->vlanFloodSetIs(VlanId(3));

  Agent::Outputs outputs;
  outputs.floodSets = entry;
  const auto floodSets = *takeSnapshot("", 0, outputs, std::nullopt).floodSets;
  std::vector<std::pair<int, std::string>> texts;
  texts.reserve(floodSets.size());
  for (const auto& each : floodSets)
    texts.emplace_back(each.vlan.value(), each.floodSet ? destsText(*each.floodSet) : "empty VLAN");
  EXPECT_THAT(texts, ElementsAre(Pair(3, "empty VLAN"), Pair(20, "none"),
                                 Pair(20, "10.0.0.9 10.0.0.10 intf Et1 tunnel 7"),
                                 Pair(300, "empty VLAN")));
  EXPECT_EQ(floodSets[2].floodSet->type, L2Rib::FloodSetType::sendToAny);
}

TEST(SnapshotTest, TellsAbsentFromEmptyAndFalse) {
  const auto nothing = takeSnapshot("", 0, {}, std::nullopt);
  EXPECT_FALSE(nothing.client || nothing.hosts || nothing.floodSets ||
               nothing.convergenceInProgress || nothing.convergenceStatus);
  const auto status = create<Vxlan::VxlanClientConvergenceStatus>();
  status->bumDeferredDeletionInProgressIs(true);
  const auto empty = takeSnapshot("", 0,
                                  {create<L2Rib::HostInput>(), create<L2Rib::SourceDirEntry>(),
                                   create<VxlanController::ZepStateClientViewV2>(), status},
                                  Agent::ClientSnapshot());
  ASSERT_TRUE(empty.client && empty.hosts && empty.floodSets && empty.convergenceInProgress &&
              empty.convergenceStatus);
  EXPECT_THAT(*empty.hosts, IsEmpty());
  EXPECT_FALSE(*empty.convergenceInProgress);
  EXPECT_FALSE(empty.convergenceStatus->unicastDeferredDeletionInProgress);
  EXPECT_TRUE(empty.convergenceStatus->bumDeferredDeletionInProgress);
}

// What a snapshot reads of a client, and nothing else of it.
struct VniMachine : Moru::PtrInterface {
  explicit VniMachine(Vxlan::VniExt vni) : vni(vni) {}
  const Vxlan::VniExt& fwkKey() const { return vni; }
  Vxlan::VniExt vni;
};

struct FakeClient {
  bool vxlanControllerClientMode() const { return true; }
  bool datapathLearningMode() const { return false; }
  const auto& vccImportVlans() const { return vlans; }
  const auto& zepPerVniFdbStatusSm() const { return machines; }
  const auto& zepMlagBumStatusSm() const { return mlagBum; }
  const auto& hostTable() const { return table; }

  Moru::HashMap2018<VlanId, Moru::KeyOnly> vlans;
  Moru::HashMap<Vxlan::VniExt, VniMachine> machines;
  Ptr<Moru::PtrInterface> mlagBum;
  Ptr<Vxlan::ReceivedHostTable> table = create<Vxlan::ReceivedHostTable>("hostTable");
};

TEST(SnapshotTest, ReadsTheClient) {
  FakeClient client;
  for (const int vlan : {30, 4, 20}) client.vlans.is(VlanId(vlan), {});
  for (const std::int64_t vni : {4294967294, std::int64_t{7}, std::int64_t{10010}})
    client.machines.is(create<VniMachine>(Vxlan::VniExt(vni)));
  Vxlan::ReceivedEntry entry;
  for (const auto& each : {key(2, 1), key(1, 9), key(1, 2)}) {
    entry.key = each;
    client.table->receivedEntryIs(entry);
  }
  client.table->markedForDelCountIs(2);

  auto snapshot = Agent::clientSnapshot(client);
  EXPECT_TRUE(snapshot.vxlanControllerClientMode);
  EXPECT_FALSE(snapshot.datapathLearningMode);
  EXPECT_THAT(snapshot.vccImportVlans, ElementsAre(VlanId(4), VlanId(20), VlanId(30)));
  EXPECT_THAT(snapshot.vnis,
              ElementsAre(Vxlan::VniExt(7), Vxlan::VniExt(10010), Vxlan::VniExt(4294967294)));
  EXPECT_EQ(snapshot.hostTable.markedForDelCount, 2U);
  ASSERT_EQ(snapshot.hostTable.entries.size(), 3U);
  EXPECT_EQ(snapshot.hostTable.entries[0].key, key(1, 2));
  EXPECT_EQ(snapshot.hostTable.entries[2].key, key(2, 1));
  EXPECT_FALSE(snapshot.mlagBum);
  client.mlagBum = create<VniMachine>(Vxlan::VniExt());
  EXPECT_TRUE(Agent::clientSnapshot(client).mlagBum);
}

TEST(SnapshotTest, MapsEachVlanByTheFirstInterfaceThatHasIt) {
  const auto maps = create<Vxlan::VlanVniMaps>();
  const auto first = maps->vlanVniMapIs(Vorn::IntfId("Vxlan2"));
  const auto second = maps->vlanVniMapIs(Vorn::IntfId("Vxlan1"));
  first->vlanToVspIs(VlanId(10), Vxlan::VniSourcePair(10010U));
  second->vlanToVspIs(VlanId(10), Vxlan::VniSourcePair(20010U));
  second->vlanToVspIs(VlanId(20), Vxlan::VniSourcePair(20020U));
  second->vlanToVspIs(VlanId(30), Vxlan::VniSourcePair(4294967295U));
  second->vlanToVspIs(VlanId(40), Vxlan::VniSourcePair());
  EXPECT_THAT(Agent::vlanToVni(*maps), ElementsAre(Pair(VlanId(10), Vxlan::VniExt(10010)),
                                                   Pair(VlanId(20), Vxlan::VniExt(20020))));
}

}  // namespace
