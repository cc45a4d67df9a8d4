#include "Vxlan/ZepPerVniFdbStatusSm.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include "Vxlan/Clocks.h"
#include "Vxlan/FloodSets.h"
#include "Vxlan/Trace.h"
#include "Vxlan/VxlanControllerClientSm.h"
#include "Vxlan/Walk.h"
#include "framework/Moru/Assert.h"
#include "model/Vxlan/HostWalk.h"

namespace Vxlan {

namespace {

constexpr std::uint32_t receivedEntrySource = 10;  // the controller feed

ReceivedEntry entryOf(const VxlanController::MacVtepV2& macVtep, const Vorn::IntfId& intf,
                      const Bridging::MacVlanPair& key) {
  ReceivedEntry entry;
  entry.key = key;
  entry.vtiIntfId = intf;
  entry.source = receivedEntrySource;
  entry.vtepAddr = macVtep.vtepIp;
  entry.moveCount = macVtep.moveCount;
  entry.time = now();
  entry.hostKind = static_cast<std::uint8_t>(macVtep.hostKind);
  return entry;
}

}  // namespace

ZepPerVniFdbStatusSm::ZepPerVniFdbStatusSm(
    const VniExt& vni, const Moru::Ptr<VxlanController::VniFdbStatusV2 const>& zepVniFdbStatusV2,
    const Moru::Ptr<VtiStatusDir const>& vtiStatusDir,
    const Moru::Ptr<VxlanHwStatusDir const>& vxlanHwStatusDir,
    const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde,
    VxlanControllerClientSm* vxlanControllerClientSm)
    : vni_(vni), zepSde_(zepSde), vxlanControllerClientSm_(vxlanControllerClientSm) {
  // The root is on the way to take this machine in: what it reads of the root is there already.
  zepVniFdbStatusV2Is(zepVniFdbStatusV2);
  vtiStatusDirIs(vtiStatusDir);
  vxlanHwStatusDirIs(vxlanHwStatusDir);
  for (const auto& [intf, status] : vtiStatusesOf(vtiStatusDir)) vtiStatusIs(status);
  handleInitialized();
}

ZepPerVniFdbStatusSm::~ZepPerVniFdbStatusSm() {
  moruDoZombieReactors(true);
  // Without their cleanup(): the flood sets of a VNI that goes are the root's to remove.
  macVtepFloodListTableSmDelAll();
}

void ZepPerVniFdbStatusSm::constructorCheck(
    const Moru::Ptr<VxlanController::VniFdbStatusV2 const>& zepVniFdbStatusV2,
    const Moru::Ptr<VtiStatusDir const>& vtiStatusDir,
    const Moru::Ptr<VxlanHwStatusDir const>& vxlanHwStatusDir,
    const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde,
    VxlanControllerClientSm* vxlanControllerClientSm) const {
  Moru::parameterCheck("_zepVniFdbStatusV2", this->zepVniFdbStatusV2(), zepVniFdbStatusV2);
  Moru::parameterCheck("_vtiStatusDir", this->vtiStatusDir(), vtiStatusDir);
  Moru::parameterCheck("_vxlanHwStatusDir", this->vxlanHwStatusDir(), vxlanHwStatusDir);
  Moru::parameterCheck("_zepSde", zepSde_, zepSde);
  Moru::parameterCheck("_vxlanControllerClientSm", vxlanControllerClientSm_,
                       vxlanControllerClientSm);
}

void ZepPerVniFdbStatusSm::MoruZepVniFdbStatusV2::onAttribute(Moru::AttributeId attribute,
                                                              const void* key) {
  using Status = VxlanController::VniFdbStatusV2;
  switch (attribute) {
    case Moru::idOf<&Status::macVtepTable>:
      return forward(&MoruZepVniFdbStatusV2::moru_handleZepVniFdbStatusV2_macVtepTable,
                     Moru::keyOf<&Status::macVtepTable>(key));
    case Moru::idOf<&Status::macVtepMultiPathTable>:
      return forward(&MoruZepVniFdbStatusV2::moru_handleZepVniFdbStatusV2_macVtepMultiPathTable,
                     Moru::keyOf<&Status::macVtepMultiPathTable>(key));
    case Moru::idOf<&Status::macVtepFloodListTable>:
      return forward(&MoruZepVniFdbStatusV2::moru_handleZepVniFdbStatusV2_macVtepFloodListTable,
                     Moru::keyOf<&Status::macVtepFloodListTable>(key));
  }
}

void ZepPerVniFdbStatusSm::MoruZepVniFdbStatusV2::moru_handleZepVniFdbStatusV2_macVtepTable(
    Vorn::EthAddr mac) {
  machine()->handleZepHostTable(mac);
}

void ZepPerVniFdbStatusSm::MoruZepVniFdbStatusV2::
    moru_handleZepVniFdbStatusV2_macVtepMultiPathTable(Vorn::EthAddr mac) {
  machine()->handleMacVtepMultiPathTable(mac);
}

void ZepPerVniFdbStatusSm::MoruZepVniFdbStatusV2::
    moru_handleZepVniFdbStatusV2_macVtepFloodListTable(Vorn::EthAddr mac) {
  machine()->handleMacVtepFloodListTable(mac);
}

void ZepPerVniFdbStatusSm::MoruVtiStatusDir::onAttribute(Moru::AttributeId attribute,
                                                         const void* key) {
  switch (attribute) {
    case Moru::idOf<&VtiStatusDir::vtiStatus>:
      forward(&MoruVtiStatusDir::moru_handleVtiStatusDir_vtiStatus,
              Moru::keyOf<&VtiStatusDir::vtiStatus>(key));
  }
}

void ZepPerVniFdbStatusSm::MoruVtiStatusDir::moru_handleVtiStatusDir_vtiStatus(Vorn::IntfId intf) {
  machine()->vtiStatus.follow(notifier()->vtiStatus(), intf);
}

void ZepPerVniFdbStatusSm::MoruVtiStatus::onAttribute(Moru::AttributeId attribute, const void*) {
  switch (attribute) {
    case Moru::idOf<&VtiStatus::vArpVtepAddr>:
      forward(&MoruVtiStatus::moru_handleVtiStatus_vArpVtepAddr);
  }
}

void ZepPerVniFdbStatusSm::MoruVtiStatus::moru_handleVtiStatus_vArpVtepAddr() {
  machine()->handleVarpVtepAddr();
}

void ZepPerVniFdbStatusSm::handleInitialized() {
  MORU_TRACE(8, " init? ", initialized());
  initializedIs(true);
  handleZepHostTable();
  // Multipath entries first: they take precedence, and the flood lists look for them.
  handleMacVtepMultiPathTable();
  handleMacVtepFloodListTable();
}

// --- Hosts ---

void ZepPerVniFdbStatusSm::handleZepHostTable() {
  const bool datapathLearningMode = vxlanControllerClientSm_->datapathLearningMode();
  MORU_TRACE(8, " datapathLearningMode ", datapathLearningMode);
  // What the data path learns itself is not to be held from the controller, too.
  if (!initialized() || datapathLearningMode) return;
  const auto status = Moru::held(zepVniFdbStatusV2());
  if (!status) return;
  for (auto mac = status->macVtepTable().begin(); mac; ++mac) handleZepHostTable(mac.key());
}

void ZepPerVniFdbStatusSm::handleZepHostTable(Vorn::EthAddr mac) {
  using VxlanController::MacVtepV2;
  const bool datapathLearningMode = vxlanControllerClientSm_->datapathLearningMode();
  MORU_TRACE(8, "macAddr: ", mac, " datapathLearningMode ", datapathLearningMode);
  if (!initialized() || datapathLearningMode) return;
  const auto table = Moru::held(vxlanControllerClientSm_->hostTable());
  if (!table) return;
  const MacVtepV2 macVtep =
      zepVniFdbStatusV2() ? zepVniFdbStatusV2()->macVtepTable(mac) : MacVtepV2();
  const bool withdrawn = macVtep == MacVtepV2();  // the value that an absent MAC has
  for (const auto& [intf, vlan] : vlans()) {
    if (!vlan) {
      // In spite of its words the text does not end the walk: each VTI is served on its own.
      MORU_TRACE(8, "Returning as no valid vlan-vni map found");
      continue;
    }
    const Bridging::MacVlanPair key{mac, Bridging::VlanId(vlan.value())};
    // Read below, and once more by the mirror: fetched while the address is looked at.
    prefetchHost(*table, vxlanControllerClientSm_->l2RibZepInput().get(), key);
    MORU_TRACE(8, "vniId: ", vni_, "vlanId: ", vlan);
    if (!withdrawn && vxlanControllerClientSm_->isVtepIpMine(vni_, macVtep.vtepIp, intf)) {
      MORU_TRACE(8, "Ignoring since it's a local entry, received vtepIp: ", macVtep.vtepIp);
      if (!table->receivedEntry().contains(key)) continue;
      // At once, also during convergence: the switch itself knows better.
      MORU_TRACE(8, " delete stale macVtepPair ", key);
      vxlanControllerClientSm_->deleteReceivedTableEntry(key);
      continue;
    }
    if (withdrawn) {
      MORU_TRACE(8, "Evaluating delete of remote host entry for mac: ", mac, " vlan: ", vlan);
      withdrawHost(*table, key);
      continue;
    }
    MORU_TRACE(8, "Adding remote host entry for mac: ", mac, " vlan: ", vlan,
               " vtepIp: ", macVtep.vtepIp, " moveCount: ", macVtep.moveCount);
    if (table->isMarked(key)) MORU_TRACE(8, "Re-add, entry was marked for delete");
    // Written every time, though nothing but the time may differ: a re-announcement takes the mark
    // away.
    if (table->announce(entryOf(macVtep, intf, key)))
      MORU_TRACE(8, " new marked for deletion count ", table->markedForDelCount());
  }
}

// A host that the controller has taken back during a convergence may be on its way again: it is
// marked only. That it is not marked yet is asserted, for the controller takes back what it has
// announced, and an announcement takes the mark away.
void ZepPerVniFdbStatusSm::withdrawHost(const ReceivedHostTable& table,
                                        const Bridging::MacVlanPair& key) {
  Moru::assertThat(!table.isMarked(key),
                   "!vxlanControllerClientSm()->hostTable()->receivedEntry( key ).markedForDel()",
                   [&] {
                     std::ostringstream values;
                     values << "vni " << vni_ << " host " << key;
                     return values.str();
                   });
  if (vxlanControllerClientSm_->convergenceInProgress())
    vxlanControllerClientSm_->deferDeleteReceivedTableEntry(key);
  else
    vxlanControllerClientSm_->deleteReceivedTableEntry(key);
}

// Every host is looked at again: those behind the new address have become local, those behind the
// old one remote.
void ZepPerVniFdbStatusSm::handleVarpVtepAddr() {
  MORU_TRACE(8, "vni: ", vni_);
  if (initialized()) handleZepHostTable();
}

// --- Multipath entries and flood lists ---

void ZepPerVniFdbStatusSm::handleMacVtepMultiPathTable() {
  MORU_TRACE(8, " init? ", initialized());
  if (!checkBumStatus()) return;
  const auto status = Moru::held(zepVniFdbStatusV2());
  for (auto mac = status->macVtepMultiPathTable().begin(); mac; ++mac)
    handleMacVtepMultiPathTable(mac.key());
}

void ZepPerVniFdbStatusSm::handleMacVtepMultiPathTable(Vorn::EthAddr mac) {
  MORU_TRACE(8, " init? ", initialized());
  if (!checkBumStatus()) return;
  // A copy, in ascending order: who watches the flood sets may reach the controller's entry. The
  // flags of the list say nothing, neither in the sweep nor to what is added.
  std::vector<Vorn::IpAddr> vteps;
  if (const auto* const entry = multiPath(mac)) {
    vteps.reserve(entry->vtepIpLists());
    for (const auto& [ip, flag] : entry->vtepIpList) vteps.push_back(ip);
  }
  for (const auto& [intf, vlan] : vlans()) {
    if (!vlan) {
      MORU_TRACE(8, " no vlan-vni map found for vni: ", vni_);
      continue;
    }
    MORU_TRACE(8, " vni: ", vni_, " vlan: ", vlan);
    const Bridging::VlanId vlanId(vlan.value());
    if (vteps.empty()) {
      // At once, also during convergence: the flood list that the entry overrode takes its place.
      MORU_TRACE(8, " deleting ", mac, " from vlanFloodSet");
      if (zepSde_) deleteFloodSet(zepSde_, zepSde_->vlanFloodSetIs(vlanId), mac);
      if (floodList(mac) == nullptr) continue;
      MORU_TRACE(8, " mac ", mac, " found in macVtepFloodListTable");
      // It has no machine yet while this one is being made.
      if (const auto machine = macVtepFloodListTableSm(mac)) machine->handleInitialized();
      continue;
    }
    // The type first, so that whoever watches never sees VTEPs of one kind in a set of the other.
    const auto floodSet = floodSetIs(zepSde_, vlanId, mac, L2Rib::FloodSetType::sendToAny);
    MORU_TRACE(8, "(", mac, ") listType: sendToAny vtepAddr len ", vteps.size());
    if (!floodSet) continue;
    // During convergence VTEPs only come. Those that do not come back, the deferred deletion
    // removes.
    if (!vxlanControllerClientSm_->convergenceInProgress())
      sweepDests(floodSet, [&](const L2Rib::Dest& dest) {
        return isDestListed(dest, [&](const Vorn::IpAddr& ip) {
          return std::binary_search(vteps.begin(), vteps.end(), ip);
        });
      });
    for (const Vorn::IpAddr& ip : vteps) floodSet->destSetIs(destOf(ip), true);
  }
}

// The machines stand whatever the BUM mode is, and see to that themselves: they are what brings the
// lists back when the mode returns.
void ZepPerVniFdbStatusSm::handleMacVtepFloodListTable() {
  MORU_TRACE(8, " init? ", initialized());
  const auto status = Moru::held(zepVniFdbStatusV2());
  if (!status) return;
  for (auto mac = status->macVtepFloodListTable().begin(); mac; ++mac)
    handleMacVtepFloodListTable(mac.key());
}

// Another list entity under the same MAC is refused by the machine that follows the first.
void ZepPerVniFdbStatusSm::handleMacVtepFloodListTable(Vorn::EthAddr mac) {
  MORU_TRACE(8, " mac ", mac);
  if (const auto list = Moru::Ptr<VxlanController::MacVtepFloodListV2 const>(floodList(mac))) {
    macVtepFloodListTableSmIs(mac, list, zepSde_, this);
  } else if (const auto machine = macVtepFloodListTableSm(mac)) {
    machine->cleanup();
    macVtepFloodListTableSmDel(mac);
  }
}

VlansOfVni ZepPerVniFdbStatusSm::vlans() const {
  return vlansOfVni(vxlanControllerClientSm_->vlanVniMaps(), vni_);
}

// By pointer, and not by value as lookups give it: a list is looked at for every destination.
const VxlanController::MacVtepMultiPathV2* ZepPerVniFdbStatusSm::multiPath(
    const Vorn::EthAddr& mac) const {
  if (!zepVniFdbStatusV2()) return nullptr;
  const auto* const entry = zepVniFdbStatusV2()->macVtepMultiPathTable().find(mac);
  return entry != nullptr && !!*entry ? entry : nullptr;
}

const VxlanController::MacVtepFloodListV2* ZepPerVniFdbStatusSm::floodList(
    const Vorn::EthAddr& mac) const {
  if (!zepVniFdbStatusV2()) return nullptr;
  const auto* const list = zepVniFdbStatusV2()->macVtepFloodListTable().find(mac);
  return list != nullptr ? list->get() : nullptr;
}

bool ZepPerVniFdbStatusSm::isDestAskedFor(const Vorn::EthAddr& mac, const L2Rib::Dest& dest) const {
  return isDestListed(dest, [&](const Vorn::IpAddr& ip) {
    if (const auto* const entry = multiPath(mac)) return entry->vtepIpList.contains(ip);
    const auto* const list = floodList(mac);
    return list != nullptr && list->vtepIpFloodList(ip);
  });
}

// Asked by every writer of flood sets before it writes. While the mode is another nothing is taken
// back either: the root has removed all flood sets by then.
bool ZepPerVniFdbStatusSm::checkBumStatus() const {
  MORU_TRACE(8);
  if (!initialized() || !zepVniFdbStatusV2() || !vxlanHwStatusDir()) return false;
  const Moru::Ptr<BumStatus const>& bumStatus = vxlanHwStatusDir()->bumStatus();
  if (!bumStatus) return false;
  if (bumStatus->bumReplicationMode() == BumReplicationMode::controller) return true;
  MORU_TRACE(8, " Replication Mode is not zep ", bumStatus->bumReplicationMode());
  return false;
}

}  // namespace Vxlan
