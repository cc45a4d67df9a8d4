// The state store: which writes a line makes, in which order, and what watchers see at each.
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "agent/Journal.h"
#include "agent/StateStore.h"
#include "framework/Moru/Exception.h"
#include "model/VxlanController/ZepStateV2.h"

namespace {

using Agent::StateStore;
using Bridging::VlanId;
using Moru::AttributeId;
using Moru::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;
using Vorn::EthAddr;
using Vorn::IntfId;
using Vorn::IpAddr;
using VxlanController::VniFdbStatusV2;
using VxlanController::ZepStateV2;

const EthAddr mac = EthAddr::fromValue(1);
const std::string macText = "00:00:00:00:00:01";

template <class E>
class Watcher final : public E::NotifieeConst {
 public:
  using Handler = std::function<void(const E&, AttributeId, const void*)>;
  explicit Watcher(Handler handler) : handler_(std::move(handler)) {}
  void onAttribute(AttributeId attribute, const void* key) override {
    handler_(*this->notifier(), attribute, key);
  }

 private:
  const Handler handler_;
};

template <auto Attribute>
std::string keyText(const void* key) {
  std::ostringstream out;
  out << *Moru::keyOf<Attribute>(key);
  return out.str();
}

// Feeds a store with journal lines, and logs what watchers of its entities are told.
class StoreTest : public testing::Test {
 protected:
  void play(const std::string& lines) {
    std::istringstream in(lines);
    Agent::Journal journal(in, "test");
    while (const auto line = journal.next()) store_.apply(std::get<Agent::Change>(line->action));
  }
  void set(const std::string& path, const std::string& value) {
    play(R"({"set":")" + path + R"(","value":)" + value + "}");
  }
  void del(const std::string& path) { play(R"({"del":")" + path + "\"}"); }

  template <class E>
  void watch(const Ptr<E>& entity, typename Watcher<std::remove_const_t<E>>::Handler handler) {
    auto watcher = Moru::create<Watcher<std::remove_const_t<E>>>(std::move(handler));
    watcher->notifierIs(entity);
    watcher->hasNotificationActiveIs(true);
    watchers_.push_back(watcher);
  }

  void log(const std::string& entry) { log_.push_back(entry); }

  void watchMap(const char* intf) {
    watch(store_.vlanVniMaps->vlanVniMap(IntfId(intf)),
          [this](const Vxlan::VlanVniMap&, AttributeId attribute, const void* key) {
            if (attribute == Moru::idOf<&Vxlan::VlanVniMap::vniToVlan>)
              log("vni " + keyText<&Vxlan::VlanVniMap::vniToVlan>(key));
            else
              log("vlan " + keyText<&Vxlan::VlanVniMap::vlanToVsp>(key));
          });
  }

  std::vector<std::string> takeLog() { return std::exchange(log_, {}); }

  Ptr<VniFdbStatusV2> vni(const char* name) {
    return Moru::dynamicPtrCast<VniFdbStatusV2>(store_.controllerStatusBaseDir->entityPtr(name));
  }

  StateStore store_;
  std::vector<std::string> log_;
  std::vector<Ptr<Moru::Notifiee>> watchers_;
};

TEST_F(StoreTest, ShowsNewVtisWholeAndChangesOnlyWhatIsNamed) {
  const IntfId intf("Vxlan1");
  watch(store_.vtiStatusDir, [&](const Vxlan::VtiStatusDir& dir, AttributeId, const void*) {
    const auto vti = dir.vtiStatus(intf);
    if (!vti) return log("gone");
    log(vti->controllerClientMode() && vti->vccImportVlans(VlanId(20)) ? "whole" : "in parts");
  });
  set("vti/Vxlan1", R"({"vccImportVlans":[30,10,20],"controllerClientMode":true})");
  const auto vti = store_.vtiStatusDir->vtiStatus(intf);
  EXPECT_FALSE(vti->datapathLearning());
  watch(vti, [&](const Vxlan::VtiStatus&, AttributeId attribute, const void* key) {
    log(key == nullptr ? std::to_string(attribute)
                       : "vlan " + keyText<&Vxlan::VtiStatus::vccImportVlans>(key));
  });
  set("vti/Vxlan1", R"({"vccImportVlans":[40,20,5],"vArpVtepAddr":"10.0.0.9",)"
                    R"("localVtepAddr":"10.0.0.1","datapathLearning":true})");
  EXPECT_TRUE(vti->controllerClientMode()) << "what is not named stays";
  set("vti/Vxlan1", R"({"vccImportVlans":[5,20,40]})");
  set("vti/Vxlan1", "{}");
  set("vti/Vxlan1", R"({"vccImportVlans":[]})");
  del("vti/Vxlan1");
  del("vti/Vxlan1");
  EXPECT_THAT(takeLog(), ElementsAre("whole", "2", "3", "4", "vlan 10", "vlan 30", "vlan 5",
                                     "vlan 40", "vlan 5", "vlan 20", "vlan 40", "gone"));
}

