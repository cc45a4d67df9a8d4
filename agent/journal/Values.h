// Values of the data model from the texts and the JSON values of a journal.
//
// `what` names the value in the error: a key, or what it is a part of. Each function throws
// InputError for a value that is not of its shape, and lets Moru::RangeException pass for a
// number that its type refuses: numbers are never cut, so VLAN 70000 is refused as 4095 is.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <simdjson.h>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/base/InputError.h"
#include "agent/base/SortOnce.h"
#include "model/Bridging/VlanId.h"
#include "model/Bridging/VlanIdOrNone.h"
#include "model/Vorn/EthAddr.h"
#include "model/Vorn/IpAddr.h"
#include "model/Vxlan/VniExt.h"

namespace Agent {

// A value of the line that was parsed last; good until the next line is.
using Json = simdjson::dom::element;

[[noreturn]] void refuse(std::string_view what, std::string_view value, std::string_view expected);
[[noreturn]] void refuse(std::string_view what, Json value, std::string_view expected);

// From text: a part of a path, or the key of an object.
std::uint32_t numberOf(std::string_view text, std::string_view what);
Bridging::VlanId vlanOf(std::string_view text, std::string_view what);
Vxlan::VniExt vniOf(std::string_view text, std::string_view what);
Vorn::EthAddr macOf(std::string_view text, std::string_view what);
Vorn::IpAddr ipOf(std::string_view text, std::string_view what);

// From JSON.
bool toBool(Json value, std::string_view what);
std::uint8_t toByte(Json value, std::string_view what);
std::uint32_t toNumber(Json value, std::string_view what);  // 0 to 4294967295
double toReal(Json value, std::string_view what);           // finite
std::string_view toText(Json value, std::string_view what);
Bridging::VlanId toVlan(Json value, std::string_view what);
Bridging::VlanIdOrNone toVlanOrNone(Json value, std::string_view what);
Vxlan::VniExt toVni(Json value, std::string_view what);
Vorn::IpAddr toIp(Json value, std::string_view what);
simdjson::dom::array toArray(Json value, std::string_view what, std::string_view expected);
simdjson::dom::object toObject(Json value, std::string_view what, std::string_view expected);

// One of the keys that an object may have, and its value if it has it.
struct Field {
  std::string_view name;
  std::optional<Json> value = std::nullopt;
};

// Finds the fields in `object`. A key that is none of them, or comes twice, is an error.
void readFields(Json object, std::string_view what, std::span<Field> fields);

// const auto [vtep, moveCount] = fieldsOf(value, "value", "vtep", "moveCount");
template <class... Names>
std::array<Field, sizeof...(Names)> fieldsOf(Json object, std::string_view what, Names... names) {
  std::array<Field, sizeof...(Names)> fields{Field{names}...};
  readFields(object, what, fields);
  return fields;
}

// The field's value by one of the functions above; one that is left out is an error.
template <class T>
T need(const Field& field, T (*convert)(Json, std::string_view)) {
  if (!field.value) throw InputError(std::string(field.name) + " is missing: expected it in value");
  return convert(*field.value, field.name);
}

// The field's value, or nothing.
template <class T>
std::optional<T> given(const Field& field, T (*convert)(Json, std::string_view)) {
  if (!field.value) return std::nullopt;
  return convert(*field.value, field.name);
}

// The members of an array that stands for a set: ascending, each once.
template <class T>
std::vector<T> toSet(Json value, std::string_view what, std::string_view expected,
                     T (*convert)(Json, std::string_view)) {
  std::vector<T> members;
  for (const Json member : toArray(value, what, expected)) members.push_back(convert(member, what));
  sortOnce(members);
  return members;
}

// An object that stands for a table: ascending by key. A key that comes twice is an error.
template <class Key, class Value>
std::vector<std::pair<Key, Value>> toTable(Json value, std::string_view what,
                                           std::string_view expected,
                                           Key (*keyOf)(std::string_view, std::string_view),
                                           Value (*convert)(Json, std::string_view)) {
  std::vector<std::pair<Key, Value>> table;
  for (const auto& [text, member] : toObject(value, what, expected)) {
    const Key key = keyOf(text, what);
    table.emplace_back(key, convert(member, what));
  }
  const auto key = [](const auto& entry) { return entry.first; };
  std::ranges::sort(table, {}, key);
  if (std::ranges::adjacent_find(table, {}, key) != table.end())
    refuse(what, value, "each key once");
  return table;
}

}  // namespace Agent
