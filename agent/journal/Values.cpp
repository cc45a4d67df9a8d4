#include "agent/journal/Values.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

#include "agent/base/Text.h"

namespace Agent {

namespace {

constexpr std::string_view numberText = "a whole number from 0 to 4294967295";
constexpr std::string_view vlanText = "the number of a VLAN";
constexpr std::string_view vniText = "the number of a VNI";

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();

// A decimal number; one too large for the type gives the type's largest, which every type that a
// number is meant for refuses.
std::optional<std::int64_t> decimal(std::string_view text) {
  std::uint64_t number = 0;
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, number);
  if (end != last || error == std::errc::invalid_argument) return std::nullopt;
  if (error == std::errc::result_out_of_range || number > std::uint64_t{largest}) return largest;
  return static_cast<std::int64_t>(number);
}

std::int64_t wholeOf(std::string_view text, std::string_view what, std::string_view expected) {
  const auto number = decimal(text);
  if (!number) refuse(what, text, expected);
  return *number;
}

// As decimal(), of a JSON number. 10.0 is whole too: to JSON it is the same number as 10.
std::int64_t toWhole(Json value, std::string_view what, std::string_view expected) {
  if (std::int64_t number = 0; value.get(number) == simdjson::SUCCESS && number >= 0) return number;
  if (value.is<std::uint64_t>()) return largest;
  double real = -1;
  if (value.get(real) != simdjson::SUCCESS || real < 0 || std::trunc(real) != real)
    refuse(what, value, expected);
  constexpr double tooLarge = 9223372036854775808.0;
  return real < tooLarge ? static_cast<std::int64_t>(real) : largest;
}

template <class Number>
Number inRange(Json value, std::string_view what, std::string_view expected) {
  const std::int64_t number = toWhole(value, what, expected);
  if (number > std::int64_t{std::numeric_limits<Number>::max()}) refuse(what, value, expected);
  return static_cast<Number>(number);
}

std::string listed(std::span<const Field> fields) {
  std::string text = "an object";
  std::string_view separator = " with any of ";
  for (const Field& field : fields) {
    text.append(separator).append(field.name);
    separator = ", ";
  }
  return fields.empty() ? "{}" : text;
}

Field& fieldNamed(std::string_view name, std::span<Field> fields) {
  const auto field = std::ranges::find(fields, name, &Field::name);
  if (field == fields.end())
    throw InputError("unknown key \"" + beginningOf(name) + "\": expected " + listed(fields));
  if (field->value) throw InputError(std::string(name) + " is given twice: expected each key once");
  return *field;
}

}  // namespace

void refuse(std::string_view what, std::string_view value, std::string_view expected) {
  throw InputError(std::string(what) + " is \"" + beginningOf(value) + "\": expected " +
                   std::string(expected));
}

void refuse(std::string_view what, Json value, std::string_view expected) {
  throw InputError(std::string(what) + " is " + beginningOf(simdjson::minify(value)) +
                   ": expected " + std::string(expected));
}

std::uint32_t numberOf(std::string_view text, std::string_view what) {
  const std::int64_t number = wholeOf(text, what, numberText);
  if (number > std::int64_t{std::numeric_limits<std::uint32_t>::max()})
    refuse(what, text, numberText);
  return static_cast<std::uint32_t>(number);
}

Bridging::VlanId vlanOf(std::string_view text, std::string_view what) {
  return Bridging::VlanId(wholeOf(text, what, vlanText));
}

Vxlan::VniExt vniOf(std::string_view text, std::string_view what) {
  return Vxlan::VniExt(wholeOf(text, what, vniText));
}

Vorn::EthAddr macOf(std::string_view text, std::string_view what) {
  const auto mac = Vorn::EthAddr::parse(text);
  if (!mac) refuse(what, text, "a MAC address: six hexadecimal bytes with colons between them");
  return *mac;
}

Vorn::IpAddr ipOf(std::string_view text, std::string_view what) {
  const auto ip = Vorn::IpAddr::parse(text);
  if (!ip) refuse(what, text, "an IPv4 address: four numbers with dots between them");
  return *ip;
}

bool toBool(Json value, std::string_view what) {
  bool flag = false;
  if (value.get(flag) != simdjson::SUCCESS) refuse(what, value, "true or false");
  return flag;
}

std::uint8_t toByte(Json value, std::string_view what) {
  return inRange<std::uint8_t>(value, what, "a whole number from 0 to 255");
}

std::uint32_t toNumber(Json value, std::string_view what) {
  return inRange<std::uint32_t>(value, what, numberText);
}

double toReal(Json value, std::string_view what) {
  double number = 0;
  if (value.get(number) != simdjson::SUCCESS || !std::isfinite(number))
    refuse(what, value, "a number");
  return number;
}

std::string_view toText(Json value, std::string_view what) {
  std::string_view text;
  if (value.get(text) != simdjson::SUCCESS) refuse(what, value, "a text");
  return text;
}

Bridging::VlanId toVlan(Json value, std::string_view what) {
  return Bridging::VlanId(toWhole(value, what, vlanText));
}

Bridging::VlanIdOrNone toVlanOrNone(Json value, std::string_view what) {
  return Bridging::VlanIdOrNone(toWhole(value, what, vlanText));
}

Vxlan::VniExt toVni(Json value, std::string_view what) {
  return Vxlan::VniExt(toWhole(value, what, vniText));
}

Vorn::IpAddr toIp(Json value, std::string_view what) {
  std::string_view text;
  if (value.get(text) != simdjson::SUCCESS) refuse(what, value, "an IPv4 address");
  return ipOf(text, what);
}

simdjson::dom::array toArray(Json value, std::string_view what, std::string_view expected) {
  simdjson::dom::array array;
  if (value.get(array) != simdjson::SUCCESS) refuse(what, value, expected);
  return array;
}

simdjson::dom::object toObject(Json value, std::string_view what, std::string_view expected) {
  simdjson::dom::object object;
  if (value.get(object) != simdjson::SUCCESS) refuse(what, value, expected);
  return object;
}

void readFields(Json object, std::string_view what, std::span<Field> fields) {
  simdjson::dom::object members;
  if (object.get(members) != simdjson::SUCCESS) refuse(what, object, listed(fields));
  for (const auto& [name, value] : members) fieldNamed(name, fields).value = value;
}

}  // namespace Agent
