// The VLAN-VNI maps of the VTIs that have one, in the order in which they came.
#pragma once

#include "framework/Moru/Attribute.h"
#include "model/Vorn/IntfId.h"
#include "model/Vxlan/VlanVniMap.h"

namespace Vxlan {

class VlanVniMaps final : public Moru::EntityOf<VlanVniMaps> {
 public:
  using Maps = Moru::EntityAttribute<Vorn::IntfId, VlanVniMap, 1>;
  Maps vlanVniMap{this, "Vxlan::VlanVniMaps::vlanVniMap"};
  Maps::Is vlanVniMapIs{vlanVniMap};
  Maps::Del vlanVniMapDel{vlanVniMap};
};

}  // namespace Vxlan
