// The VXLAN tunnel interfaces of the switch, in the order in which they came.
#pragma once

#include "framework/Moru/Attribute.h"
#include "model/Vorn/IntfId.h"
#include "model/Vxlan/VtiStatus.h"

namespace Vxlan {

class VtiStatusDir final : public Moru::EntityOf<VtiStatusDir> {
 public:
  using VtiStatuses = Moru::EntityAttribute<Vorn::IntfId, VtiStatus, 1>;
  VtiStatuses vtiStatus{this, "Vxlan::VtiStatusDir::vtiStatus"};
  VtiStatuses::Is vtiStatusIs{vtiStatus};
  VtiStatuses::Del vtiStatusDel{vtiStatus};
};

}  // namespace Vxlan
