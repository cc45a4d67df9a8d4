// An IPv4 address.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "framework/Moru/Hash.h"
#include "framework/Ringlog/RawValue.h"

namespace Vorn {

// Ordered by value. The default is 0.0.0.0.
class IpAddr {
 public:
  constexpr IpAddr() = default;

  // The first byte of the address is the highest of `value`.
  explicit constexpr IpAddr(std::uint32_t value) : value_(value) {}

  // Four decimal numbers from 0 to 255 with dots between them; anything else is nothing.
  static std::optional<IpAddr> parse(std::string_view text);

  constexpr std::uint32_t value() const { return value_; }

  // "10.0.0.2"
  std::string stringValue() const;

  // The address itself.
  constexpr std::uint32_t hash() const noexcept { return value_; }

  friend constexpr bool operator==(const IpAddr&, const IpAddr&) = default;
  friend constexpr auto operator<=>(const IpAddr&, const IpAddr&) = default;
  friend std::ostream& operator<<(std::ostream& out, const IpAddr& address) {
    return out << address.stringValue();
  }
  friend constexpr Ringlog::Ip4Value traceValue(const IpAddr& address) { return {address.value_}; }

 private:
  std::uint32_t value_ = 0;
};

}  // namespace Vorn
