#include "agent/journal/Path.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>

namespace Agent {

namespace {

constexpr std::string_view valueName = "value";
constexpr std::string_view addressesText = "an array of IPv4 addresses";
constexpr std::string_view flagsText =
    "an array of IPv4 addresses, or an object with true or false for each";

// The parts of a path or of a pattern, between the slashes.
class Parts {
 public:
  static constexpr std::size_t maxParts = 5;

  constexpr explicit Parts(std::string_view path) {
    while (count_ < maxParts) {
      const std::size_t end = std::min(path.find('/'), path.size());
      parts_[count_++] = path.substr(0, end);
      if (end == path.size()) return;
      path.remove_prefix(end + 1);
    }
    tooMany_ = true;
  }

  // Whether this path is of the pattern, whose parts in upper case stand for any text.
  bool matches(const Parts& pattern) const {
    if (tooMany_ || count_ != pattern.count_) return false;
    for (std::size_t i = 0; i < count_; ++i) {
      const std::string_view expected = pattern.parts_[i];
      const bool isVariable = expected.front() >= 'A' && expected.front() <= 'Z';
      if (isVariable ? parts_[i].empty() : parts_[i] != expected) return false;
    }
    return true;
  }

  std::string_view text(std::size_t i) const { return parts_[i]; }
  Moru::Name name(std::size_t i) const { return parts_[i]; }
  Vorn::IntfId intf(std::size_t i) const { return Vorn::IntfId(parts_[i]); }
  Vorn::EthAddr mac(std::size_t i) const { return macOf(parts_[i], "MAC"); }
  Bridging::VlanId vlan(std::size_t i) const { return vlanOf(parts_[i], "VLAN"); }

