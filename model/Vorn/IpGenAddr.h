// An IPv4 or an IPv6 address.
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
#include "model/Vorn/Ip6Addr.h"
#include "model/Vorn/IpAddr.h"

namespace Vorn {

// IPv4 addresses come before IPv6 ones. The default is the IPv4 address 0.0.0.0.
class IpGenAddr {
 public:
  constexpr IpGenAddr() = default;
  constexpr IpGenAddr(IpAddr address) : words_{{address.value(), 0, 0, 0}} {}
  constexpr IpGenAddr(const Ip6Addr& address) : isIp6_(true), words_(address.words()) {}

  static std::optional<IpGenAddr> parse(std::string_view text);

  constexpr bool isIp6() const { return isIp6_; }

  // The IPv4 address; 0.0.0.0 for an IPv6 one.
  constexpr IpAddr ip4() const { return isIp6_ ? IpAddr() : IpAddr(words_[0]); }

  // The IPv6 address; :: for an IPv4 one.
  constexpr Ip6Addr ip6() const { return isIp6_ ? Ip6Addr(words_) : Ip6Addr(); }

  std::string stringValue() const;

  // Of an IPv4 address its own; that of an IPv6 address also says that it is one.
  constexpr std::uint32_t hash() const noexcept {
    constexpr std::uint32_t family6 = 0x9e3779b9;  // far from what small addresses differ in
    return isIp6_ ? ip6().hash() ^ family6 : ip4().hash();
  }

  friend constexpr bool operator==(const IpGenAddr&, const IpGenAddr&) = default;
  friend constexpr auto operator<=>(const IpGenAddr&, const IpGenAddr&) = default;
  friend std::ostream& operator<<(std::ostream& out, const IpGenAddr& address) {
    return out << address.stringValue();
  }
  friend constexpr Ringlog::IpValue traceValue(const IpGenAddr& address) {
    Ringlog::IpValue value{address.isIp6_, {}};
    for (std::size_t i = 0; i < value.bytes.size(); ++i)
      value.bytes[i] = static_cast<std::uint8_t>(address.words_[i / 4] >> (24 - i % 4 * 8));
    return value;
  }

 private:
  bool isIp6_ = false;
  Ip6Addr::Words words_{};  // an IPv4 address is the first, the others being 0
};

}  // namespace Vorn
