// A MAC address.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "framework/Moru/Hash.h"
#include "framework/Ringlog/RawValue.h"

namespace Vorn {

// Ordered as its bytes are. The default is 00:00:00:00:00:00.
class EthAddr {
 public:
  constexpr EthAddr() = default;

  // The lower 48 bits of `value`, the first byte of the address being the highest.
  static constexpr EthAddr fromValue(std::uint64_t value) {
    EthAddr address;
    address.high_ = static_cast<std::uint16_t>(value >> 32);
    address.middle_ = static_cast<std::uint16_t>(value >> 16);
    address.low_ = static_cast<std::uint16_t>(value);
    return address;
  }

  // Six bytes of one or two hexadecimal digits, with colons between them; anything else is nothing.
  static std::optional<EthAddr> parse(std::string_view text);

  constexpr std::uint64_t value() const {
    return std::uint64_t{high_} << 32 | std::uint64_t{middle_} << 16 | low_;
  }

  // "02:00:00:00:00:0a"
  std::string stringValue() const;

  constexpr std::size_t hash() const noexcept { return value(); }

  friend constexpr bool operator==(const EthAddr& left, const EthAddr& right) = default;
  friend constexpr auto operator<=>(const EthAddr& left, const EthAddr& right) {
    return left.value() <=> right.value();
  }
  friend std::ostream& operator<<(std::ostream& out, const EthAddr& address) {
    return out << address.stringValue();
  }
  friend constexpr Ringlog::EthValue traceValue(const EthAddr& address) {
    const auto byte = [value = address.value()](int shift) {
      return static_cast<std::uint8_t>(value >> shift);
    };
    return {{byte(40), byte(32), byte(24), byte(16), byte(8), byte(0)}};
  }

 private:
  // Words and not bytes: six bytes in size, three loads to compare.
  std::uint16_t high_ = 0;
  std::uint16_t middle_ = 0;
  std::uint16_t low_ = 0;
};

}  // namespace Vorn
