// The status of the VXLAN hardware.
#pragma once

#include "framework/Moru/Attribute.h"
#include "model/Vxlan/BumStatus.h"

namespace Vxlan {

class VxlanHwStatusDir final : public Moru::EntityOf<VxlanHwStatusDir> {
 public:
  // The switch's own BUM status; null until the hardware has one.
  using BumStatusPtr = Moru::Attribute<Moru::Ptr<BumStatus const>, 1>;
  BumStatusPtr bumStatus{this};
  BumStatusPtr::Is bumStatusIs{bumStatus};
};

}  // namespace Vxlan
