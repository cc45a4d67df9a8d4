#include "agent/journal/Path.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <variant>

#include "agent/journal/Codec.h"

namespace Agent {

namespace {

constexpr std::string_view valueName = "value";

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

  static constexpr bool isVariable(std::string_view part) {
    return part.front() >= 'A' && part.front() <= 'Z';
  }

  // Whether this path is of the pattern, whose parts in upper case stand for any text.
  bool matches(const Parts& pattern) const {
    if (tooMany_ || count_ != pattern.count_) return false;
    for (std::size_t i = 0; i < count_; ++i) {
      const std::string_view expected = pattern.parts_[i];
      if (isVariable(expected) ? parts_[i].empty() : parts_[i] != expected) return false;
    }
    return true;
  }

  constexpr std::string_view operator[](std::size_t i) const { return parts_[i]; }
  constexpr std::size_t count() const { return count_; }

 private:
  std::array<std::string_view, maxParts> parts_;
  std::size_t count_ = 0;
  bool tooMany_ = false;
};

// A field of a value that is an object; `access` is the member that holds it.
template <class Access>
struct Member {
  std::string_view name;
  Access access;
  bool isNeeded;
};

template <class Access>
constexpr Member<Access> needed(std::string_view name, Access access) {
  return {name, access, true};
}

// Left out where it is as in a new value.
template <class Access>
constexpr Member<Access> optional(std::string_view name, Access access) {
  return {name, access, false};
}

template <class Value, class Access>
using MemberType = std::remove_cvref_t<std::invoke_result_t<Access, Value&>>;

template <class Value, class Access>
void readMember(Value& value, const Member<Access>& member, const Field& field) {
  using Type = MemberType<Value, Access>;
  if (member.isNeeded && !field.value)
    throw InputError(std::string(field.name) + " is missing: expected it in value");
  if (field.value)
    std::invoke(member.access, value) = Codec<Type>::ofJson(*field.value, field.name);
}

template <class Value, class Access>
void writeMember(std::string& out, const Value& value, const Member<Access>& member) {
  const Value asNew{};
  const auto& given = std::invoke(member.access, value);
  if (!member.isNeeded && given == std::invoke(member.access, asNew)) return;
  if (out.back() != '{') out += ',';
  writeQuoted(out, member.name);
  out += ':';
  writeJson(out, given);
}

// The language of a value that is an object with these members.
template <class Value, class... Accesses>
struct ObjectOf {
  std::tuple<Member<Accesses>...> members;

  Value read(Json json) const {
    return std::apply(
        [json](const auto&... member) {
          [[maybe_unused]] const std::array<Field, sizeof...(member)> fields =
              fieldsOf(json, valueName, member.name...);
          Value value{};
          [[maybe_unused]] std::size_t i = 0;
          (readMember(value, member, fields[i++]), ...);
          return value;
        },
        members);
  }

  void write(std::string& out, const Value& value) const {
    out += '{';
    std::apply([&](const auto&... member) { (writeMember(out, value, member), ...); }, members);
    out += '}';
  }
};

template <class Value, class... Accesses>
constexpr ObjectOf<Value, Accesses...> objectOf(Member<Accesses>... members) {
  return {std::tuple(members...)};
}

// The language of a value that is one value of the data model.
template <class Value>
struct WholeOf {
  static Value read(Json json) { return Codec<Value>::ofJson(json, valueName); }
  static void write(std::string& out, const Value& value) { writeJson(out, value); }
};

// What a path that names a Target looks like, the members that its variable parts are, in their
// order, and the language of its value.
template <class Target>
struct Syntax;

template <>
struct Syntax<ControllerHost> {
  using Value = ControllerHost::Value;
  static constexpr std::string_view pattern = "controller/NAME/host/MAC";
  static constexpr std::tuple parts{&ControllerHost::name, &ControllerHost::mac};
  static constexpr auto value =
      objectOf<Value>(needed("vtep", &Value::vtep), optional("moveCount", &Value::moveCount),
                      optional("hostKind", &Value::hostKind));
};

template <>
struct Syntax<ControllerFlood> {
  // {"replace": LIST}, or the list alone.
  struct ListOrReplacement {
    using Value = ControllerFlood::Value;
    static constexpr auto replacement = objectOf<Value>(needed("replace", &Value::vteps));

