// The number of a VLAN, or none.
#pragma once

#include <cstdint>

#include "framework/Moru/RangedNumber.h"

namespace Bridging {

// 0 to 4094; 0, the default, means no VLAN.
class VlanIdOrNone : public Moru::RangedNumber<VlanIdOrNone, std::uint16_t, 0, 4094, 0> {
 public:
  using RangedNumber::RangedNumber;
  static constexpr const char* rangeText = "VlanIdOrNone::value > 4094 not allowed";

  constexpr bool operator!() const { return value() == 0; }
};

}  // namespace Bridging
