// The state store: which writes a line makes, in which order, and what watchers see at each. The
// lines stand in golden/store.writes, each with what a watcher of all entities is told of it.
#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "agent/journal/Journal.h"
#include "agent/store/StateStore.h"
#include "framework/Moru/Exception.h"
#include "model/VxlanController/ZepStateV2.h"
#include "tests/agent/Golden.h"

namespace {

using Agent::StateStore;
using L2Rib::FloodSet;
using L2Rib::HostInput;
using L2Rib::SourceDirEntry;
using L2Rib::VlanFloodSet;
using Moru::AttributeId;
using Moru::Ptr;
using Vxlan::BumReplicationMode;
using Vxlan::BumStatus;
using Vxlan::VlanVniMap;
using Vxlan::VlanVniMaps;
using Vxlan::VtiStatus;
using Vxlan::VtiStatusDir;
using Vxlan::VxlanHwStatusDir;
using VxlanController::MacVtepFloodListV2;
using VxlanController::VniFdbStatusV2;
using VxlanController::ZepStateV2;

template <class E>
class Watcher final : public E::NotifieeConst {
 public:
  using Handler = std::function<void(const E&, AttributeId, const void*)>;
  Watcher(const Ptr<E>& entity, Handler handler) : handler_(std::move(handler)) {
    this->notifierIs(entity);
    this->hasNotificationActiveIs(true);
  }
  void onAttribute(AttributeId attribute, const void* key) override {
    handler_(*this->notifier(), attribute, key);
  }

 private:
  const Handler handler_;
};

template <auto... As>
struct Attributes {
  // Calls handler.operator()<A>() for each that the entity has.
  template <class E, class Handler>
  static void forEachOf(const E& entity, Handler handler) {
    const auto call = [&]<auto A>() {
      if constexpr (requires { entity.*A; }) handler.template operator()<A>();
    };
    (call.template operator()<As>(), ...);
  }
};

using AllAttributes = Attributes<
    &VtiStatusDir::vtiStatus, &VtiStatus::controllerClientMode, &VtiStatus::datapathLearning,
    &VtiStatus::localVtepAddr, &VtiStatus::vArpVtepAddr, &VtiStatus::vccImportVlans,
    &VlanVniMaps::vlanVniMap, &VlanVniMap::vlanToVsp, &VlanVniMap::vniToVlan,
    &VniFdbStatusV2::macVtepTable, &VniFdbStatusV2::macVtepMultiPathTable,
    &VniFdbStatusV2::macVtepFloodListTable, &MacVtepFloodListV2::vtepIpFloodList,
    &ZepStateV2::convergenceInProgress, &VxlanHwStatusDir::bumStatus,
    &BumStatus::bumReplicationMode, &Mlag::Status::mlagState, &Mlag::VxlanStatus::peerBumStatus,
    &Mlag::VxlanStatus::vtepTypeAddr, &SourceDirEntry::vlanFloodSet, &VlanFloodSet::floodSet,
    &FloodSet::floodSetType, &FloodSet::destSet, &HostInput::host>;

// "destSet" of &FloodSet::destSet.
template <auto A>
std::string nameOf() {
  std::string name = __PRETTY_FUNCTION__;
  name = name.substr(name.find("A = "));
  name = name.substr(0, name.find_first_of("];"));
  return name.substr(name.rfind(':') + 1);
}

template <class A>
concept Keyed = requires {
  typename A::KeyType;
};

// Plays lines to a store, and tells of every write what there is to be seen at that moment: the
// value, and of an entity that comes all that it holds. From then on that is watched, too.
class Recorder {
 public:
  Recorder() {
    watch("", store_.vtiStatusDir);
    watch("", store_.vlanVniMaps);
    watch("controllerStatusBaseDir", store_.controllerStatusBaseDir);
    watch("zepStateBaseDir", store_.zepStateBaseDir);
    watch("", store_.vxlanHwStatusDir);
    watch("", store_.mlagStatus);
    watch("", store_.mlagVxlanStatus);
    watch("peer ", store_.mlagVxlanStatus->peerSourceDirEntry());
    watch("own ", store_.zepSde);
    watch("", store_.l2RibZepInput);
  }

  // What the line makes watchers see, or is refused for.
  AgentTest::Lines play(const std::string& line) {
    seen_.clear();
    std::istringstream in(line);
    try {
      store_.apply(std::get<Agent::Change>(Agent::Journal(in, "line").next()->action));
    } catch (const Agent::InputError& error) {
      see(std::string("malformed: ") + error.what());
    } catch (const Moru::Exception& error) {
      see(std::string(error.type()) + ": " + error.what());
    }
    return seen_;
  }

 private:
  void see(const std::string& text) { seen_.push_back("  " + text); }

  template <class E>
  void watch(const std::string& path, const Ptr<E>& entity) {
    if (!watched_.insert(entity.get()).second) return;
    using Plain = std::remove_const_t<E>;
    watchers_.push_back(Moru::create<Watcher<Plain const>>(
        entity, [this, path](const Plain& changed, AttributeId id, const void* key) {
          AllAttributes::forEachOf(
              changed, [&]<auto A>() { told<A>(path, changed, id, key); });
        }));
  }