TEST_F(StoreTest, MapsAVlanInBothDirections) {
  const IntfId intf("Vxlan1");
  watch(store_.vlanVniMaps, [&](const Vxlan::VlanVniMaps& maps, AttributeId, const void*) {
    const auto map = maps.vlanVniMap(intf);
    log(!map ? "gone" : !map->vlanToVsp(VlanId(10)) ? "in parts" : "whole");
  });
  set("vlanVniMap/Vxlan1/10", "100");
  EXPECT_THAT(takeLog(), ElementsAre("whole"));
  watchMap("Vxlan1");
  set("vlanVniMap/Vxlan1/10", "200");
  EXPECT_THAT(takeLog(), ElementsAre("vni 100", "vni 200", "vlan 10"));
  set("vlanVniMap/Vxlan1/10", "200");
  EXPECT_THAT(takeLog(), ElementsAre("vni 200", "vlan 10")) << "the VNI stays: nothing to forget";
  set("vlanVniMap/Vxlan1/20", "200");
  set("vlanVniMap/Vxlan1/10", "300");
  EXPECT_THAT(takeLog(), ElementsAre("vni 200", "vlan 20", "vni 300", "vlan 10"))
      << "VNI 200 leads to VLAN 20 by then";
  set("vlanVniMap/Vxlan1/10", "200");
  takeLog();
  del("vlanVniMap/Vxlan1/20");
  EXPECT_THAT(takeLog(), ElementsAre("vlan 20")) << "VNI 200 leads to VLAN 10 again";
  del("vlanVniMap/Vxlan1/10");
  del("vlanVniMap/Vxlan1/10");
  del("vlanVniMap/Vxlan9/10");
  EXPECT_THAT(takeLog(), ElementsAre("vni 200", "vlan 10"));
  del("vlanVniMap/Vxlan1");
  EXPECT_THAT(takeLog(), ElementsAre("gone"));
}

TEST_F(StoreTest, ReplacesTheTablesOfAMapApart) {
  set("vlanVniMap/Vxlan1", R"({"vlanToVsp":{"20":200,"10":0},"vniToVlan":{"200":21,"7":0}})");
  const auto map = store_.vlanVniMaps->vlanVniMap(IntfId("Vxlan1"));
  EXPECT_EQ(map->vlanToVsp(VlanId(10)), Vxlan::VniSourcePair(Vxlan::VniExt(0)));
  EXPECT_EQ(map->vniToVlan(Vxlan::VniExt(200)).value(), 21) << "the directions may disagree";
  EXPECT_TRUE(map->vniToVlan().contains(Vxlan::VniExt(7))) << "a VNI may lead to no VLAN";
  watchMap("Vxlan1");
  set("vlanVniMap/Vxlan1", R"({"vlanToVsp":{"30":300,"20":201,"10":0,"9":9}})");
  EXPECT_THAT(takeLog(), ElementsAre("vlan 9", "vlan 20", "vlan 30"));
  set("vlanVniMap/Vxlan1", R"({"vlanToVsp":{"9":9},"vniToVlan":{"300":30,"200":20,"50":5}})");
  EXPECT_THAT(takeLog(), ElementsAre("vni 7", "vni 50", "vni 200", "vni 300", "vlan 10", "vlan 20",
                                     "vlan 30"));
  set("vlanVniMap/Vxlan1", "{}");
  EXPECT_THAT(takeLog(), IsEmpty());
  set("vlanVniMap/Vxlan1", R"({"vlanToVsp":{}})");
  EXPECT_THAT(takeLog(), ElementsAre("vlan 9"));
}

