#include "Vxlan/VtiVlanVniMapSm.h"

#include "Vxlan/Trace.h"
#include "Vxlan/VxlanControllerClientSm.h"

namespace Vxlan {

VtiVlanVniMapSm::VtiVlanVniMapSm(const Vorn::IntfId& intf,
                                 const Moru::Ptr<VlanVniMap const>& vlanVniMap,
                                 VxlanControllerClientSm* vxlanControllerClientSm)
    : intf_(intf), vxlanControllerClientSm_(vxlanControllerClientSm) {
  vlanVniMapIs(vlanVniMap);
  handleInitialized();
}

VtiVlanVniMapSm::~VtiVlanVniMapSm() { moruDoZombieReactors(true); }

void VtiVlanVniMapSm::constructorCheck(const Moru::Ptr<VlanVniMap const>& vlanVniMap,
                                       VxlanControllerClientSm* vxlanControllerClientSm) const {
  Moru::parameterCheck("_vxlanControllerClientSm", vxlanControllerClientSm_,
                       vxlanControllerClientSm);
  Moru::parameterCheck("_vlanVniMap", this->vlanVniMap(), vlanVniMap);
}

void VtiVlanVniMapSm::MoruVlanVniMap::onAttribute(Moru::AttributeId attribute, const void* key) {
  switch (attribute) {
    case Moru::idOf<&VlanVniMap::vlanToVsp>:
      forward(&MoruVlanVniMap::moru_handleVlanVniMap_vlanToVsp,
              Moru::keyOf<&VlanVniMap::vlanToVsp>(key));
  }
}

void VtiVlanVniMapSm::MoruVlanVniMap::moru_handleVlanVniMap_vlanToVsp(Bridging::VlanId vlan) {
  machine()->handleVlanVniMapUpdate(vlan);
}

void VtiVlanVniMapSm::handleInitialized() {
  MORU_TRACE(8, " Init ? ", initialized());
  // The root brings all maps in line at the end of its own initialization.
  if (!vxlanControllerClientSm_->initialized()) return;
  initializedIs(true);
  const auto map = Moru::held(vlanVniMap());
  if (!map) return;
  for (auto vlan = map->vlanToVsp().begin(); vlan; ++vlan) handleVlanVniMapUpdate(vlan.key());
}

void VtiVlanVniMapSm::handleVlanVniMapUpdate(Bridging::VlanId vlan) {
  if (!initialized()) return;
  MORU_TRACE(8, "vlan: ", vlan);
  // In either client mode, and never deferred: a VLAN without a VNI has no place for remote hosts.
  if (!vspOf(vlan)) {
    vxlanControllerClientSm_->deleteRemoteMacFromController(vlan, false);
    vxlanControllerClientSm_->deleteBumVtepListTable(vlan);
  }
  zepProcessVniVlanMapUpdateComplete(vlan, intf_);
}

void VtiVlanVniMapSm::zepProcessVniVlanMapUpdateComplete(Bridging::VlanId vlan, Vorn::IntfId) {
  MORU_TRACE(8, "vlan: ", vlan);
  const bool controllerMode = vxlanControllerClientSm_->vxlanControllerClientMode();
  if (!controllerMode) {
    MORU_TRACE(8, "Returning: controllerMode = ", controllerMode);
    return;
  }
  if (const VniSourcePair vsp = vspOf(vlan); !!vsp) {
    const VniExt vni = vsp.vni();  // which a raw table may hold out of range: then this throws
    MORU_TRACE(8, "Create zepPerVniFdbStatusSm for ", vni);
    vxlanControllerClientSm_->vxlanControllerScanVniStatus(vni);
    return;
  }
  MORU_TRACE(8, "vlan-vni map has been deleted ");
  // Only this VTI's map is asked, on purpose: a VNI that another VTI maps loses its machine, too,
  // and gets it back at that VTI's next update.
  for (const auto& [vni, machine] : vxlanControllerClientSm_->zepPerVniFdbStatusSm()) {
    if (maps(vni)) continue;
    MORU_TRACE(8, "Deleting zepPerVniFdbStatusSm for vni ", vni);
    vxlanControllerClientSm_->zepPerVniFdbStatusSmDel(vni);
  }
}

VniSourcePair VtiVlanVniMapSm::vspOf(Bridging::VlanId vlan) const {
  return vlanVniMap() ? vlanVniMap()->vlanToVsp(vlan) : VniSourcePair();
}

bool VtiVlanVniMapSm::maps(const VniExt& vni) const {
  return vlanVniMap() && !!vlanVniMap()->vniToVlan(vni);
}

}  // namespace Vxlan
