// Follows the VLAN-VNI map of one VTI.
//
//   VlanVniMap (vlanToVsp) ──> VtiVlanVniMapSm ──> the root: stale hosts and flood sets go,
//                                                  per-VNI machines come and go
//
// Event source: a change of a VLAN's mapping. A VLAN that has lost its VNI loses what the
// controller gave it; a VLAN that has one may want a per-VNI machine.
//
// Not initialized until the root is, and then for good: only an initialized machine acts.
#pragma once

#include "framework/Moru/Children.h"
#include "framework/Moru/Input.h"
#include "model/Vxlan/VlanVniMap.h"

namespace Vxlan {

class VxlanControllerClientSm;

class VtiVlanVniMapSm final : public Moru::Machine {
 public:
  // The root owns the machine and outlives it. `vlanVniMap` may be null.
  VtiVlanVniMapSm(const Vorn::IntfId& intf, const Moru::Ptr<VlanVniMap const>& vlanVniMap,
                  VxlanControllerClientSm* vxlanControllerClientSm);
  ~VtiVlanVniMapSm() override;

  const Vorn::IntfId& intf() const { return intf_; }
  const Vorn::IntfId& fwkKey() const { return intf_; }
  VxlanControllerClientSm* vxlanControllerClientSm() const { return vxlanControllerClientSm_; }

  // Throws NameInUseException unless the machine was made from these.
  void constructorCheck(const Moru::Ptr<VlanVniMap const>& vlanVniMap,
                        VxlanControllerClientSm* vxlanControllerClientSm) const;

  class MoruVlanVniMap : public Moru::Reactor<VlanVniMap::NotifieeConst, VtiVlanVniMapSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleVlanVniMap_vlanToVsp(Bridging::VlanId vlan);
  };

  Moru::Input<MoruVlanVniMap> vlanVniMap{this};
  Moru::Input<MoruVlanVniMap>::Is vlanVniMapIs{vlanVniMap};
  Moru::Input<MoruVlanVniMap>::Del vlanVniMapDel{vlanVniMap};

  void handleInitialized();
  void handleVlanVniMapUpdate(Bridging::VlanId vlan);

  // Brings the per-VNI machines in line with the VLAN's mapping.
  void zepProcessVniVlanMapUpdateComplete(Bridging::VlanId vlan, Vorn::IntfId intf);

 private:
  VniSourcePair vspOf(Bridging::VlanId vlan) const;
  bool maps(const VniExt& vni) const;

  const Vorn::IntfId intf_;
  VxlanControllerClientSm* const vxlanControllerClientSm_;
};

}  // namespace Vxlan