TEST_F(StoreTest, AnnouncesControllerEntriesWithTheirState) {
  watch(store_.controllerStatusBaseDir, [&](const Moru::Dir& dir, AttributeId, const void* key) {
    const auto& name = *static_cast<const Moru::Name*>(key);
    const auto entity = Moru::dynamicPtrCast<VniFdbStatusV2 const>(dir.entityPtr(name));
    log(name.stringValue() + (dir.entryState(name) ? " on" : " off") +
        (!entity                          ? " none"
         : entity->macVtepTable().empty() ? " empty"
                                          : " filled"));
  });
  set("controller/a", R"({"instantiated":false})");
  set("controller/a/host/" + macText, R"({"vtep":"10.0.0.2","moveCount":3,"hostKind":7})");
  EXPECT_EQ(vni("a")->macVtepTable(mac),
            (VxlanController::MacVtepV2{mac, IpAddr(0x0a000002), 3, VxlanController::HostKind{7}}));
  set("controller/a", R"({"type":"other"})");
  set("controller/a", "{}");
  set("controller/b/host/" + macText, R"({"vtep":"10.0.0.2"})");
  set("controller/c", R"({"type":"other"})");
  EXPECT_THROW(set("controller/c/flood/" + macText, "[]"), Agent::JournalError);
  del("controller/c/flood/" + macText);
  del("controller/d/host/" + macText);
  del("controller/b");
  EXPECT_THAT(takeLog(),
              ElementsAre("a off empty", "a on filled", "b on empty", "c on none", "b off none"));
  del("controller/a/host/" + macText);
  EXPECT_TRUE(vni("a")->macVtepTable().empty());
}

TEST_F(StoreTest, WritesMultiPathsAlwaysAndWithdrawsThem) {
  const std::string path = "controller/1/multipath/" + macText;
  set(path, R"(["10.0.0.3","10.0.0.2","10.0.0.3"])");
  watch(vni("1"), [&](const VniFdbStatusV2& entity, AttributeId, const void*) {
    log(std::to_string(entity.macVtepMultiPathTable(mac).vtepIpLists()));
  });
  EXPECT_EQ(vni("1")->macVtepMultiPathTable(mac).vtepIpLists(), 2U);
  EXPECT_EQ(vni("1")->macVtepMultiPathTable(mac).macAddr, mac);
  set(path, R"(["10.0.0.2","10.0.0.3"])");
  set(path, "[]");
  del(path);
  del(path);
  EXPECT_THAT(takeLog(), ElementsAre("2", "0", "0"));
}

TEST_F(StoreTest, ChangesFloodListsByTheirKeys) {
  const std::string path = "controller/1/flood/" + macText;
  set("controller/1", "{}");
  watch(vni("1"), [&](const VniFdbStatusV2& entity, AttributeId, const void*) {
    const auto list = entity.macVtepFloodListTable(mac);
    log(list ? "list of " + std::to_string(list->vtepIpFloodLists()) : "null");
  });
  set(path, R"(["10.0.0.3","10.0.0.20"])");
  const auto list = vni("1")->macVtepFloodListTable(mac);
  watch(list, [&](const auto& entity, AttributeId, const void* key) {
    using List = VxlanController::MacVtepFloodListV2;
    log(keyText<&List::vtepIpFloodList>(key) +
        (entity.vtepIpFloodList(*Moru::keyOf<&List::vtepIpFloodList>(key)) ? " in" : " out"));
  });
  set(path, R"({"10.0.0.100":true,"10.0.0.20":true,"10.0.0.1":false,"10.0.0.9":true})");
  set(path, R"({"10.0.0.100":false,"10.0.0.20":true,"10.0.0.1":false})");
  EXPECT_EQ(vni("1")->macVtepFloodListTable(mac), list);
  set(path, R"({"replace":["10.0.0.7"]})");
  EXPECT_NE(vni("1")->macVtepFloodListTable(mac), list);
  EXPECT_EQ(list->vtepIpFloodLists(), 3U) << "who watches the old list keeps it as it was";
  del(path);
  del(path);
  set(path, R"({"replace":[]})");
  EXPECT_THAT(takeLog(), ElementsAre("list of 2", "10.0.0.3 out", "10.0.0.1 out", "10.0.0.9 in",
                                     "10.0.0.100 in", "10.0.0.9 out", "10.0.0.100 out", "list of 1",
                                     "null", "list of 0"));
}

