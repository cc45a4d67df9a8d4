// A VXLAN network identifier.
#pragma once

#include <cstdint>

#include "framework/Moru/RangedNumber.h"

namespace Vxlan {

// 0 to 4294967294; 0 by default.
class VniExt : public Moru::RangedNumber<VniExt, std::uint32_t, 0, 4294967294, 0> {
 public:
  using RangedNumber::RangedNumber;
  static constexpr const char* rangeText =
      "VniExt::value < VniExt::min or > VniExt::max not allowed";
};

}  // namespace Vxlan
