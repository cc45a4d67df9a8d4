// A host's MAC address and the VLAN that it lives in: the key of the host tables.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <ostream>

#include "framework/Moru/Hash.h"
#include "framework/Ringlog/RawValue.h"
#include "model/Bridging/VlanId.h"
#include "model/Vorn/EthAddr.h"

namespace Bridging {

// Ordered by MAC, then VLAN. The default pair is the smallest: the zero MAC and VLAN 1. Grouped by
// VLAN where a collection has groups.
struct MacVlanPair {
  using Group = VlanId;

  Vorn::EthAddr mac;
  VlanId vlan;

  // All 64 bits, in the order of comparison.
  constexpr std::uint64_t value() const { return mac.value() << 16 | vlan.value(); }
  constexpr std::size_t hash() const noexcept { return value(); }
  constexpr const Group& group() const { return vlan; }

  friend constexpr bool operator==(const MacVlanPair& left, const MacVlanPair& right) {
    return left.value() == right.value();
  }
  friend constexpr auto operator<=>(const MacVlanPair& left, const MacVlanPair& right) {
    return left.value() <=> right.value();
  }
  friend constexpr Ringlog::MacVlanValue traceValue(const MacVlanPair& pair) {
    return {traceValue(pair.mac), pair.vlan.value()};
  }
};

// "02:00:00:00:00:01 vlan 10"
std::ostream& operator<<(std::ostream& out, const MacVlanPair& pair);

}  // namespace Bridging
