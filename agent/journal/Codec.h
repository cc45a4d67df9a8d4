// How each type of the data model stands in a journal, reading and writing side by side: what the
// one does, the other undoes.
//
//   ofText, text    as a part of a path, or as the key of an object
//   ofJson, write   as a JSON value; write() appends it
//
// Each type has what it is used for. Readers throw as those of Values.h do.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "agent/journal/Values.h"
#include "agent/store/Change.h"
#include "framework/Moru/Name.h"
#include "model/Vorn/IntfId.h"

namespace Agent {

// Appends a JSON string; bytes that are not UTF-8 become U+FFFD.
void writeQuoted(std::string& out, std::string_view text);

// Appends the shortest text that is read as this number.
void writeReal(std::string& out, double number);

template <class T>
struct Codec;

template <class T>
void writeJson(std::string& out, const T& value) {
  Codec<T>::write(out, value);
}

template <>
struct Codec<bool> {
  static bool ofJson(Json value, std::string_view what) { return toBool(value, what); }
  static void write(std::string& out, bool flag) { out += flag ? "true" : "false"; }
};

template <>
struct Codec<double> {
  static double ofJson(Json value, std::string_view what) { return toReal(value, what); }
  static void write(std::string& out, double number) { writeReal(out, number); }
};

template <>
struct Codec<std::uint8_t> {
  static std::uint8_t ofJson(Json value, std::string_view what) { return toByte(value, what); }
  static void write(std::string& out, std::uint8_t number) { out += std::to_string(number); }
};

template <>
struct Codec<std::uint32_t> {
  static std::uint32_t ofText(std::string_view text, std::string_view what) {
    return numberOf(text, what);
  }
  static std::string text(std::uint32_t number) { return std::to_string(number); }
  static std::uint32_t ofJson(Json value, std::string_view what) { return toNumber(value, what); }
  static void write(std::string& out, std::uint32_t number) { out += text(number); }
};

// An enumeration is its number, whether that has a name or not.
template <class Enum>
requires std::is_enum_v<Enum>
struct Codec<Enum> {
  using Number = std::underlying_type_t<Enum>;
  static Enum ofText(std::string_view text, std::string_view what) {
    return Enum{Codec<Number>::ofText(text, what)};
  }
  static std::string text(Enum value) { return std::to_string(static_cast<Number>(value)); }
  static Enum ofJson(Json value, std::string_view what) {
    return Enum{Codec<Number>::ofJson(value, what)};
  }
  static void write(std::string& out, Enum value) { out += text(value); }
};

// To be left out where it is a VNI's.
template <>
struct Codec<ControllerEntry::Type> {
  static constexpr std::string_view other = "other";
  static ControllerEntry::Type ofJson(Json value, std::string_view what) {
    if (toText(value, what) != other) refuse(what, value, "\"other\"");
    return ControllerEntry::Type::other;
  }
  static void write(std::string& out, ControllerEntry::Type) { writeQuoted(out, other); }
};

template <>
struct Codec<Moru::Name> {
  static Moru::Name ofText(std::string_view text, std::string_view) { return text; }
  static std::string text(const Moru::Name& name) { return name.stringValue(); }
};

template <>
struct Codec<Vorn::IntfId> {
  static Vorn::IntfId ofText(std::string_view text, std::string_view) { return Vorn::IntfId(text); }
  static std::string text(const Vorn::IntfId& intf) { return intf.stringValue(); }
  static Vorn::IntfId ofJson(Json value, std::string_view what) {
    return Vorn::IntfId(toText(value, what));
  }
  static void write(std::string& out, const Vorn::IntfId& intf) { writeQuoted(out, text(intf)); }
};

template <>
struct Codec<Vorn::EthAddr> {
  static Vorn::EthAddr ofText(std::string_view text, std::string_view what) {
    return macOf(text, what);
  }
  static std::string text(const Vorn::EthAddr& mac) { return mac.stringValue(); }
};

template <>
struct Codec<Vorn::IpAddr> {
  static constexpr std::string_view plural = "IPv4 addresses";
  static Vorn::IpAddr ofText(std::string_view text, std::string_view what) {
    return ipOf(text, what);
  }
  static std::string text(const Vorn::IpAddr& ip) { return ip.stringValue(); }
  static Vorn::IpAddr ofJson(Json value, std::string_view what) { return toIp(value, what); }
  static void write(std::string& out, const Vorn::IpAddr& ip) { writeQuoted(out, text(ip)); }
};

template <>
struct Codec<Bridging::VlanId> {
  static constexpr std::string_view singular = "VLAN";
  static constexpr std::string_view plural = "VLANs";
  static Bridging::VlanId ofText(std::string_view text, std::string_view what) {
    return vlanOf(text, what);
  }
  static std::string text(const Bridging::VlanId& vlan) { return std::to_string(vlan.value()); }
  static Bridging::VlanId ofJson(Json value, std::string_view what) { return toVlan(value, what); }
  static void write(std::string& out, const Bridging::VlanId& vlan) { out += text(vlan); }
};

template <>
struct Codec<Bridging::VlanIdOrNone> {
  static constexpr std::string_view singular = "VLAN";
  static Bridging::VlanIdOrNone ofJson(Json value, std::string_view what) {
    return toVlanOrNone(value, what);
  }
  static void write(std::string& out, const Bridging::VlanIdOrNone& vlan) {
    out += std::to_string(vlan.value());
  }
};

template <>
struct Codec<Vxlan::VniExt> {
  static constexpr std::string_view singular = "VNI";
  static Vxlan::VniExt ofText(std::string_view text, std::string_view what) {
    return vniOf(text, what);
  }
  static std::string text(const Vxlan::VniExt& vni) { return std::to_string(vni.value()); }
  static Vxlan::VniExt ofJson(Json value, std::string_view what) { return toVni(value, what); }
  static void write(std::string& out, const Vxlan::VniExt& vni) { out += text(vni); }
};

// What may be left out; its reader is for where it is not.
template <class T>
struct Codec<std::optional<T>> {
  static std::optional<T> ofJson(Json value, std::string_view what) {
    return Codec<T>::ofJson(value, what);
  }
  static void write(std::string& out, const std::optional<T>& value) { writeJson(out, *value); }
};

// Appends each member with a comma before all but the first.
template <class Members, class Write>
void writeEach(std::string& out, char open, const Members& members, Write write, char close) {
  out += open;
  for (const auto& member : members) {
    if (&member != &*members.begin()) out += ',';
    write(member);
  }
  out += close;
}

template <class T>
struct Codec<std::vector<T>> {
  static std::vector<T> ofJson(Json value, std::string_view what) {
    return toSet(value, what, "an array of " + std::string(Codec<T>::plural), Codec<T>::ofJson);
  }
  static void write(std::string& out, const std::vector<T>& members) {
    writeEach(
        out, '[', members, [&out](const T& member) { writeJson(out, member); }, ']');
  }
};

template <class Key, class Value>
struct Codec<Table<Key, Value>> {
  static Table<Key, Value> ofJson(Json value, std::string_view what) {
    const std::string expected = "an object from " + std::string(Codec<Key>::singular) + " to " +
                                 std::string(Codec<Value>::singular);
    return toTable(value, what, expected, Codec<Key>::ofText, Codec<Value>::ofJson);
  }
  static void write(std::string& out, const Table<Key, Value>& table) {
    const auto entry = [&out](const std::pair<Key, Value>& each) {
      writeQuoted(out, Codec<Key>::text(each.first));
      out += ':';
      writeJson(out, each.second);
    };
    writeEach(out, '{', table, entry, '}');
  }
};

// An array where all flags are true.
template <>
struct Codec<VtepFlags> {
  static VtepFlags ofJson(Json value, std::string_view what) {
    constexpr std::string_view expected =
        "an array of IPv4 addresses, or an object with true or false for each";
    if (value.is_object()) return toTable(value, what, expected, ipOf, toBool);
    VtepFlags vteps;
    for (const Vorn::IpAddr& vtep : toSet(value, what, expected, toIp))
      vteps.emplace_back(vtep, true);
    return vteps;
  }
  static void write(std::string& out, const VtepFlags& vteps) {
    const bool allTrue = std::ranges::all_of(vteps, [](const auto& each) { return each.second; });
    const auto entry = [&](const std::pair<Vorn::IpAddr, bool>& each) {
      writeJson(out, each.first);
      if (allTrue) return;
      out += ':';
      writeJson(out, each.second);
    };
    writeEach(out, allTrue ? '[' : '{', vteps, entry, allTrue ? ']' : '}');
  }
};

}  // namespace Agent