  template <auto A, class E>
  void told(const std::string& path, const E& entity, AttributeId id, const void* key) {
    if (id != Moru::idOf<A>) return;
    const auto& attribute = entity.*A;
    if constexpr (Keyed<std::remove_cvref_t<decltype(attribute)>>) {
      const auto& member = *Moru::keyOf<A>(key);
      const std::string place = path + nameOf<A>() + '[' + text(member) + ']';
      see(place +
          (attribute().contains(member) ? " = " + shown(place, attribute(member)) : " gone"));
    } else {
      see(path + nameOf<A>() + " = " + shown(path + nameOf<A>(), attribute()));
    }
  }

  void watch(const std::string& path, const Ptr<Moru::Dir>& dir) {
    watchers_.push_back(Moru::create<Watcher<Moru::Dir>>(
        dir, [this, path](const Moru::Dir& entries, AttributeId, const void* key) {
          const auto& name = *static_cast<const Moru::Name*>(key);
          const auto entity = entries.entityPtr(name);
          const std::string place = path + '[' + name.stringValue() + ']';
          std::string what = "of another type";
          if (!entity) what = "gone";
          if (const auto vni = Moru::dynamicPtrCast<VniFdbStatusV2 const>(entity))
            what = shown(place, vni);
          if (const auto state = Moru::dynamicPtrCast<ZepStateV2 const>(entity))
            what = shown(place, state);
          see(place + " = " + what +
              (entity && !entries.entryState(name) ? ", not instantiated" : ""));
        }));
  }

  template <class T>
  static std::string text(const T& value) {
    std::ostringstream out;
    out << std::boolalpha << value;
    return out.str();
  }

  template <class T>
  std::string shown(const std::string&, const T& value) {
    if constexpr (requires(std::ostream & out) { out << value; })
      return text(value);
    else
      return "in";  // a member of a set
  }

  template <class E>
  std::string shown(const std::string& path, const Ptr<E>& entity) {
    if (!entity) return "none";
    std::string all = watched_.contains(entity.get()) ? "{" : "new {";
    AllAttributes::forEachOf(
        *entity, [&]<auto A>() { all += ' ' + content<A>(path, *entity); });
    watch(path + ' ', entity);
    return all + " }";
  }

  template <auto A, class E>
  std::string content(const std::string& path, const E& entity) {
    const auto& attribute = entity.*A;
    if constexpr (Keyed<std::remove_cvref_t<decltype(attribute)>>) {
      std::vector<std::string> members;
      for (const auto& [key, value] : attribute()) {
        const std::string place = path + ' ' + nameOf<A>() + '[' + text(key) + ']';
        members.push_back(text(key) + '=' + shown(place, value));
      }
      std::sort(members.begin(), members.end());
      std::string all = nameOf<A>();
      for (const std::string& member : members) all += ' ' + member;
      return all;
    } else {
      return nameOf<A>() + '=' + shown(path, attribute());
    }
  }

  StateStore store_;
  AgentTest::Lines seen_;
  std::set<const void*> watched_;
  std::vector<Ptr<Moru::Notifiee>> watchers_;
};

TEST(StateStore, MakesTheWritesOfALineInTheirOrder) {
  Recorder recorder;
  AgentTest::Lines lines;
  for (const std::string& line : AgentTest::golden("store.writes")) {
    if (line.starts_with("  ")) continue;
    lines.push_back(line);
    if (line.starts_with('{'))
      for (const std::string& seen : recorder.play(line)) lines.push_back(seen);
  }
  AgentTest::expectGolden("store.writes", lines);
  EXPECT_GT(lines.size(), 100U);
}

TEST(StateStore, StaysUsableWhenAWatcherThrows) {
  StateStore store;
  bool throwing = true;
  const auto mayThrow = [&](const auto&, AttributeId, const void*) {
    if (throwing) throw Moru::RangeException("from a watcher");
  };
  const auto hardware = Moru::create<Watcher<VxlanHwStatusDir>>(store.vxlanHwStatusDir, mayThrow);
  const auto controller = Moru::create<Watcher<Moru::Dir>>(store.controllerStatusBaseDir, mayThrow);
  const auto mac = Vorn::EthAddr::fromValue(1);
  const Agent::Set<Agent::HwBum> bum{{}, BumReplicationMode::controller};
  const Agent::Set<Agent::ControllerFlood> list{{"1", mac}, {{{Vorn::IpAddr(0x0a000002), true}}}};
  EXPECT_THROW(store.apply(bum), Moru::RangeException);
  EXPECT_THROW(store.apply(list), Moru::RangeException);
  const auto vni =
      Moru::dynamicPtrCast<VniFdbStatusV2>(store.controllerStatusBaseDir->entityPtr("1"));
  ASSERT_TRUE(vni) << "what was written stays";
  EXPECT_TRUE(vni->macVtepFloodListTable().empty()) << "what was to come does not";
  throwing = false;
  const auto status = store.vxlanHwStatusDir->bumStatus();
  store.apply(bum);
  EXPECT_EQ(store.vxlanHwStatusDir->bumStatus(), status);
  store.apply(list);
  EXPECT_EQ(vni->macVtepFloodListTable(mac)->vtepIpFloodLists(), 1U);
}

}  // namespace
