// The entities with rules of their own; what all entities share is tested with the framework.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

#include "model/L2Rib/HostInput.h"
#include "model/L2Rib/SourceDirEntry.h"
#include "model/Vxlan/ReceivedHostTable.h"
#include "model/Vxlan/VtiStatusDir.h"
#include "model/VxlanController/VniFdbStatusV2.h"
#include "model/VxlanController/ZepStateClientViewV2.h"

namespace {

using Bridging::MacVlanPair;
using Bridging::VlanId;
using Moru::create;
using testing::ElementsAre;
using Vorn::EthAddr;
using Vorn::IntfId;
using Vorn::IpAddr;

template <class E>
struct Watcher final : E::NotifieeConst {
  void onAttribute(Moru::AttributeId attribute, const void*) override { log.push_back(attribute); }
  std::vector<Moru::AttributeId> log;
};

template <class E>
Moru::Ptr<Watcher<E>> watch(const Moru::Ptr<E>& entity) {
  auto watcher = create<Watcher<E>>();
  watcher->notifierIs(entity);
  watcher->hasNotificationActiveIs(true);
  return watcher;
}

Vxlan::ReceivedEntry received(std::uint64_t mac, int vlan, bool marked = false) {
  Vxlan::ReceivedEntry entry;
  entry.key = {EthAddr::fromValue(mac), VlanId(vlan)};
  entry.vtepAddr = IpAddr(0x0a000002);
  entry.markedForDel = marked;
  return entry;
}

TEST(ReceivedHostTable, KeepsEntriesInTheOrderOfTheirKeys) {
  auto table = create<Vxlan::ReceivedHostTable>("hostTable");
  for (const auto& [mac, vlan] : {std::pair{2, 1}, {1, 20}, {3, 5}, {1, 10}})
    table->receivedEntryIs(received(static_cast<std::uint64_t>(mac), vlan));
  std::vector<std::uint64_t> order;
  for (auto entry = table->receivedEntry().begin(); entry; ++entry) {
    EXPECT_EQ(entry.value().key, entry.key());
    order.push_back(entry.key().mac.value() * 100 + entry.key().vlan.value());
  }
  EXPECT_THAT(order, ElementsAre(110, 120, 201, 305));
  EXPECT_TRUE(!table->receivedEntry({EthAddr::fromValue(9), VlanId(1)}));
}

// Removing and adding while the walk is on its way, in its own VLAN and in others.
TEST(ReceivedHostTable, WalksTheHostsOfOneVlanInTheOrderOfTheTable) {
  const auto table = create<Vxlan::ReceivedHostTable>("hostTable");
  for (const std::uint64_t mac : {5, 1, 4, 2, 3, 3})
    for (const int vlan : {1, 10, 4094}) table->receivedEntryIs(received(mac, vlan));
  std::vector<std::uint64_t> seen;
  for (auto host = table->receivedEntry().keysOfVlan(VlanId(10)); host; ++host) {
    EXPECT_EQ(host.key().vlan, VlanId(10));
    seen.push_back(host.key().mac.value());
    table->receivedEntryDel(host.key());
    table->receivedEntryDel(received(4, 10).key);  // further on
    if (seen.size() == 1) table->receivedEntryIs(received(6, 10));
    table->receivedEntryIs(received(7, 9));
  }
  EXPECT_THAT(seen, ElementsAre(1, 2, 3, 5, 6));
  EXPECT_FALSE(table->receivedEntry().keysOfVlan(VlanId(10)));
  EXPECT_EQ(table->receivedEntrys(), 11U) << "the other VLANs keep theirs";
  EXPECT_FALSE(table->receivedEntry().keysOfVlan(VlanId(4093)));
}

TEST(ReceivedHostTable, NotifiesRewrittenEntriesAndRemovedOnesThatWereThere) {
  auto table = create<Vxlan::ReceivedHostTable>("hostTable");
  const auto watcher = watch(table);
  const auto entry = received(1, 10);
  table->receivedEntryIs(entry);
  table->receivedEntryIs(entry);
  table->markedForDelCountIs(1);
  table->markedForDelCountIs(1);
  table->receivedEntryDel(entry.key);
  table->receivedEntryDel(entry.key);
  EXPECT_THAT(watcher->log, ElementsAre(1, 1, 2, 1));
}

TEST(ReceivedHostTableDeathTest, ChecksTheCountOfMarkedEntries) {
  auto table = create<Vxlan::ReceivedHostTable>("hostTable");
  EXPECT_DEATH(table->markedForDelCountDec(), "assertion failed: markedForDelCount\\(\\)");
  table->receivedEntryIs(received(1, 10, true));
  table->markedForDelCountInc();
  EXPECT_EQ(table->markedForDelCount(), 1U);
  EXPECT_DEATH(
      table->markedForDelCountInc(),
      "markedForDelCount\\(\\) \\+ _markedForDelCount <= receivedEntrys\\(\\): 2 marked of 1");
  table->markedForDelCountDec();
  EXPECT_EQ(table->markedForDelCount(), 0U);
}

TEST(ClientView, NotifiesEveryWriteOfTheConvergenceFlag) {
  auto view = create<VxlanController::ZepStateClientViewV2>();
  const auto watcher = watch(view);
  view->convergenceInProgressIs(false);
  view->convergenceInProgressIs(false);
  EXPECT_EQ(watcher->log.size(), 2U);
}

TEST(VtiStatusDir, VisitsVtisInTheOrderOfTheirInsertion) {
  auto dir = create<Vxlan::VtiStatusDir>();
  for (const char* name : {"Vxlan9", "Vxlan1", "Vxlan5"})
    dir->vtiStatusIs(create<Vxlan::VtiStatus>(IntfId(name)));
  dir->vtiStatusDel(IntfId("Vxlan9"));
  dir->vtiStatusIs(create<Vxlan::VtiStatus>(IntfId("Vxlan9")));
  std::vector<std::string> order;
  for (const auto& [intf, status] : dir->vtiStatus()) {
    EXPECT_EQ(status->intfId(), intf);
    order.push_back(intf.stringValue());
  }
  EXPECT_THAT(order, ElementsAre("Vxlan1", "Vxlan5", "Vxlan9"));
  EXPECT_FALSE(dir->vtiStatus(IntfId("Vxlan1"))->vccImportVlans(VlanId(10)));
}

TEST(FloodSets, AreMadeOnRequestAndGoWithTheirVlan) {
  auto entry = create<L2Rib::SourceDirEntry>();
  const auto watcher = watch(entry);
  const auto mac = EthAddr::fromValue(1);
  const L2Rib::Dest dest(L2Rib::DestId(0), L2Rib::DestDataVxlan{IpAddr(1)});
  const auto set = entry->vlanFloodSetIs(VlanId(10))->floodSetIs(mac);
  set->destSetIs(dest, true);
  EXPECT_EQ(entry->vlanFloodSetIs(VlanId(10))->floodSetIs(mac), set);
  EXPECT_EQ(set->destSets(), 1U);
  EXPECT_EQ(entry->vlanFloodSet(VlanId(20)), nullptr) << "a lookup makes nothing";
  entry->vlanFloodSetIs(VlanId(20));
  entry->vlanFloodSetDelAll();
  EXPECT_EQ(entry->vlanFloodSet(VlanId(10)), nullptr);
  EXPECT_EQ(watcher->log.size(), 4U) << "two made, two removed; found is no change";
}

TEST(VniFdbStatus, GivesDefaultsForAbsentKeys) {
  auto status = create<VxlanController::VniFdbStatusV2>();
  const auto mac = EthAddr::fromValue(1);
  EXPECT_EQ(status->macVtepTable(mac), VxlanController::MacVtepV2());
  EXPECT_TRUE(!status->macVtepMultiPathTable(mac));
  EXPECT_EQ(status->macVtepFloodListTable(mac), nullptr);
  status->macVtepFloodListTableIs(mac, create<VxlanController::MacVtepFloodListV2>());
  EXPECT_EQ(status->macVtepFloodListTable(mac)->vtepIpFloodLists(), 0U);
}

}  // namespace