TEST_F(StoreTest, FillsControllerStatesBeforeTheyAreSeen) {
  watch(store_.zepStateBaseDir, [&](const Moru::Dir& dir, AttributeId, const void* key) {
    const auto& name = *static_cast<const Moru::Name*>(key);
    const auto state = Moru::dynamicPtrCast<ZepStateV2 const>(dir.entityPtr(name));
    if (!state) return log("gone");
    log(std::string(state->convergenceInProgress() ? "converging" : "converged") +
        (dir.entryState(name) ? " on" : " off"));
  });
  set("controllerState/main", R"({"convergenceInProgress":true,"instantiated":false})");
  set("controllerState/main", R"({"convergenceInProgress":false})");
  set("controllerState/main", R"({"convergenceInProgress":true})");
  const auto before = store_.zepStateBaseDir->entityPtr("main");
  EXPECT_TRUE(Moru::dynamicPtrCast<ZepStateV2>(before)->convergenceInProgress());
  del("controllerState/main");
  EXPECT_THAT(takeLog(), ElementsAre("converging off", "converged on", "gone"));
  set("controllerState/main", R"({"convergenceInProgress":false})");
  EXPECT_NE(store_.zepStateBaseDir->entityPtr("main"), before);
}

TEST_F(StoreTest, HasBumStatusesFromTheirFirstSetToTheirDel) {
  const auto statuses = [this] {
    return std::pair(store_.vxlanHwStatusDir->bumStatus(), store_.mlagVxlanStatus->peerBumStatus());
  };
  EXPECT_EQ(statuses().first, nullptr);
  EXPECT_EQ(statuses().second, nullptr);
  watch(store_.vxlanHwStatusDir, [&](const Vxlan::VxlanHwStatusDir& dir, AttributeId, const void*) {
    log(dir.bumStatus() ? std::to_string(traceValue(dir.bumStatus()->bumReplicationMode()))
                        : "none");
  });
  set("hw/bum", R"({"bumReplicationMode":3})");
  set("mlag/peer/bum", R"({"bumReplicationMode":3})");
  const auto before = statuses();
  set("hw/bum", R"({"bumReplicationMode":4294967295})");
  set("mlag/peer/bum", R"({"bumReplicationMode":1})");
  EXPECT_EQ(statuses(), before) << "a mode changes in its place";
  EXPECT_EQ(traceValue(before.first->bumReplicationMode()), 4294967295U);
  del("hw/bum");
  del("hw/bum");
  del("mlag/peer/bum");
  EXPECT_EQ(statuses().second, nullptr);
  set("hw/bum", R"({"bumReplicationMode":1})");
  EXPECT_EQ(traceValue(before.first->bumReplicationMode()), 4294967295U);
  EXPECT_THAT(takeLog(), ElementsAre("3", "none", "1"));
}

// The peer's flood sets and the client's own are written by the same rules.
TEST_F(StoreTest, WritesFloodSetsTypeFirstThenDestinationsInOrder) {
  const auto peer = store_.mlagVxlanStatus->peerSourceDirEntry();
  ASSERT_TRUE(peer);
  const std::pair<std::string, Ptr<L2Rib::SourceDirEntry const>> entries[] = {
      {"mlag/peer/flood/10", peer}, {"l2rib/flood/10", store_.zepSde}};
  for (const auto& [path, entry] : entries) {
    const auto setOf = [](const L2Rib::SourceDirEntry& owner) {
      const auto vlan = owner.vlanFloodSet(VlanId(10));
      return vlan ? vlan->floodSet(mac) : nullptr;
    };
    watch(entry, [this, setOf](const L2Rib::SourceDirEntry& owner, AttributeId, const void*) {
      const auto floodSet = setOf(owner);
      log(floodSet && floodSet->destSets() == 2 ? "whole" : "in parts");
    });
    std::string setPath = path;
    setPath.append("/").append(macText);
    set(setPath, R"({"type":1,"dests":["10.0.0.3","10.0.0.20"]})");
    const auto floodSet = setOf(*entry);
    watch(floodSet, [&](const L2Rib::FloodSet&, AttributeId, const void* key) {
      log(key == nullptr ? "type" : keyText<&L2Rib::FloodSet::destSet>(key));
    });
    set(setPath, R"({"dests":{"10.0.0.100":true,"10.0.0.20":true,"10.0.0.9":false},"type":2})");
    set(setPath, R"({"dests":{"10.0.0.9":true,"10.0.0.20":true},"type":2})");
    EXPECT_THAT(takeLog(), ElementsAre("whole", "type", "vxlan 10.0.0.3", "vxlan 10.0.0.9",
                                       "vxlan 10.0.0.100", "vxlan 10.0.0.100", "vxlan 10.0.0.9"));
    del(setPath);
    EXPECT_EQ(setOf(*entry), nullptr);
    EXPECT_TRUE(entry->vlanFloodSet(VlanId(10))) << "the VLAN's stays, empty";
    del(setPath);
    del(path.substr(0, path.size() - 2) + "11/" + macText);
    EXPECT_THAT(takeLog(), IsEmpty());
  }
  const auto vlan = peer->vlanFloodSet(VlanId(10));
  set("mlag/peer/flood/10", "{}");
  EXPECT_EQ(peer->vlanFloodSet(VlanId(10)), vlan);
  del("mlag/peer/flood/10");
  EXPECT_EQ(peer->vlanFloodSet(VlanId(10)), nullptr);
}

