// Which VLAN of one VTI maps to which VNI. The two directions are written apart, and may disagree
// for as long as their writer is between the two.
#pragma once

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "model/Bridging/VlanId.h"
#include "model/Bridging/VlanIdOrNone.h"
#include "model/Vorn/IntfId.h"
#include "model/Vxlan/VniExt.h"
#include "model/Vxlan/VniSourcePair.h"

namespace Vxlan {

class VlanVniMap final : public Moru::EntityOf<VlanVniMap> {
 public:
  explicit VlanVniMap(const Vorn::IntfId& intfId) : intfId_(intfId) {}

  const Vorn::IntfId& intfId() const { return intfId_; }
  const Vorn::IntfId& fwkKey() const { return intfId_; }

  // The VNI of a VLAN; an empty pair where it has none.
  using VlanToVsp = Moru::KeyedAttribute<Moru::HashMap2018, Bridging::VlanId, VniSourcePair, 1>;
  VlanToVsp vlanToVsp{this};
  VlanToVsp::Is vlanToVspIs{vlanToVsp};
  VlanToVsp::Del vlanToVspDel{vlanToVsp};

  // The VLAN of a VNI; none where this VTI does not map it.
  using VniToVlan = Moru::KeyedAttribute<Moru::HashMap2018, VniExt, Bridging::VlanIdOrNone, 2>;
  VniToVlan vniToVlan{this};
  VniToVlan::Is vniToVlanIs{vniToVlan};
  VniToVlan::Del vniToVlanDel{vniToVlan};

 private:
  const Vorn::IntfId intfId_;
};

}  // namespace Vxlan
