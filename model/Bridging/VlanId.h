// The number of a VLAN.
#pragma once

#include <cstdint>

#include "framework/Moru/RangedNumber.h"

namespace Bridging {

// 1 to 4094; 1 by default.
class VlanId : public Moru::RangedNumber<VlanId, std::uint16_t, 1, 4094, 1> {
 public:
  using RangedNumber::RangedNumber;
  static constexpr const char* rangeText = "VlanId::value < 1 or > 4094 not allowed";
};

}  // namespace Bridging