TEST_F(StoreTest, WritesHostsAsAnEarlierClientLeftThem) {
  const std::string path = "l2rib/host/" + macText + "/10";
  set(path, R"({"vtep":"10.0.0.2","vti":"Vxlan1","moveCount":4,"time":2.5,"hostKind":7})");
  L2Rib::Host expected;
  expected.key = {mac, VlanId(10)};
  expected.moveCount = 4;
  expected.kind = 7;
  expected.time = 2.5;
  expected.source = 10;
  expected.dest = L2Rib::CiDest(L2Rib::DestType::vtep);
  expected.dest.intfIdIs(IntfId("Vxlan1"));
  expected.dest.vtepAddrIs(0, IpAddr(0x0a000002));
  EXPECT_EQ(store_.l2RibZepInput->host({mac, VlanId(10)}), expected);
  del(path);
  EXPECT_TRUE(store_.l2RibZepInput->host().empty());
}

TEST_F(StoreTest, KeepsTheMlagStateAndAddresses) {
  set("mlag/state", "4");
  EXPECT_EQ(store_.mlagStatus->mlagState(), Mlag::MlagState::active);
  del("mlag/state");
  EXPECT_EQ(store_.mlagStatus->mlagState(), Mlag::MlagState::disabled);
  const Vxlan::VtepType type{4294967295};
  set("mlag/vtepTypeAddr/4294967295", R"("10.0.0.5")");
  EXPECT_EQ(store_.mlagVxlanStatus->vtepTypeAddr(type), IpAddr(0x0a000005));
  del("mlag/vtepTypeAddr/4294967295");
  EXPECT_TRUE(store_.mlagVxlanStatus->vtepTypeAddr().empty());
}

TEST_F(StoreTest, WritesNothingOfALineThatTheDataModelRefuses) {
  set("vti/Vxlan1", R"({"controllerClientMode":true,"vccImportVlans":[10]})");
  EXPECT_THROW(set("vti/Vxlan1", R"({"controllerClientMode":false,"vccImportVlans":[20,4095]})"),
               Moru::RangeException);
  const auto vti = store_.vtiStatusDir->vtiStatus(IntfId("Vxlan1"));
  EXPECT_TRUE(vti->controllerClientMode());
  EXPECT_TRUE(vti->vccImportVlans(VlanId(10)));
  EXPECT_THROW(set("vlanVniMap/Vxlan1", R"({"vniToVlan":{"1":1},"vlanToVsp":{"1":4294967295}})"),
               Moru::RangeException);
  EXPECT_EQ(store_.vlanVniMaps->vlanVniMap(IntfId("Vxlan1")), nullptr);
}

TEST_F(StoreTest, StaysUsableWhenAWatcherThrows) {
  bool throwing = true;
  const auto mayThrow = [&](const auto&, AttributeId, const void*) {
    if (throwing) throw Moru::RangeException("from a watcher");
  };
  watch(store_.vxlanHwStatusDir, mayThrow);
  watch(store_.controllerStatusBaseDir, mayThrow);
  EXPECT_THROW(set("hw/bum", R"({"bumReplicationMode":3})"), Moru::RangeException);
  EXPECT_THROW(set("controller/1/flood/" + macText, R"(["10.0.0.2"])"), Moru::RangeException);
  ASSERT_TRUE(vni("1")) << "what was written stays";
  EXPECT_TRUE(vni("1")->macVtepFloodListTable().empty()) << "what was to come does not";
  throwing = false;
  const auto status = store_.vxlanHwStatusDir->bumStatus();
  set("hw/bum", R"({"bumReplicationMode":1})");
  EXPECT_EQ(store_.vxlanHwStatusDir->bumStatus(), status);
  EXPECT_EQ(traceValue(status->bumReplicationMode()), 1U);
  set("controller/1/flood/" + macText, R"(["10.0.0.2"])");
  EXPECT_EQ(vni("1")->macVtepFloodListTable(mac)->vtepIpFloodLists(), 1U);
}

}  // namespace