 private:
  std::array<std::string_view, maxParts> parts_;
  std::size_t count_ = 0;
  bool tooMany_ = false;
};

template <class Enum>
Enum toEnum(Json value, std::string_view what) {
  return Enum{toNumber(value, what)};
}

Vorn::IntfId toIntf(Json value, std::string_view what) { return Vorn::IntfId(toText(value, what)); }

std::vector<Bridging::VlanId> toVlans(Json value, std::string_view what) {
  return toSet(value, what, "an array of VLANs", toVlan);
}

std::vector<Vorn::IpAddr> toIps(Json value, std::string_view what) {
  return toSet(value, what, addressesText, toIp);
}

VtepFlags toFlags(Json value, std::string_view what) {
  if (value.is_object()) return toTable(value, what, flagsText, ipOf, toBool);
  VtepFlags vteps;
  for (const Vorn::IpAddr& vtep : toSet(value, what, flagsText, toIp))
    vteps.emplace_back(vtep, true);
  return vteps;
}

Vxlan::BumReplicationMode toBumStatus(Json value) {
  const auto [mode] = fieldsOf(value, valueName, "bumReplicationMode");
  return need(mode, toEnum<Vxlan::BumReplicationMode>);
}

FloodSetValue toFloodSet(Json value) {
  const auto [type, dests] = fieldsOf(value, valueName, "type", "dests");
  return {need(type, toEnum<L2Rib::FloodSetType>), need(dests, toFlags)};
}

// What a path that names a Target looks like, and how its parts and its value are read.
template <class Target>
struct Syntax;

template <>
struct Syntax<ControllerHost> {
  static constexpr std::string_view pattern = "controller/NAME/host/MAC";
  static ControllerHost target(const Parts& path) { return {path.name(1), path.mac(3)}; }
  static ControllerHost::Value value(Json value) {
    const auto [vtep, moveCount, hostKind] =
        fieldsOf(value, valueName, "vtep", "moveCount", "hostKind");
    ControllerHost::Value host{need(vtep, toIp), given(moveCount, toNumber).value_or(0)};
    if (const auto kind = given(hostKind, toByte)) host.hostKind = VxlanController::HostKind{*kind};
    return host;
  }
};

template <>
struct Syntax<ControllerFlood> {
  static constexpr std::string_view pattern = "controller/NAME/flood/MAC";
  static ControllerFlood target(const Parts& path) { return {path.name(1), path.mac(3)}; }
  static ControllerFlood::Value value(Json value) {
    constexpr std::string_view replace = "replace";
    if (value.is_object() && value.at_key(replace).error() == simdjson::SUCCESS) {
      const auto [list] = fieldsOf(value, valueName, replace);
      return {need(list, toFlags), true};
    }
    return {toFlags(value, valueName), false};
  }
};

template <>
struct Syntax<ControllerMultiPath> {
  static constexpr std::string_view pattern = "controller/NAME/multipath/MAC";
  static ControllerMultiPath target(const Parts& path) { return {path.name(1), path.mac(3)}; }
  static ControllerMultiPath::Value value(Json value) { return toIps(value, valueName); }
};

template <>
struct Syntax<ControllerEntry> {
  static constexpr std::string_view pattern = "controller/NAME";
  static ControllerEntry target(const Parts& path) { return {path.name(1)}; }
  static ControllerEntry::Value value(Json value) {
    const auto [instantiated, type] = fieldsOf(value, valueName, "instantiated", "type");
    const auto typeName = given(type, toText);
    if (typeName && *typeName != "other") refuse(type.name, *type.value, "\"other\"");
    return {given(instantiated, toBool).value_or(true), typeName.has_value()};
  }
};

template <>
struct Syntax<ControllerState> {
  static constexpr std::string_view pattern = "controllerState/NAME";
  static ControllerState target(const Parts& path) { return {path.name(1)}; }
  static ControllerState::Value value(Json value) {
    const auto [converging, instantiated] =
        fieldsOf(value, valueName, "convergenceInProgress", "instantiated");
    return {need(converging, toBool), given(instantiated, toBool).value_or(true)};
  }
};

template <>
struct Syntax<VlanVni> {
  static constexpr std::string_view pattern = "vlanVniMap/INTF/VLAN";
  static VlanVni target(const Parts& path) { return {path.intf(1), path.vlan(2)}; }
  static VlanVni::Value value(Json value) { return toVni(value, valueName); }
};

template <>
struct Syntax<VlanVniTables> {
  static constexpr std::string_view pattern = "vlanVniMap/INTF";
  static VlanVniTables target(const Parts& path) { return {path.intf(1)}; }
  static VlanVniTables::Value value(Json value) {
    const auto [vlanToVsp, vniToVlan] = fieldsOf(value, valueName, "vlanToVsp", "vniToVlan");
    return {given(vlanToVsp, toVnis), given(vniToVlan, toVlansOfVnis)};
  }
  static Table<Bridging::VlanId, Vxlan::VniExt> toVnis(Json value, std::string_view what) {
    return toTable(value, what, "an object from VLAN to VNI", vlanOf, toVni);
  }
  static Table<Vxlan::VniExt, Bridging::VlanIdOrNone> toVlansOfVnis(Json value,
                                                                    std::string_view what) {
    return toTable(value, what, "an object from VNI to VLAN", vniOf, toVlanOrNone);
  }
};

template <>
struct Syntax<Vti> {
  static constexpr std::string_view pattern = "vti/INTF";
  static Vti target(const Parts& path) { return {path.intf(1)}; }
  static Vti::Value value(Json value) {
    const auto [clientMode, learning, local, vArp, vlans] =
        fieldsOf(value, valueName, "controllerClientMode", "datapathLearning", "localVtepAddr",
                 "vArpVtepAddr", "vccImportVlans");
    return {given(clientMode, toBool), given(learning, toBool), given(local, toIp),
            given(vArp, toIp), given(vlans, toVlans)};
  }
};

template <>
struct Syntax<HwBum> {
  static constexpr std::string_view pattern = "hw/bum";
  static HwBum target(const Parts&) { return {}; }
  static HwBum::Value value(Json value) { return toBumStatus(value); }
};

template <>
struct Syntax<MlagPairState> {
  static constexpr std::string_view pattern = "mlag/state";
  static MlagPairState target(const Parts&) { return {}; }
  static MlagPairState::Value value(Json value) {
    return toEnum<Mlag::MlagState>(value, valueName);
  }
};

template <>
struct Syntax<PeerBum> {
  static constexpr std::string_view pattern = "mlag/peer/bum";
  static PeerBum target(const Parts&) { return {}; }
  static PeerBum::Value value(Json value) { return toBumStatus(value); }
};

template <>
struct Syntax<PeerFlood> {
  static constexpr std::string_view pattern = "mlag/peer/flood/VLAN/MAC";
  static PeerFlood target(const Parts& path) { return {path.vlan(3), path.mac(4)}; }
  static PeerFlood::Value value(Json value) { return toFloodSet(value); }
};

template <>
struct Syntax<PeerVlanFlood> {
  static constexpr std::string_view pattern = "mlag/peer/flood/VLAN";
  static PeerVlanFlood target(const Parts& path) { return {path.vlan(3)}; }
  static PeerVlanFlood::Value value(Json value) {
    readFields(value, valueName, {});
    return {};
  }
};

template <>
struct Syntax<MlagVtepTypeAddr> {
  static constexpr std::string_view pattern = "mlag/vtepTypeAddr/NUMBER";
  static MlagVtepTypeAddr target(const Parts& path) {
    return {Vxlan::VtepType{numberOf(path.text(2), "NUMBER")}};
  }
  static MlagVtepTypeAddr::Value value(Json value) { return toIp(value, valueName); }
};

template <>
struct Syntax<RibHost> {
  static constexpr std::string_view pattern = "l2rib/host/MAC/VLAN";
  static RibHost target(const Parts& path) { return {path.mac(2), path.vlan(3)}; }
  static RibHost::Value value(Json value) {
    const auto [vtep, vti, moveCount, time, hostKind, source] =
        fieldsOf(value, valueName, "vtep", "vti", "moveCount", "time", "hostKind", "source");
    RibHost::Value host;
    host.vtep = need(vtep, toIp);
    host.vti = given(vti, toIntf).value_or(host.vti);
    host.moveCount = given(moveCount, toNumber).value_or(host.moveCount);
    host.time = given(time, toReal).value_or(host.time);
    host.hostKind = given(hostKind, toNumber).value_or(host.hostKind);
    host.source = given(source, toNumber).value_or(host.source);
    return host;
  }
};

template <>
struct Syntax<RibFlood> {
  static constexpr std::string_view pattern = "l2rib/flood/VLAN/MAC";
  static RibFlood target(const Parts& path) { return {path.vlan(2), path.mac(3)}; }
  static RibFlood::Value value(Json value) { return toFloodSet(value); }
};

struct Rule {
  std::string_view text;
  Parts pattern;
  Change (*set)(const Parts& path, Json value);
  Change (*del)(const Parts& path);
};

template <class Target>
constexpr Rule ruleOf() {
  using Language = Syntax<Target>;
  return {Language::pattern, Parts(Language::pattern),
          [](const Parts& path, Json value) -> Change {
            return Set<Target>{Language::target(path), Language::value(value)};
          },
          [](const Parts& path) -> Change { return Del<Target>{Language::target(path)}; }};
}

template <class... Targets>
struct RulesOf {
  static constexpr std::array<Rule, sizeof...(Targets)> rules{ruleOf<Targets>()...};
};
constexpr auto& rules = OfTargets<RulesOf>::rules;

const Rule& ruleFor(const Parts& parts, std::string_view path) {
  const auto rule =
      std::ranges::find_if(rules, [&](const Rule& each) { return parts.matches(each.pattern); });
  if (rule != rules.end()) return *rule;
  std::string expected = "a path like";
  for (const Rule& each : rules) expected.append(" ").append(each.text);
  refuse("the path", path, expected);
}

}  // namespace

Change setOf(std::string_view path, Json value) {
  const Parts parts(path);
  return ruleFor(parts, path).set(parts, value);
}

Change delOf(std::string_view path) {
  const Parts parts(path);
  return ruleFor(parts, path).del(parts);
}

}  // namespace Agent
