// What a trace statement records of its values: raw bytes of a few kinds, rendered as text later.
//
// A type of one's own says what it is by a function beside it, traceValue(const T&), that returns
// one of the structs of RawValue.h, a number, or a string_view. A type that can only be printed
// (operator<<) is recorded as its text.
//
// A char array or pointer is a text as it is when the statement runs: up to its end, which an array
// need not have. Only a literal of the statement itself is a label, see Spelling.h.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

#include "framework/Ringlog/RawValue.h"

namespace Ringlog {

// The numbers are those of the ring file.
enum class Kind : std::uint8_t {
  label = 0,  // a text of the statement itself, which no record repeats
  boolean = 1,
  unsignedNumber = 2,
  signedNumber = 3,
  real = 4,
  text = 5,
  pointer = 6,
  eth = 7,
  ip4 = 8,
  ip = 9,
  macVlan = 10
};

// A literal of the statement.
struct Label {
  std::string_view text;
};

// Longer texts are cut to this many bytes.
inline constexpr std::size_t longestText = 255;

// Brings a value into the form in which it is recorded: a Label, a fixed number of bytes, or a
// text.
template <bool isLabel, class T>
auto rawOf(const T& value) {
  if constexpr (isLabel) {
    return Label{{value, sizeof value - 1}};
  } else if constexpr (requires { traceValue(value); }) {
    return traceValue(value);
  } else if constexpr (std::is_same_v<T, long double>) {
    return static_cast<double>(value);
  } else if constexpr (std::is_arithmetic_v<T>) {
    return value;
  } else if constexpr (std::is_array_v<T>) {
    static_assert(std::is_same_v<std::remove_cv_t<std::remove_extent_t<T>>, char>,
                  "an array has no form in a trace, unless it is one of char");
    return std::string_view(value, std::find(value, value + sizeof value, char{}) - value);
  } else if constexpr (std::is_same_v<T, const char*> || std::is_same_v<T, char*>) {
    return value != nullptr ? std::string_view(value) : std::string_view("(null)");
  } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
    return std::string_view(value);
  } else if constexpr (std::is_pointer_v<T>) {
    return static_cast<const void*>(value);
  } else {
    std::ostringstream text;
    text << value;
    return std::move(text).str();
  }
}

template <class Raw>
constexpr Kind kindOf() {
  if constexpr (std::is_same_v<Raw, Label>)
    return Kind::label;
  else if constexpr (std::is_same_v<Raw, bool>)
    return Kind::boolean;
  else if constexpr (std::is_integral_v<Raw>)
    return std::is_signed_v<Raw> ? Kind::signedNumber : Kind::unsignedNumber;
  else if constexpr (std::is_floating_point_v<Raw>)
    return Kind::real;
  else if constexpr (std::is_pointer_v<Raw>)
    return Kind::pointer;
  else if constexpr (std::is_same_v<Raw, EthValue>)
    return Kind::eth;
  else if constexpr (std::is_same_v<Raw, Ip4Value>)
    return Kind::ip4;
  else if constexpr (std::is_same_v<Raw, IpValue>)
    return Kind::ip;
  else if constexpr (std::is_same_v<Raw, MacVlanValue>)
    return Kind::macVlan;
  else
    return Kind::text;
}

// The bytes that a value takes in a record: of a text its length, in two bytes, and its characters.
template <class Raw>
std::size_t encodedSize(const Raw& raw) {
  constexpr Kind kind = kindOf<Raw>();
  if constexpr (kind == Kind::label)
    return 0;
  else if constexpr (kind == Kind::text)
    return sizeof(std::uint16_t) + std::min(raw.size(), longestText);
  else
    return sizeof(Raw);
}

// Writes the value and returns the end of what it has written.
template <class Raw>
std::byte* encode(std::byte* to, const Raw& raw) {
  constexpr Kind kind = kindOf<Raw>();
  if constexpr (kind == Kind::label) {
    return to;
  } else if constexpr (kind == Kind::text) {
    const auto length = static_cast<std::uint16_t>(std::min(raw.size(), longestText));
    std::memcpy(to, &length, sizeof length);
    if (length > 0) std::memcpy(to + sizeof length, raw.data(), length);
    return to + sizeof length + length;
  } else {
    static_assert(std::is_trivially_copyable_v<Raw>);
    std::memcpy(to, &raw, sizeof raw);
    return to + sizeof raw;
  }
}

}  // namespace Ringlog