    static Value read(Json json) {
      if (!json.is_object() || json.at_key("replace").error() != simdjson::SUCCESS)
        return {Codec<VtepFlags>::ofJson(json, valueName)};
      Value value = replacement.read(json);
      value.replace = true;
      return value;
    }
    static void write(std::string& out, const Value& value) {
      if (value.replace) return replacement.write(out, value);
      writeJson(out, value.vteps);
    }
  };
  static constexpr std::string_view pattern = "controller/NAME/flood/MAC";
  static constexpr std::tuple parts{&ControllerFlood::name, &ControllerFlood::mac};
  static constexpr ListOrReplacement value{};
};

template <>
struct Syntax<ControllerMultiPath> {
  static constexpr std::string_view pattern = "controller/NAME/multipath/MAC";
  static constexpr std::tuple parts{&ControllerMultiPath::name, &ControllerMultiPath::mac};
  static constexpr WholeOf<ControllerMultiPath::Value> value{};
};

template <>
struct Syntax<ControllerEntry> {
  using Value = ControllerEntry::Value;
  static constexpr std::string_view pattern = "controller/NAME";
  static constexpr std::tuple parts{&ControllerEntry::name};
  static constexpr auto value = objectOf<Value>(optional("instantiated", &Value::instantiated),
                                                optional("type", &Value::type));
};

template <>
struct Syntax<ControllerState> {
  using Value = ControllerState::Value;
  static constexpr std::string_view pattern = "controllerState/NAME";
  static constexpr std::tuple parts{&ControllerState::name};
  static constexpr auto value =
      objectOf<Value>(needed("convergenceInProgress", &Value::convergenceInProgress),
                      optional("instantiated", &Value::instantiated));
};

template <>
struct Syntax<VlanVni> {
  static constexpr std::string_view pattern = "vlanVniMap/INTF/VLAN";
  static constexpr std::tuple parts{&VlanVni::intf, &VlanVni::vlan};
  static constexpr WholeOf<VlanVni::Value> value{};
};

template <>
struct Syntax<VlanVniTables> {
  using Value = VlanVniTables::Value;
  static constexpr std::string_view pattern = "vlanVniMap/INTF";
  static constexpr std::tuple parts{&VlanVniTables::intf};
  static constexpr auto value = objectOf<Value>(optional("vlanToVsp", &Value::vlanToVsp),
                                                optional("vniToVlan", &Value::vniToVlan));
};

template <>
struct Syntax<Vti> {
  using Value = Vti::Value;
  static constexpr std::string_view pattern = "vti/INTF";
  static constexpr std::tuple parts{&Vti::intf};
  static constexpr auto value =
      objectOf<Value>(optional("controllerClientMode", &Value::controllerClientMode),
                      optional("datapathLearning", &Value::datapathLearning),
                      optional("localVtepAddr", &Value::localVtepAddr),
                      optional("vArpVtepAddr", &Value::vArpVtepAddr),
                      optional("vccImportVlans", &Value::vccImportVlans));
};

constexpr auto bumStatus =
    objectOf<Vxlan::BumReplicationMode>(needed("bumReplicationMode", std::identity()));

constexpr auto floodSet = objectOf<FloodSetValue>(needed("type", &FloodSetValue::type),
                                                  needed("dests", &FloodSetValue::dests));

template <>
struct Syntax<HwBum> {
  static constexpr std::string_view pattern = "hw/bum";
  static constexpr std::tuple<> parts{};
  static constexpr auto value = bumStatus;
};

template <>
struct Syntax<MlagPairState> {
  static constexpr std::string_view pattern = "mlag/state";
  static constexpr std::tuple<> parts{};
  static constexpr WholeOf<MlagPairState::Value> value{};
};

template <>
struct Syntax<PeerBum> {
  static constexpr std::string_view pattern = "mlag/peer/bum";
  static constexpr std::tuple<> parts{};
  static constexpr auto value = bumStatus;
};

template <>
struct Syntax<PeerFlood> {
  static constexpr std::string_view pattern = "mlag/peer/flood/VLAN/MAC";
  static constexpr std::tuple parts{&PeerFlood::vlan, &PeerFlood::mac};
  static constexpr auto value = floodSet;
};

template <>
struct Syntax<PeerVlanFlood> {
  static constexpr std::string_view pattern = "mlag/peer/flood/VLAN";
  static constexpr std::tuple parts{&PeerVlanFlood::vlan};
  static constexpr auto value = objectOf<PeerVlanFlood::Value>();
};

template <>
struct Syntax<MlagVtepTypeAddr> {
  static constexpr std::string_view pattern = "mlag/vtepTypeAddr/NUMBER";
  static constexpr std::tuple parts{&MlagVtepTypeAddr::type};
  static constexpr WholeOf<MlagVtepTypeAddr::Value> value{};
};

template <>
struct Syntax<RibHost> {
  using Value = RibHost::Value;
  static constexpr std::string_view pattern = "l2rib/host/MAC/VLAN";
  static constexpr std::tuple parts{&RibHost::mac, &RibHost::vlan};
  static constexpr auto value =
      objectOf<Value>(needed("vtep", &Value::vtep), optional("vti", &Value::vti),
                      optional("moveCount", &Value::moveCount), optional("time", &Value::time),
                      optional("hostKind", &Value::hostKind), optional("source", &Value::source));
};

template <>
struct Syntax<RibFlood> {
  static constexpr std::string_view pattern = "l2rib/flood/VLAN/MAC";
  static constexpr std::tuple parts{&RibFlood::vlan, &RibFlood::mac};
  static constexpr auto value = floodSet;
};

// Calls `visit` with each variable part of the pattern, by its place, and the member that it is.
template <class Target, class Visit>
void forEachPart(const Parts& pattern, Visit visit) {
  std::size_t place = 0;
  const auto next = [&](auto member) {
    while (!Parts::isVariable(pattern[place])) ++place;
    visit(place++, member);
  };
  std::apply([&](auto... member) { (next(member), ...); }, Syntax<Target>::parts);
}

template <class Target>
Target targetOf(const Parts& path) {
  constexpr Parts pattern(Syntax<Target>::pattern);
  Target target{};
  forEachPart<Target>(pattern, [&](std::size_t place, auto member) {
    using Part = MemberType<Target, decltype(member)>;
    target.*member = Codec<Part>::ofText(path[place], pattern[place]);
  });
  return target;
}

template <class Target>
void writePath(std::string& out, const Target& target) {
  constexpr Parts pattern(Syntax<Target>::pattern);
  std::array<std::string, Parts::maxParts> texts;
  forEachPart<Target>(pattern, [&](std::size_t place, auto member) {
    texts[place] = Codec<MemberType<Target, decltype(member)>>::text(target.*member);
  });
  for (std::size_t place = 0; place < pattern.count(); ++place) {
    if (place > 0) out += '/';
    out += Parts::isVariable(pattern[place]) ? std::string_view(texts[place]) : pattern[place];
  }
}

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
            return Set<Target>{targetOf<Target>(path), Language::value.read(value)};
          },
          [](const Parts& path) -> Change { return Del<Target>{targetOf<Target>(path)}; }};
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

std::string pathOf(const Change& change) {
  std::string path;
  std::visit([&path](const auto& each) { writePath(path, each.target); }, change);
  return path;
}

bool writeValue(std::string& out, const Change& change) {
  const auto write = [&out]<class Each>(const Each& each) {
    if constexpr (requires { each.value; }) {
      Syntax<std::remove_cvref_t<decltype(each.target)>>::value.write(out, each.value);
      return true;
    }
    return false;
  };
  return std::visit(write, change);
}

}  // namespace Agent
