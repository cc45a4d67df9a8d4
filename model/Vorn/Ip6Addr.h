// An IPv6 address.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "framework/Moru/Hash.h"

namespace Vorn {

// Ordered as its bytes are. The default is ::.
class Ip6Addr {
 public:
  using Words = std::array<std::uint32_t, 4>;

  constexpr Ip6Addr() = default;

  // The first byte of the address is the highest of the first word.
  explicit constexpr Ip6Addr(const Words& words) : words_(words) {}

  // Any textual form of an IPv6 address, without a zone; anything else is nothing.
  static std::optional<Ip6Addr> parse(std::string_view text);

  constexpr const Words& words() const { return words_; }

  // The shortest form, in lower case: "2001:db8::1".
  std::string stringValue() const;

  // The exclusive or of the four words.
  constexpr std::uint32_t hash() const noexcept {
    return words_[0] ^ words_[1] ^ words_[2] ^ words_[3];
  }

  friend constexpr bool operator==(const Ip6Addr&, const Ip6Addr&) = default;
  friend constexpr auto operator<=>(const Ip6Addr&, const Ip6Addr&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Ip6Addr& address) {
    return out << address.stringValue();
  }

 private:
  Words words_{};
};

}  // namespace Vorn
