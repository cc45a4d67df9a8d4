// The entities with rules of their own; what all entities share is tested with the framework.
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

#include "framework/Moru/ActivityFacility.h"
#include "framework/Moru/Dir.h"
#include "framework/Moru/Exception.h"
#include "model/L2Rib/SourceDirEntry.h"
#include "model/Vxlan/ReceivedHostTable.h"
#include "model/Vxlan/VlanVniMaps.h"
#include "model/Vxlan/VtiStatusDir.h"
#include "model/VxlanController/MacVtepFloodListV2.h"
#include "model/VxlanController/ZepStateClientViewV2.h"
#include "model/VxlanController/ZepStateV2.h"

namespace {

using Bridging::VlanId;
using FloodList = VxlanController::MacVtepFloodListV2;
using Moru::create;
using testing::ElementsAre;
using Vorn::EthAddr;

template <class E>
struct Watcher final : E::NotifieeConst {
  explicit Watcher(const Moru::Ptr<E>& entity) {
    this->notifierIs(entity);
    this->hasNotificationActiveIs(true);
  }
  void onAttribute(Moru::AttributeId attribute, const void*) override { log.push_back(attribute); }
  std::vector<Moru::AttributeId> log;
};

struct ReceivedHostTable : testing::Test {
  static Vxlan::ReceivedEntry received(std::uint64_t mac, int vlan) {
    Vxlan::ReceivedEntry entry;
    entry.key = {EthAddr::fromValue(mac), VlanId(vlan)};
    return entry;
  }
  Moru::Ptr<Vxlan::ReceivedHostTable> table = create<Vxlan::ReceivedHostTable>("hostTable");
};
using ReceivedHostTableDeathTest = ReceivedHostTable;

TEST_F(ReceivedHostTable, NotifiesRewrittenEntriesAndRemovedOnesThatWereThere) {
  const auto watcher = create<Watcher<Vxlan::ReceivedHostTable>>(table);
  for (int i = 0; i < 2; ++i) table->receivedEntryIs(received(1, 10));
  for (int i = 0; i < 2; ++i) table->markedForDelCountIs(1);
  for (int i = 0; i < 2; ++i) table->receivedEntryDel(received(1, 10).key);
  EXPECT_THAT(watcher->log, ElementsAre(1, 1, 2, 1));
  const auto view = create<VxlanController::ZepStateClientViewV2>();
  const auto viewWatcher = create<Watcher<VxlanController::ZepStateClientViewV2>>(view);
  for (int i = 0; i < 2; ++i) view->convergenceInProgressIs(false);
  EXPECT_EQ(viewWatcher->log.size(), 2U) << "each write of the flag";
  const auto state = create<VxlanController::ZepStateV2>();
  const auto stateWatcher = create<Watcher<VxlanController::ZepStateV2>>(state);
  for (const bool flag : {false, true, true}) state->convergenceInProgressIs(flag);
  EXPECT_EQ(stateWatcher->log.size(), 1U) << "but of the controller's own a change";
}

TEST_F(ReceivedHostTableDeathTest, CountsTheEntriesThatAreMarked) {
  const auto key = received(1, 10).key;
  table->mark(key);
  EXPECT_TRUE(table->receivedEntry().empty()) << "what is not there is not marked";
  EXPECT_FALSE(table->announce(received(1, 10)));
  table->announce(received(2, 10));
  for (int i = 0; i < 2; ++i) table->mark(key);
  EXPECT_TRUE(table->isMarked(key) && !table->isMarked(received(2, 10).key));
  EXPECT_EQ(table->markedForDelCount(), 1U);
  EXPECT_TRUE(table->announce(received(1, 10)));
  EXPECT_EQ(table->markedForDelCount(), 0U);
  table->mark(key);
  EXPECT_TRUE(table->unmark(key));
  EXPECT_EQ(table->markedForDelCount(), 0U);
  EXPECT_FALSE(table->unmark(received(2, 10).key));
  EXPECT_DEATH(table->unmark(key), "assertion failed: markedForDelCount\\(\\)\n");
  EXPECT_DEATH(
      table->markedForDelCountIs(3),
      "markedForDelCount\\(\\) \\+ _markedForDelCount <= receivedEntrys\\(\\): 3 marked of 2");
}

// What a mutator that is handed a null throws; `is` is called with the null.
template <class Is>
void expectNullRefused(const std::string& collection, Is&& is) {
  const std::string attribute = collection.substr(collection.rfind(':') + 1);
  EXPECT_THAT([&] { is(nullptr); }, testing::ThrowsMessage<Moru::RangeException>(
                                        "null _" + attribute + " parameter to mutator for " +
                                        collection + " not allowed\""));
}

TEST(Mutators, RefuseANullMemberAndChangeNothing) {
  const auto vtis = create<Vxlan::VtiStatusDir>();
  const auto maps = create<Vxlan::VlanVniMaps>();
  const auto rib = create<L2Rib::SourceDirEntry>();
  const auto vlan = create<L2Rib::VlanFloodSet>(VlanId(10));
  const auto dir = create<Moru::Dir>();
  const auto watcher = create<Watcher<Moru::Dir>>(dir);
  expectNullRefused("Vxlan::VtiStatusDir::vtiStatus", vtis->vtiStatusIs);
  expectNullRefused("Vxlan::VlanVniMaps::vlanVniMap", maps->vlanVniMapIs);
  expectNullRefused("L2Rib::SourceDirEntry::vlanFloodSet", rib->vlanFloodSetIs);
  expectNullRefused("L2Rib::VlanFloodSet::floodSet", vlan->floodSetIs);
  expectNullRefused("Moru::Dir::entityPtr", [&](auto null) { dir->entityPtrIs("100", null); });
  EXPECT_TRUE(dir->entityPtr().empty() && watcher->log.empty());
  Moru::HashMap<VlanId, L2Rib::VlanFloodSet> map;
  expectNullRefused("Moru::HashMap::member", [&](auto null) { map.is(null); });
  const auto facility = Moru::ActivityFacility::current();
  expectNullRefused("Moru::ActivityFacility::current", Moru::ActivityFacility::currentIs);
  EXPECT_EQ(Moru::ActivityFacility::current(), facility);
  expectNullRefused("Moru::ActivityFacility::timeSource",
                    [](auto null) { create<Moru::ActivityFacility>(null); });
}

// A mutator takes all that it stores: only a set of keys has no value to be left out.
template <class Attribute, class... Args>
constexpr bool takes = std::is_invocable_v<typename Attribute::Is&, Args...>;
static_assert(takes<Vxlan::VtiStatus::VccImportVlans, VlanId>);
static_assert(takes<Vxlan::ReceivedHostTable::ReceivedEntries, Vxlan::ReceivedEntry>);
static_assert(!takes<Vxlan::ReceivedHostTable::ReceivedEntries, Bridging::MacVlanPair>);
static_assert(takes<FloodList::VtepIpFloodList, Vorn::IpAddr, bool>);
static_assert(!takes<FloodList::VtepIpFloodList, Vorn::IpAddr>);
static_assert(!takes<Vxlan::VtiStatus::DatapathLearning>);

// Who is told of an entry that has been written, and not counted yet, may do anything to it.
TEST_F(ReceivedHostTable, CountsRightWhateverItsWatchersDoInBetween) {
  struct Meddler final : Vxlan::ReceivedHostTable::NotifieeConst {
    void onAttribute(Moru::AttributeId attribute, const void*) override {
      if (attribute == Moru::idOf<&Vxlan::ReceivedHostTable::receivedEntry>)
        if (const auto once = std::exchange(act, {})) once();
    }
    std::function<void()> act;
  };
  const auto key = received(1, 10).key;
  const auto meddler = create<Meddler>();
  meddler->notifierIs(table);
  meddler->hasNotificationActiveIs(true);
  for (const std::uint64_t number : {1, 2}) table->announce(received(number, 10));
  const auto expectCount = [&](std::uint32_t count) {
    EXPECT_EQ(table->markedForDelCount(), count);
    EXPECT_EQ(table->isMarked(key), count != 0);
  };
  meddler->act = [&] { table->announce(received(1, 10)); };
  table->mark(key);
  expectCount(0);
  meddler->act = [] { throw Moru::RangeException("refused"); };
  EXPECT_THROW(table->mark(key), Moru::RangeException);
  expectCount(1);
  meddler->act = [&] { table->mark(key); };
  table->announce(received(1, 10));
  expectCount(1);
  meddler->act = [&] {
    table->mark(received(2, 10).key);
    EXPECT_EQ(table->markedForDelCount(), 2U) << "of another entry: at once";
  };
  table->announce(received(1, 10));
  EXPECT_EQ(table->markedForDelCount(), 1U);
  meddler->act = [&] {
    table->unmark(key);
    table->receivedEntryDel(key);
  };
  table->mark(key);
  EXPECT_EQ(table->markedForDelCount(), 1U);
  EXPECT_EQ(table->receivedEntrys(), 1U);
}

TEST(FloodSets, AreMadeOnRequestAndGoWithTheirVlan) {
  const auto entry = create<L2Rib::SourceDirEntry>();
  const auto watcher = create<Watcher<L2Rib::SourceDirEntry>>(entry);
  const auto mac = EthAddr::fromValue(1);
  const auto set = entry->vlanFloodSetIs(VlanId(10))->floodSetIs(mac);
  EXPECT_EQ(entry->vlanFloodSetIs(VlanId(10))->floodSetIs(mac), set);
  EXPECT_EQ(entry->vlanFloodSet(VlanId(20)), nullptr) << "a lookup makes nothing";
  entry->vlanFloodSetIs(VlanId(20));
  entry->vlanFloodSetDelAll();
  EXPECT_EQ(entry->vlanFloodSet(VlanId(10)), nullptr);
  EXPECT_EQ(watcher->log.size(), 4U) << "two made, two removed; found is no change";
}

// What an entity gives out is as const as itself, looked up or walked.
template <class Rib, class Given>
constexpr bool givesOut = requires(Rib& rib) {
  requires std::is_same_v<decltype(rib.vlanFloodSet(VlanId())), Moru::Ptr<Given>>;
  requires std::is_same_v<decltype((*rib.vlanFloodSet().begin()).value), Moru::Ptr<Given>>;
  requires std::is_convertible_v<decltype(rib.vlanFloodSet().begin().value()), Moru::Ptr<Given>>;
};
static_assert(givesOut<L2Rib::SourceDirEntry, L2Rib::VlanFloodSet>);
static_assert(givesOut<L2Rib::SourceDirEntry const, L2Rib::VlanFloodSet const>);
static_assert(std::is_same_v<decltype(std::declval<Moru::Dir const&>().entityPtr("")),
                             Moru::Ptr<Moru::Entity const>>);
static_assert(
    std::is_same_v<decltype(std::declval<Moru::Dir&>().entityPtr("")), Moru::Ptr<Moru::Entity>>);
static_assert(std::is_same_v<decltype(Moru::Dir::Entry::entityPtr), Moru::Ptr<Moru::Entity const>>);

}  // namespace
