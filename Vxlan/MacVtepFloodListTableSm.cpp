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
      machine()->handleVtepIpFloodList(*Moru::keyOf<&FloodList::vtepIpFloodList>(key));
      break;
    default:
      break;
  }
}

void MacVtepFloodListTableSm::handleInitialized() {
  MORU_TRACE(8, " init? ", initialized());
  if (!zepPerVniFdbStatusSm_->checkBumStatus()) return;
  if (!isMultiPath())
    zepPerVniFdbStatusSm_->forEachVlan([this](const Bridging::VlanId& vlan) { installList(vlan); });
  initializedIs(true);
}

void MacVtepFloodListTableSm::installList(const Bridging::VlanId& vlan) const {
  const Moru::Ptr<VxlanController::MacVtepFloodListV2 const> list(macVtepFloodListTable().get());
  const auto floodSet = floodSetOf(vlan);
  MORU_TRACE(8, "listType: sendToAll vtepAddr len ", list ? list->vtepIpFloodLists() : 0);
  if (!zepPerVniFdbStatusSm_->vxlanControllerClientSm()->convergenceInProgress())
    sweepDests(floodSet, [this](const L2Rib::Dest& dest) {
      return isDestListed(dest, [this](const Vorn::IpAddr& ip) { return isMember(ip); });
    });
  if (!list) return;
  // The flag counts in the sweep above, and not here, on purpose: a VTEP whose flag is false is
  // installed with the list, and goes when the list says so in a change of its own.
  for (auto vtep = list->vtepIpFloodList().begin(); vtep; ++vtep)
    floodSet->destSetIs(destOf(vtep.key()), true);
}

void MacVtepFloodListTableSm::handleVtepIpFloodList(Vorn::IpAddr ip) {
  MORU_TRACE(8, " init? ", initialized());
  if (!zepPerVniFdbStatusSm_->checkBumStatus() || isMultiPath()) return;
  zepPerVniFdbStatusSm_->forEachVlan([&](const Bridging::VlanId& vlan) { installVtep(vlan, ip); });
}

void MacVtepFloodListTableSm::installVtep(const Bridging::VlanId& vlan,
                                          const Vorn::IpAddr& ip) const {
  const auto floodSet = floodSetOf(vlan);
  if (isMember(ip)) {
    MORU_TRACE(8, " adding ", ip, " to remoteVtepAddr");
    floodSet->destSetIs(destOf(ip), true);
    return;
  }
  // A controller that restarts may list the VTEP again. If not, the deferred deletion removes it.
  if (zepPerVniFdbStatusSm_->vxlanControllerClientSm()->convergenceInProgress()) return;
  if (!floodSet->destSet().contains(destOf(ip))) return;
  MORU_TRACE(8, " removing ", ip, " from flood set");
  floodSet->destSetDel(destOf(ip));
}

void MacVtepFloodListTableSm::handleVtepIpFloodList() {
  MORU_TRACE(8, " init? ", initialized());
  if (!zepPerVniFdbStatusSm_->checkBumStatus() || isMultiPath()) return;
  const Moru::Ptr<VxlanController::MacVtepFloodListV2 const> list(macVtepFloodListTable().get());
  if (!list) return;
  for (auto vtep = list->vtepIpFloodList().begin(); vtep; ++vtep) handleVtepIpFloodList(vtep.key());
}

// At once, also during convergence: it is VTEPs that are kept for a restarting controller, not the
// lists that it takes back.
void MacVtepFloodListTableSm::cleanup() {
  MORU_TRACE(8, " init? ", initialized());
  if (!zepPerVniFdbStatusSm_->checkBumStatus()) return;
  if (!isMultiPath())
    zepPerVniFdbStatusSm_->forEachVlan(
        [this](const Bridging::VlanId& vlan) { deleteFloodSetOf(vlan); });
  initializedIs(false);
}

void MacVtepFloodListTableSm::deleteFloodSetOf(const Bridging::VlanId& vlan) const {
  const auto vlanFloodSet = zepSde_->vlanFloodSet(vlan);
  if (!vlanFloodSet) return;
  MORU_TRACE(8, " deleting ", macAddr_, " from vlan ", vlan);
  deleteFloodSet(zepSde_, vlanFloodSet, macAddr_);
}

// The MAC's flood set belongs to its multipath entry while there is one.
bool MacVtepFloodListTableSm::isMultiPath() const {
  if (!zepPerVniFdbStatusSm_->multiPath(macAddr_)) return false;
  MORU_TRACE(8, " mac ", macAddr_, " found in macVtepMultiPathTable");
  return true;
}

bool MacVtepFloodListTableSm::isMember(const Vorn::IpAddr& ip) const {
  return macVtepFloodListTable() && macVtepFloodListTable()->vtepIpFloodList(ip);
}

Moru::Ptr<L2Rib::FloodSet> MacVtepFloodListTableSm::floodSetOf(const Bridging::VlanId& vlan) const {
  auto floodSet = zepSde_->vlanFloodSetIs(vlan)->floodSetIs(macAddr_);
  floodSet->floodSetTypeIs(L2Rib::FloodSetType::sendToAll);
  return floodSet;
}

}  // namespace Vxlan
