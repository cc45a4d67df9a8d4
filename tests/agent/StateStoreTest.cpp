// The state store: which writes a line makes, in which order, and what watchers see at each. The
// lines stand in golden/store.writes, each with what a watcher of all entities is told of it; those
// that are malformed stand in golden/journal.complaints, each with what the reader has against it.
#include <algorithm>
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
#include "tests/Vxlan/World.h"
#include "tests/agent/Golden.h"

namespace {

using Agent::StateStore;
using L2Rib::FloodSet;
using L2Rib::HostInput;
using L2Rib::SourceDirEntry;
using L2Rib::VlanFloodSet;
using Moru::AttributeId;
using Moru::Ptr;
using Test::watch;
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
    follow("", store_.vtiStatusDir);
    follow("", store_.vlanVniMaps);
    follow("controllerStatusBaseDir", store_.controllerStatusBaseDir);
    follow("zepStateBaseDir", store_.zepStateBaseDir);
    follow("", store_.vxlanHwStatusDir);
    follow("", store_.mlagStatus);
    follow("", store_.mlagVxlanStatus);
    follow("peer ", store_.mlagVxlanStatus->peerSourceDirEntry());
    follow("own ", store_.zepSde);
    follow("", store_.l2RibZepInput);
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
  void follow(const std::string& path, const Ptr<E>& entity) {
    if (!watched_.insert(entity.get()).second) return;
    const std::remove_const_t<E>& changed = *entity;
    watchers_.push_back(watch(entity, [this, path, &changed](AttributeId id, const void* key) {
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

  void follow(const std::string& path, const Ptr<Moru::Dir>& dir) {
    const Moru::Dir& entries = *dir;
    watchers_.push_back(watch(dir, [this, path, &entries](AttributeId, const void* key) {
      const Moru::Name& name = *Moru::Dir::nameOf(key);
      const auto entity = entries.entityPtr(name);
      const std::string place = path + '[' + name.stringValue() + ']';
      std::string what = entity ? "of another type" : "gone";
      if (const auto vni = Moru::dynamicPtrCast<VniFdbStatusV2 const>(entity))
        what = shown(place, vni);
      if (const auto state = Moru::dynamicPtrCast<ZepStateV2 const>(entity))
        what = shown(place, state);
      see(place + " = " + what + (entity && !entries.entryState(name) ? ", not instantiated" : ""));
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
    follow(path + ' ', entity);
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

// Plays the lines of a file.
void expectSeen(const char* name) {
  Recorder recorder;
  AgentTest::Lines lines;
  for (const std::string& line : AgentTest::golden(name)) {
    if (line.starts_with("  ")) continue;
    lines.push_back(line);
    if (line.empty() || line.starts_with('#')) continue;
    for (const std::string& seen : recorder.play(line)) lines.push_back(seen);
  }
  AgentTest::expectGolden(name, lines);
  EXPECT_GT(lines.size(), 100U);
}

TEST(StateStore, MakesTheWritesOfALineInTheirOrder) { expectSeen("store.writes"); }

TEST(Journal, SaysWhatIsWrongWithALine) { expectSeen("journal.complaints"); }

TEST(StateStore, StaysUsableWhenAWatcherThrows) {
  StateStore store;
  bool throwing = true;
  const auto mayThrow = [&](auto...) {
    if (throwing) throw Moru::RangeException("from a watcher");
  };
  const auto hardware = watch(store.vxlanHwStatusDir, mayThrow);
  const auto controller = watch(store.controllerStatusBaseDir, mayThrow);
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
