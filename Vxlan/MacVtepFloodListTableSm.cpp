#include "Vxlan/MacVtepFloodListTableSm.h"

#include "Vxlan/FloodSets.h"
#include "Vxlan/Trace.h"
#include "Vxlan/VxlanControllerClientSm.h"
#include "Vxlan/ZepPerVniFdbStatusSm.h"

namespace Vxlan {

MacVtepFloodListTableSm::MacVtepFloodListTableSm(
    const Vorn::EthAddr& macAddr,
    const Moru::Ptr<VxlanController::MacVtepFloodListV2 const>& macVtepFloodListTable,
    const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde, ZepPerVniFdbStatusSm* zepPerVniFdbStatusSm)
    : macAddr_(macAddr), zepSde_(zepSde), zepPerVniFdbStatusSm_(zepPerVniFdbStatusSm) {
  macVtepFloodListTableIs(macVtepFloodListTable);
  handleInitialized();
}

MacVtepFloodListTableSm::~MacVtepFloodListTableSm() { moruDoZombieReactors(true); }

void MacVtepFloodListTableSm::constructorCheck(
    const Moru::Ptr<VxlanController::MacVtepFloodListV2 const>& macVtepFloodListTable,
    const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde,
    ZepPerVniFdbStatusSm* zepPerVniFdbStatusSm) const {
  Moru::parameterCheck("_macVtepFloodListTable", this->macVtepFloodListTable(),
                       macVtepFloodListTable);
  Moru::parameterCheck("_zepPerVniFdbStatusSm", zepPerVniFdbStatusSm_, zepPerVniFdbStatusSm);
  Moru::parameterCheck("_zepSde", zepSde_, zepSde);
}

void MacVtepFloodListTableSm::MoruMacVtepFloodListTable::onAttribute(Moru::AttributeId attribute,
                                                                     const void* key) {
  using FloodList = VxlanController::MacVtepFloodListV2;
  switch (attribute) {
    case Moru::idOf<&FloodList::vtepIpFloodList>:
      forward(&MoruMacVtepFloodListTable::moru_handleMacVtepFloodListTable_vtepIpFloodList,
              Moru::keyOf<&FloodList::vtepIpFloodList>(key));
  }
}

void MacVtepFloodListTableSm::MoruMacVtepFloodListTable::
    moru_handleMacVtepFloodListTable_vtepIpFloodList(Vorn::IpAddr ip) {
  machine()->handleVtepIpFloodList(ip);
}

// Run again whenever the whole list is to be brought in line: when it is new, when the multipath
// entry that stood in its place has gone, and when the hardware has come to replicate for the
// controller.
void MacVtepFloodListTableSm::handleInitialized() {
  MORU_TRACE(8, " init? ", initialized());
  if (!zepPerVniFdbStatusSm_->checkBumStatus()) return;
  if (isMultiPath()) {
    MORU_TRACE(8, " mac ", macAddr_, " found in macVtepMultiPathTable");
    initializedIs(true);
    return;
  }
  const auto list = Moru::held(macVtepFloodListTable());
  for (const auto& [intf, vlan] : zepPerVniFdbStatusSm_->vlans()) {
    if (!vlan) {
      MORU_TRACE(8, " no vlan-vni map found for vni: ", zepPerVniFdbStatusSm_->vni());
      continue;
    }
    MORU_TRACE(8, " vni: ", zepPerVniFdbStatusSm_->vni(), " vlan: ", vlan);
    const auto floodSet = floodSetOf(vlan);
    MORU_TRACE(8, "listType: sendToAll vtepAddr len ", list ? list->vtepIpFloodLists() : 0);
    if (!floodSet) continue;
    // During convergence VTEPs only come: what the controller has not listed yet may follow.
    if (!zepPerVniFdbStatusSm_->vxlanControllerClientSm()->convergenceInProgress())
      sweepDests(floodSet, [this](const L2Rib::Dest& dest) {
        return isDestListed(dest, [this](const Vorn::IpAddr& ip) { return isMember(ip); });
      });
    if (!list) continue;
    // The flag counts in the sweep above, and not here, on purpose: a VTEP whose flag is false is
    // installed with the list, and goes when the list says so in a change of its own.
    for (auto vtep = list->vtepIpFloodList().begin(); vtep; ++vtep)
      floodSet->destSetIs(destOf(vtep.key()), true);
  }
  initializedIs(true);
}

void MacVtepFloodListTableSm::handleVtepIpFloodList(Vorn::IpAddr ip) {
  MORU_TRACE(8, " init? ", initialized());
  if (!zepPerVniFdbStatusSm_->checkBumStatus()) return;
  if (isMultiPath()) {
    MORU_TRACE(8, " mac ", macAddr_, " found in macVtepMultiPathTable");
    return;
  }
  for (const auto& [intf, vlan] : zepPerVniFdbStatusSm_->vlans()) {
    if (!vlan) {
      MORU_TRACE(8, " no vlan-vni map found for vni: ", zepPerVniFdbStatusSm_->vni());
      continue;
    }
    MORU_TRACE(8, " vni: ", zepPerVniFdbStatusSm_->vni(), " vlan: ", vlan);
    const auto floodSet = floodSetOf(vlan);
    if (isMember(ip)) {
      MORU_TRACE(8, " adding ", ip, " to remoteVtepAddr");
      if (floodSet) floodSet->destSetIs(destOf(ip), true);
      continue;
    }
    // A controller that restarts may list the VTEP again. If not, the deferred deletion removes it.
    if (zepPerVniFdbStatusSm_->vxlanControllerClientSm()->convergenceInProgress()) continue;
    if (!floodSet || !floodSet->destSet().contains(destOf(ip))) continue;
    MORU_TRACE(8, " removing ", ip, " from flood set");
    floodSet->destSetDel(destOf(ip));
  }
}

// VTEP by VTEP, and without a sweep: what the list has lost it says in changes of its own.
void MacVtepFloodListTableSm::handleVtepIpFloodList() {
  MORU_TRACE(8, " init? ", initialized());
  if (!zepPerVniFdbStatusSm_->checkBumStatus()) return;
  if (isMultiPath()) {
    MORU_TRACE(8, " mac ", macAddr_, " found in macVtepMultiPathTable");
    return;
  }
  const auto list = Moru::held(macVtepFloodListTable());
  if (!list) return;
  for (auto vtep = list->vtepIpFloodList().begin(); vtep; ++vtep) handleVtepIpFloodList(vtep.key());
}

// At once, also during convergence: it is VTEPs that are kept for a restarting controller, not the
// lists that it takes back.
void MacVtepFloodListTableSm::cleanup() {
  MORU_TRACE(8, " init? ", initialized());
  if (!zepPerVniFdbStatusSm_->checkBumStatus()) return;
  if (isMultiPath()) {
    MORU_TRACE(8, " mac ", macAddr_, " found in macVtepMultiPathTable");
    initializedIs(false);
    return;
  }
  for (const auto& [intf, vlan] : zepPerVniFdbStatusSm_->vlans()) {
    if (!vlan) {
      MORU_TRACE(8, " no vlan-vni map found for vni: ", zepPerVniFdbStatusSm_->vni());
      continue;
    }
    MORU_TRACE(8, " vni: ", zepPerVniFdbStatusSm_->vni(), " vlan: ", vlan);
    const Bridging::VlanId vlanId(vlan.value());
    const auto vlanFloodSet = zepSde_ ? zepSde_->vlanFloodSet(vlanId) : nullptr;
    if (!vlanFloodSet) continue;
    MORU_TRACE(8, " deleting ", macAddr_, " from vlan ", vlan);
    deleteFloodSet(zepSde_, vlanFloodSet, macAddr_);
  }
  initializedIs(false);
}

bool MacVtepFloodListTableSm::isMultiPath() const {
  return zepPerVniFdbStatusSm_->multiPath(macAddr_) != nullptr;
}

bool MacVtepFloodListTableSm::isMember(const Vorn::IpAddr& ip) const {
  return macVtepFloodListTable() && macVtepFloodListTable()->vtepIpFloodList(ip);
}

Moru::Ptr<L2Rib::FloodSet> MacVtepFloodListTableSm::floodSetOf(
    const Bridging::VlanIdOrNone& vlan) const {
  return floodSetIs(zepSde_, Bridging::VlanId(vlan.value()), macAddr_,
                    L2Rib::FloodSetType::sendToAll);
}

}  // namespace Vxlan
