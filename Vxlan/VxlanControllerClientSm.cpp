#include "Vxlan/VxlanControllerClientSm.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <sstream>

#include "Vxlan/Clocks.h"
#include "Vxlan/FloodSets.h"
#include "Vxlan/Trace.h"
#include "Vxlan/Walk.h"
#include "framework/Moru/Assert.h"
#include "framework/Ringlog/Ring.h"

namespace Vxlan {

namespace {

constexpr const char* traceRingName = "DpxVxlanControllerSm.rlg";
constexpr std::array<std::size_t, 10> traceRingSizes{33, 33, 33, 33, 33,
                                                     33, 33, 33, 33, 33};  // KiB

// How many hosts ahead of a deletion what it will touch is fetched, in two steps.
constexpr std::size_t farAhead = 12;
constexpr std::size_t nearAhead = 6;

template <class Entry>
const Bridging::MacVlanPair* markedKey(const std::optional<Entry>& entry) {
  return entry && entry->value.markedForDel ? &entry->key : nullptr;
}

// Null if there is no such entry, or no directory.
Moru::Ptr<Moru::Entity> entityOf(const Moru::Ptr<Moru::Dir const>& dir, const Moru::Name& name) {
  return dir ? dir->entityPtr(name) : nullptr;
}

// The VNI that a directory entry is named by: the number that the name begins with, 0 if none.
// Throws RangeException for a number that is no VNI.
VniExt vniOf(const Moru::Name& name) {
  constexpr int decimal = 10;
  return VniExt(std::strtol(name.stringValue().c_str(), nullptr, decimal));
}

Moru::Name nameOf(const VniExt& vni) {
  std::ostringstream name;
  name << vni;
  return name.str();
}

}  // namespace

// --- Construction and teardown ---

VxlanControllerClientSm::VxlanControllerClientSm(const ClientInputs& inputs)
    : VxlanControllerClientSm() {
  vtiStatusDirIs(inputs.vtiStatusDir);
  controllerStatusBaseDirIs(inputs.controllerStatusBaseDir);
  zepStateClientViewIs(inputs.zepStateClientView);
  vxlanHwStatusDirIs(inputs.vxlanHwStatusDir);
  mlagStatusIs(inputs.mlagStatus);
  mlagVxlanStatus_ = inputs.mlagVxlanStatus;
  zepStateBaseDirIs(inputs.zepStateBaseDir);
  vlanVniMapsIs(inputs.vlanVniMaps);
  zepSde_ = inputs.zepSde;
  l2RibZepInput_ = inputs.l2RibZepInput;
  zepConvergenceStatus_ = inputs.zepConvergenceStatus;
  localBumStatusIs(inputs.vxlanHwStatusDir ? inputs.vxlanHwStatusDir->bumStatus() : nullptr);
  unicastDeferredDeleteClockIs(Moru::ActivityFacility::current()->clock());
  bumDeferredDeleteClockIs(Moru::ActivityFacility::current()->clock());
  if (inputs.vtiStatusDir) syncVtiStatuses();
  handleInitialized();
}

VxlanControllerClientSm::~VxlanControllerClientSm() {
  // From here on nothing that is written comes back to this machine or to one of its children.
  moruDoZombieReactors(true);
  try {
    zepStateSmDel();
  } catch (...) {  // of a watcher of the client view: there is nobody left to tell
  }
  hostTableDel();
  receivedHostTableToL2RibHostInputSmDel();
  zepPerVniFdbStatusSmDelAll();
  zepMlagBumStatusSmDel();
  vlanVniMapSmDelAll();
  // Without the maps a VLAN that is no longer imported takes nothing with it: what stands in the
  // layer-2 RIB stays for the next client.
  vlanVniMapsDel();
  vccImportVlansDelAll();
}

void VxlanControllerClientSm::handleInitialized() {
  MORU_TRACE(8, " Init? ", initialized());
  initializedIs(true);
  Ringlog::open(traceRingName, traceRingSizes);  // unless the process has it open
  arm(unicastDeferredDeleteClock, Moru::Clock::never);
  arm(bumDeferredDeleteClock, Moru::Clock::never);
  hostTableIs("hostTable");
  receivedHostTableToL2RibHostInputSmIs(hostTable_, l2RibZepInput_);
  // The import VLANs come before the VNIs, whose scan looks at them.
  updateAggregateImportVlans();
  handleControllerVniBaseDir();
  handleZepStateBaseDir();
  cacheControllerClientMode();
  cacheDatapathLearningMode();
  updateControllerClientMode();
  handleVlanVniMapVti();
}

// --- VTI status and client modes ---

void VxlanControllerClientSm::MoruVtiStatusDir::notifierIs(Moru::Ptr<VtiStatusDir const> dir) {
  Reactor::notifierIs(std::move(dir));
  // At construction the VTIs are read when all inputs are there.
  if (!machine()->initialized()) return;
  for (const auto& [intf, status] : vtiStatusesOf(notifier())) machine()->vtiStatusIs(status);
}

void VxlanControllerClientSm::MoruVtiStatusDir::onAttribute(Moru::AttributeId attribute,
                                                            const void* key) {
  if (attribute != Moru::idOf<&VtiStatusDir::vtiStatus>) return;
  const Vorn::IntfId& intf = *Moru::keyOf<&VtiStatusDir::vtiStatus>(key);
  if (const auto status = notifier()->vtiStatus(intf))
    machine()->vtiStatusIs(status);
  else
    machine()->vtiStatusDel(intf);
}

void VxlanControllerClientSm::MoruVtiStatus::onAttribute(Moru::AttributeId attribute,
                                                         const void* key) {
  switch (attribute) {
    case Moru::idOf<&VtiStatus::controllerClientMode>:
      moru_handleVtiStatus_controllerClientMode();
      break;
    case Moru::idOf<&VtiStatus::datapathLearning>:
      moru_handleVtiStatus_datapathLearning();
      break;
    case Moru::idOf<&VtiStatus::vccImportVlans>:
      moru_handleVtiStatus_vccImportVlans(*Moru::keyOf<&VtiStatus::vccImportVlans>(key));
      break;
    default:
      break;
  }
}

void VxlanControllerClientSm::MoruVtiStatus::moru_handleVtiStatus_controllerClientMode() {
  machine()->handleControllerClientMode();
}

void VxlanControllerClientSm::MoruVtiStatus::moru_handleVtiStatus_datapathLearning() {
  machine()->handleDatapathLearningMode();
}

void VxlanControllerClientSm::MoruVtiStatus::moru_handleVtiStatus_vccImportVlans(
    Bridging::VlanId vlan) {
  machine()->updateAggregateImportVlans(vlan);
}

// Acts on the modes twice, once for each, also while the root is being made.
void VxlanControllerClientSm::MoruVtiStatus::handleInitialized() {
  MORU_TRACE(8, " init? ", initialized());
  if (initialized()) return;
  initializedIs(true);
  machine()->handleDatapathLearningMode();
  machine()->handleControllerClientMode();
  machine()->updateAggregateImportVlans();
}

// The modes stay as they are, on purpose: a VTI that is taken away to be put back does not wipe
// what the controller gave. They are folded anew at the next change of any VTI's mode.
void VxlanControllerClientSm::MoruVtiStatus::doCleanup() {
  machine()->updateAggregateImportVlans();
}

void VxlanControllerClientSm::syncVtiStatuses() {
  for (const auto& [intf, status] : vtiStatusesOf(vtiStatusDir())) vtiStatusIs(status);
  for (auto status = vtiStatus().begin(); status; ++status)
    if (!vtiStatusDir()->vtiStatus(status.key())) vtiStatusDel(status.key());
}

void VxlanControllerClientSm::cacheControllerClientMode() {
  bool anyOn = false;
  for (const auto& [intf, status] : vtiStatusesOf(vtiStatusDir()))
    if (status->controllerClientMode()) anyOn = true;
  vxlanControllerClientModeIs(anyOn);
}

void VxlanControllerClientSm::cacheDatapathLearningMode() {
  bool allOn = true;
  for (const auto& [intf, status] : vtiStatusesOf(vtiStatusDir()))
    if (!status->datapathLearning()) allOn = false;
  datapathLearningModeIs(allOn);
}

void VxlanControllerClientSm::handleControllerClientMode() {
  MORU_TRACE(8, " init? ", initialized(), " vxlanControllerClientMode is ",
             vxlanControllerClientMode_);
  cacheControllerClientMode();
  updateControllerClientMode();
}

void VxlanControllerClientSm::handleDatapathLearningMode() {
  MORU_TRACE(8, " init? ", initialized(), " datapathLearningMode is ", datapathLearningMode_);
  cacheDatapathLearningMode();
  updateControllerClientMode();
}

// Runs whole on every call, whether or not a mode has changed.
void VxlanControllerClientSm::updateControllerClientMode() {
  MORU_TRACE(8, " init? ", initialized(), " datapathLearning is ", datapathLearningMode_,
             " vxlanControllerClientMode is ", vxlanControllerClientMode_);
  handleZepStateBaseDir();
  if (!vxlanControllerClientMode_) {
    cleanupZepPerVniFdbStatusSm();
  } else {
    if (datapathLearningMode_) deleteRemoteMacsOfAllVlans();
    handleControllerVniBaseDir();
  }
  handleMlagState();
}

// What the data path learns now must not be held from the controller, too.
void VxlanControllerClientSm::deleteRemoteMacsOfAllVlans() {
  MORU_TRACE(8, " Deleting remote MACs learnt from ZEP");
  for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps()))
    for (auto vlan = map->vlanToVsp().begin(); vlan; ++vlan)
      deleteRemoteMacFromController(vlan.key(), false);
}

// --- VLAN-VNI maps ---

void VxlanControllerClientSm::MoruVlanVniMaps::onAttribute(Moru::AttributeId attribute,
                                                           const void* key) {
  if (attribute != Moru::idOf<&VlanVniMaps::vlanVniMap>) return;
  machine()->handleVlanVniMapVti(*Moru::keyOf<&VlanVniMaps::vlanVniMap>(key));
}

void VxlanControllerClientSm::handleVlanVniMapVti(Vorn::IntfId intf) {
  MORU_TRACE(8, " intf: ", intf);
  if (const auto map = vlanVniMaps() ? vlanVniMaps()->vlanVniMap(intf) : nullptr)
    vlanVniMapSmIs(intf, map, this);
  else
    vlanVniMapSmDel(intf);
}

void VxlanControllerClientSm::handleVlanVniMapVti() {
  MORU_TRACE(8);
  for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps())) handleVlanVniMapVti(intf);
}

// --- Import VLANs ---

void VxlanControllerClientSm::vccImportVlansIs(Bridging::VlanId vlan) {
  if (vccImportVlans_.is(vlan, {})) handleVccImportVlans(vlan);
}

void VxlanControllerClientSm::vccImportVlansDel(Bridging::VlanId vlan) {
  if (vccImportVlans_.del(vlan)) handleVccImportVlans(vlan);
}

void VxlanControllerClientSm::vccImportVlansDelAll() {
  for (auto vlan = vccImportVlans_.begin(); vlan; ++vlan) vccImportVlansDel(vlan.key());
}

void VxlanControllerClientSm::updateAggregateImportVlans() {
  MORU_TRACE(8, " init? ", initialized());
  if (!initialized()) return;
  for (unsigned vlan = Bridging::VlanId::min; vlan <= Bridging::VlanId::max; ++vlan)
    updateAggregateImportVlans(Bridging::VlanId(vlan));
}

void VxlanControllerClientSm::updateAggregateImportVlans(Bridging::VlanId vlan) {
  if (!initialized()) return;
  if (isImportedByAnyVti(vlan))
    vccImportVlansIs(vlan);
  else
    vccImportVlansDel(vlan);
}

bool VxlanControllerClientSm::isImportedByAnyVti(Bridging::VlanId vlan) const {
  for (const auto& [intf, status] : vtiStatusesOf(vtiStatusDir()))
    if (status->vccImportVlans(vlan)) return true;
  return false;
}

// A VLAN that leaves takes the machines of its VNIs with it, even of one that another, imported
// VLAN maps to: that one comes back with its own VLAN's next update.
void VxlanControllerClientSm::handleVccImportVlans(Bridging::VlanId vlan) {
  MORU_TRACE(8, " vlan ", vlan);
  for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps())) {
    const VniSourcePair vsp = map->vlanToVsp(vlan);
    if (!vsp) continue;
    const VniExt vni = vsp.vni();
    if (vccImportVlans_.contains(vlan)) {
      vxlanControllerScanVniStatus(vni);
    } else {
      cleanupZepPerVniFdbStatusSm(vni, true);
      zepPerVniFdbStatusSmDel(vni);
    }
  }
}

// --- Controller state and convergence ---

void VxlanControllerClientSm::MoruZepStateBaseDir::onAttribute(Moru::AttributeId attribute,
                                                               const void* key) {
  if (attribute != Moru::Dir::entityPtrId) return;
  machine()->handleZepStateBaseDir(*static_cast<const Moru::Name*>(key));
}

void VxlanControllerClientSm::MoruZepStateClientView::onAttribute(Moru::AttributeId attribute,
                                                                  const void*) {
  using View = VxlanController::ZepStateClientViewV2;
  if (attribute == Moru::idOf<&View::convergenceInProgress>)
    machine()->handleConvergenceInProgress();
}

void VxlanControllerClientSm::handleZepStateBaseDir() {
  if (!initialized()) return;
  MORU_TRACE(8);
  const Moru::Ptr<Moru::Dir const> dir(zepStateBaseDir().get());
  if (!dir) return;
  for (auto entry = dir->entityPtr().begin(); entry; ++entry) handleZepStateBaseDir(entry.key());
}

void VxlanControllerClientSm::handleZepStateBaseDir(const Moru::Name& name) {
  MORU_TRACE(8, "handleZepStateBaseDir", name);
  if (!initialized()) return;
  const auto entity = entityOf(zepStateBaseDir(), name);
  if (!entity || !vxlanControllerClientMode_) {
    MORU_TRACE(8, " entry subdir deleted for ", name);
    zepStateSmDel();
    return;
  }
  if (!zepStateBaseDir()->entryState(name)) {
    MORU_TRACE(8, " entry subdir added, but not instantiated ", name);
    return;
  }
  MORU_TRACE(8, " entry subdir added ", name);
  if (const auto state = Moru::dynamicPtrCast<VxlanController::ZepStateV2 const>(entity))
    zepStateSmIs(state, zepStateClientView());
}

bool VxlanControllerClientSm::convergenceInProgress() const {
  return zepStateClientView() && zepStateClientView()->convergenceInProgress();
}

// Every write of the view counts: a client that starts outside convergence schedules both runs
// once, and they find nothing to do.
void VxlanControllerClientSm::handleConvergenceInProgress() {
  MORU_TRACE(8, " init ", initialized());
  if (!initialized()) return;
  const bool converging = convergenceInProgress();
  MORU_TRACE(8, " init ", initialized(), " convergence state ", converging);
  if (!converging) MORU_TRACE(8, " schedule deferred deletes");
  unicastDeferredDeletionInProgressIs(!converging);
  bumDeferredDeletionInProgressIs(!converging);
  // A batch that is under way stays armed during a new convergence, and finds that out by itself.
  // The flood sets' run starts over after it: VLANs that it has left behind may be stale anew.
  if (converging) {
    bumDeferredDeleteBookmarkValidIs(false);
    bumRun_ = {};
    return;
  }
  const double time = now();
  arm(unicastDeferredDeleteClock, time);
  arm(bumDeferredDeleteClock, time);
}

void VxlanControllerClientSm::unicastDeferredDeletionInProgressIs(bool inProgress) {
  if (zepConvergenceStatus_) zepConvergenceStatus_->unicastDeferredDeletionInProgressIs(inProgress);
}

void VxlanControllerClientSm::bumDeferredDeletionInProgressIs(bool inProgress) {
  if (zepConvergenceStatus_) zepConvergenceStatus_->bumDeferredDeletionInProgressIs(inProgress);
}

// --- Controller VNIs ---

void VxlanControllerClientSm::MoruControllerStatusBaseDir::onAttribute(Moru::AttributeId attribute,
                                                                       const void* key) {
  if (attribute != Moru::Dir::entityPtrId) return;
  machine()->handleControllerVniBaseDir(*static_cast<const Moru::Name*>(key));
}

void VxlanControllerClientSm::handleControllerVniBaseDir() {
  if (!initialized()) return;
  const Moru::Ptr<Moru::Dir const> dir(controllerStatusBaseDir().get());
  MORU_TRACE(8, "handleControllerVniBaseDir", dir);
  if (!dir) return;
  for (auto entry = dir->entityPtr().begin(); entry; ++entry)
    handleControllerVniBaseDir(entry.key());
}

void VxlanControllerClientSm::handleControllerVniBaseDir(const Moru::Name& name) {
  MORU_TRACE(8, "handleControllerVniBaseDir", name);
  if (!initialized()) return;
  const auto entity = entityOf(controllerStatusBaseDir(), name);
  if (!entity || !vxlanControllerClientMode_) {
    MORU_TRACE(8, " entry subdir deleted for ", name);
    removeZepPerVniFdbStatusSm(vniOf(name));
    return;
  }
  if (!controllerStatusBaseDir()->entryState(name)) {
    MORU_TRACE(8, " entry subdir added, but not instantiated ", name);
    return;
  }
  MORU_TRACE(8, " entry subdir added ", name);
  const auto status = Moru::dynamicPtrCast<VxlanController::VniFdbStatusV2 const>(entity);
  if (!status) return;
  const VniExt vni = vniOf(name);
  Moru::assertThat(vni.value() != 0, "!!vniId", [&] { return "entry " + name.stringValue(); });
  scanMappedVni(vni, status);
}

// The machine goes if any VTI maps the VNI to a VLAN that is not imported, even where another VTI
// has just had it made: what is not imported anywhere must not be followed for it.
void VxlanControllerClientSm::scanMappedVni(
    VniExt vni, const Moru::Ptr<VxlanController::VniFdbStatusV2 const>& status) {
  bool removeMachine = false;
  for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps())) {
    const Bridging::VlanIdOrNone mapped = map->vniToVlan(vni);
    MORU_TRACE(8, "vniId: ", vni, " localmap: ", mapped);
    if (!mapped) continue;
    MORU_TRACE(8, " vni-vlan map found for vni ", vni, "vlanId ", mapped);
    const Bridging::VlanId vlan(mapped.value());
    if (!vccImportVlans_.contains(vlan)) {
      MORU_TRACE(8, "vlanId  ", vlan, " Not a member of vccImportVlan");
      removeMachine = true;
      continue;
    }
    MORU_TRACE(8, "vlanId  ", vlan, " member of vccImportVlan");
    if (const auto machine = zepPerVniFdbStatusSm(vni))
      machine->handleZepHostTable();
    else
      zepPerVniFdbStatusSmIs(vni, status, vtiStatusDir(), vxlanHwStatusDir(), zepSde_, this);
  }
  if (removeMachine) removeZepPerVniFdbStatusSm(vni);
}

void VxlanControllerClientSm::removeZepPerVniFdbStatusSm(VniExt vni) {
  if (!zepPerVniFdbStatusSm(vni)) return;
  MORU_TRACE(8, " Deleting the corresponding SM");
  cleanupZepPerVniFdbStatusSm(vni, true);
  zepPerVniFdbStatusSmDel(vni);
}

void VxlanControllerClientSm::vxlanControllerScanVniStatus(VniExt vni) {
  MORU_TRACE(8, " Scanning VniStatus for vni ", vni);
  if (const auto machine = zepPerVniFdbStatusSm(vni)) {
    machine->handleInitialized();
    return;
  }
  MORU_TRACE(8, "creating vniStatusSm");
  handleControllerVniBaseDir(nameOf(vni));
}

void VxlanControllerClientSm::cleanupZepPerVniFdbStatusSm(VniExt vni, bool deferIfConverging) {
  MORU_TRACE(8, " Delete remote mac entries for vni ", vni);
  bool deferred = false;  // once deferred, for the rest of the VTIs too
  bool found = false;
  for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps())) {
    const Bridging::VlanIdOrNone mapped = map->vniToVlan(vni);
    if (!mapped) continue;
    found = true;
    const Bridging::VlanId vlan(mapped.value());
    if (deferIfConverging && vxlanControllerClientMode_ && convergenceInProgress()) deferred = true;
    deleteRemoteMacFromController(vlan, deferred);
    if (deferred) continue;  // to the deferred deletion after the convergence
    if (const auto machine = zepMlagBumStatusSm())
      machine->markAndSweep(vlan);
    else
      deleteBumVtepListTable(vlan);
  }
  if (!found) MORU_TRACE(8, "Missing vlan-to-vni mapping");
}

// Leaving the controller mode never defers: what the controller gave goes at once.
void VxlanControllerClientSm::cleanupZepPerVniFdbStatusSm() {
  MORU_TRACE(8);
  for (auto machine = zepPerVniFdbStatusSm().begin(); machine; ++machine) {
    const VniExt vni = machine.key();
    cleanupZepPerVniFdbStatusSm(vni, false);
    zepPerVniFdbStatusSmDel(vni);
  }
}

// --- Flood sets ---

void VxlanControllerClientSm::MoruMlagStatus::notifierIs(Moru::Ptr<Mlag::Status const> status) {
  Reactor::notifierIs(std::move(status));
  if (notifier()) machine()->handleMlagState();
}

void VxlanControllerClientSm::MoruMlagStatus::onAttribute(Moru::AttributeId attribute,
                                                          const void*) {
  if (attribute == Moru::idOf<&Mlag::Status::mlagState>) machine()->handleMlagState();
}

void VxlanControllerClientSm::MoruLocalBumStatus::notifierIs(Moru::Ptr<BumStatus const> status) {
  Reactor::notifierIs(std::move(status));
  if (notifier()) machine()->handleBumReplicationMode();
}

void VxlanControllerClientSm::MoruLocalBumStatus::onAttribute(Moru::AttributeId attribute,
                                                              const void*) {
  if (attribute == Moru::idOf<&BumStatus::bumReplicationMode>)
    machine()->handleBumReplicationMode();
}

bool VxlanControllerClientSm::isMlagBumWanted() const {
  if (!vxlanControllerClientMode_) return false;
  Moru::assertThat(mlagStatus() != nullptr, "mlagStatus()");
  return mlagStatus()->mlagState() == Mlag::MlagState::active;
}

void VxlanControllerClientSm::handleMlagState() {
  if (!initialized()) return;
  MORU_TRACE(8, "handleMlagState",
             mlagStatus() ? mlagStatus()->mlagState() : Mlag::MlagState::disabled);
  if (isMlagBumWanted())
    zepMlagBumStatusSmIs(mlagVxlanStatus_, vxlanHwStatusDir(), vlanVniMaps(), zepSde_);
  // Asked anew: making it writes flood sets, and what comes of that may have ended its reason.
  if (!isMlagBumWanted()) zepMlagBumStatusSmDel();
}

void VxlanControllerClientSm::handleBumReplicationMode() {
  MORU_TRACE(8, "handleBumReplicationMode");
  if (!initialized()) return;
  const BumReplicationMode mode = localBumReplicationMode();
  if (mode != BumReplicationMode::controller) {
    MORU_TRACE(8, " Replication Mode is not zep ", " bum replication mode: ", mode);
    deleteBumVtepListTable();
    return;
  }
  for (const auto& [vni, machine] : zepPerVniFdbStatusSm()) {
    machine->handleMacVtepMultiPathTable();
    for (const auto& [mac, floodList] : machine->macVtepFloodListTableSm())
      floodList->handleInitialized();
  }
}

BumReplicationMode VxlanControllerClientSm::localBumReplicationMode() const {
  return localBumStatus() ? localBumStatus()->bumReplicationMode() : BumReplicationMode::unknown;
}

void VxlanControllerClientSm::deleteBumVtepListTable(Bridging::VlanId vlan) {
  MORU_TRACE(8, " vlan ", vlan);
  if (zepSde_) zepSde_->vlanFloodSetDel(vlan);
}

void VxlanControllerClientSm::deleteBumVtepListTable() {
  MORU_TRACE(8);
  if (zepSde_) zepSde_->vlanFloodSetDelAll();
}

// --- Received hosts ---

const Moru::Ptr<ReceivedHostTable>& VxlanControllerClientSm::hostTableIs(const Moru::Name& name) {
  if (!hostTable_ || hostTable_->name() != name) hostTable_ = Moru::create<ReceivedHostTable>(name);
  return hostTable_;
}

void VxlanControllerClientSm::hostTableDel() { hostTable_ = nullptr; }

bool VxlanControllerClientSm::isVtepIpMine(VniExt, Vorn::IpAddr vtepIp,
                                           Vorn::IntfId vtiIntfId) const {
  MORU_TRACE(8, "vtepIp: ", vtepIp);
  const auto status = vtiStatusDir() ? vtiStatusDir()->vtiStatus(vtiIntfId) : nullptr;
  if (!status) return false;
  MORU_TRACE(8, "local vtepIp: ", status->localVtepAddr(),
             " local varp vtepIp: ", status->vArpVtepAddr());
  if (vtepIp == status->localVtepAddr() || vtepIp == status->vArpVtepAddr()) return true;
  if (!mlagVxlanStatus_) return false;
  for (const auto& [type, address] : mlagVxlanStatus_->vtepTypeAddr())
    if (address == vtepIp) return true;
  return false;
}

void VxlanControllerClientSm::deferDeleteReceivedTableEntry(Bridging::MacVlanPair key) {
  const ReceivedEntry entry = hostTable_->receivedEntry(key);
  if (!entry || entry.markedForDel) return;
  MORU_TRACE(8, "defer delete of ", key, " old vtep: ", entry.vtepAddr);
  hostTable_->mark(key);
  MORU_TRACE(8, "new marked for deletion count ", hostTable_->markedForDelCount());
}

void VxlanControllerClientSm::deleteReceivedTableEntry(Bridging::MacVlanPair key) {
  MORU_TRACE(8, " deleting ", key);
  if (hostTable_->unmark(key))
    MORU_TRACE(8, " new marked for deletion count ", hostTable_->markedForDelCount());
  hostTable_->receivedEntryDel(key);
}

void VxlanControllerClientSm::prefetchHost(const Bridging::MacVlanPair& key) const {
  hostTable_->receivedEntry().prefetch(key);
  if (l2RibZepInput_) l2RibZepInput_->host().prefetch(key);
}

// Hosts that are deleted one after the other lie anywhere among a million: to wait for the memory
// of each would take longer than all the rest.
void VxlanControllerClientSm::prefetchDeletions(const Bridging::MacVlanPair* farKey,
                                                const Bridging::MacVlanPair* nearKey) const {
  if (farKey != nullptr) prefetchHost(*farKey);
  if (nearKey == nullptr) return;
  hostTable_->receivedEntry().prefetchElement(*nearKey);
  if (l2RibZepInput_) l2RibZepInput_->host().prefetchElement(*nearKey);
}

void VxlanControllerClientSm::deleteRemoteMacFromController(Bridging::VlanId vlan, bool deferDel) {
  if (!initialized()) return;
  MORU_TRACE(8, "deleteRemoteMacFromController vlanId ", vlan, " deferDel ", deferDel);
  const Moru::Ptr<ReceivedHostTable> table(hostTable_.get());
  for (auto host = table->receivedEntry().keysOfVlan(vlan); host; ++host) {
    prefetchDeletions(host.ahead(farAhead), host.ahead(nearAhead));
    MORU_TRACE(8, host.key().mac, " Vlan: ", vlan, " deferDel ", deferDel);
    if (deferDel)
      deferDeleteReceivedTableEntry(host.key());
    else
      deleteReceivedTableEntry(host.key());
  }
}

// --- Deferred deletion of hosts ---

void VxlanControllerClientSm::MoruUnicastDeferredDeleteClock::onAttribute(
    Moru::AttributeId attribute, const void*) {
  if (attribute == Moru::Clock::timeMinId) machine()->processUnicastDeferredDeletes();
}

void VxlanControllerClientSm::processUnicastDeferredDeletes() {
  if (!initialized()) return;
  const Moru::Ptr<ReceivedHostTable> table(hostTable_.get());
  MORU_TRACE(8, " init ", initialized(), " convergence state ", convergenceInProgress(),
             " marked for del count ", table->markedForDelCount());
  if (convergenceInProgress()) {
    // The end of that convergence arms the clock again.
    MORU_TRACE(8, " called but nothing to do - korvo rebooted again?");
    return;
  }
  if (table->markedForDelCount() == 0) {
    endUnicastDeferredDeletes();
    MORU_TRACE(8, " no markedForDel entries");
    return;
  }
  if (unicastDeferredDeleteBookmark_ != Bridging::MacVlanPair())
    MORU_TRACE(8, " starting at bookmark ", unicastDeferredDeleteBookmark_.mac, " vlan ",
               unicastDeferredDeleteBookmark_.vlan);
  else
    MORU_TRACE(8, " no bookmark. start fresh");
  // The default bookmark is the smallest key: the first entry follows. So does the next one, where
  // the bookmarked entry has gone.
  auto entry = table->receivedEntry().from(unicastDeferredDeleteBookmark_);
  MORU_TRACE(8, " initial count ", table->markedForDelCount());
  const double deadline = now() + maxProcessTime_;
  while (table->markedForDelCount() != 0) {
    if (!entry) {
      MORU_TRACE(8, " reached end, resume from first entry");
      entry = table->receivedEntry().begin();
      Moru::assertThat(static_cast<bool>(entry), "iter");
    }
    // Read before every entry, marked or not: to look at entries takes time, too.
    const double time = now();
    if (time >= deadline) {
      rescheduleUnicastDeferredDeletes(entry.key(), time);
      return;
    }
    prefetchDeletions(markedKey(entry.ahead(farAhead)), markedKey(entry.ahead(nearAhead)));
    if (entry.value().markedForDel) {
      deleteReceivedTableEntry(entry.key());
      if (table->markedForDelCount() == 0) break;
    }
    ++entry;
  }
  MORU_TRACE_STREAM(8, " unicast mac deferred delete complete.");
  MORU_TRACE_RING(8, " unicast mac deferred del complete");
  endUnicastDeferredDeletes();
}

void VxlanControllerClientSm::endUnicastDeferredDeletes() {
  unicastDeferredDeleteBookmarkIs(Bridging::MacVlanPair());
  unicastDeferredDeletionInProgressIs(false);
}

// Armed at the current time: that yields to whatever else waits, and adds no delay.
void VxlanControllerClientSm::rescheduleUnicastDeferredDeletes(const Bridging::MacVlanPair& next,
                                                               double time) {
  unicastDeferredDeleteBookmarkIs(next);
  MORU_TRACE(8, " reschedule, resume later from ", next.mac, " vlan ", next.vlan,
             " Remaining count ", hostTable_->markedForDelCount());
  arm(unicastDeferredDeleteClock, time);
}

// --- Deferred deletion of flood sets ---

void VxlanControllerClientSm::MoruBumDeferredDeleteClock::onAttribute(Moru::AttributeId attribute,
                                                                      const void*) {
  if (attribute == Moru::Clock::timeMinId) machine()->processBumDeferredDeletes();
}

// Whether what stands in the flood sets is what the controller asks for, rather than the MLAG peer
// or nobody.
bool VxlanControllerClientSm::ownsFloodSets() const {
  return !zepMlagBumStatusSm() && localBumReplicationMode() == BumReplicationMode::controller;
}

void VxlanControllerClientSm::processBumDeferredDeletes() {
  if (!initialized()) return;
  const Moru::Ptr<L2Rib::SourceDirEntry> sde = zepSde_;
  const std::size_t floodLists = sde ? sde->vlanFloodSet().size() : 0;
  MORU_TRACE(8, " init: ", initialized(), " convergence in progress: ", convergenceInProgress(),
             " vlan flood list count: ", floodLists,
             " bum replication mode: ", localBumReplicationMode());
  if (convergenceInProgress()) return;  // the end of which arms the clock again
  if (floodLists == 0 || !ownsFloodSets()) {
    MORU_TRACE(8, " no bumDeferredDeletion ");
    endBumDeferredDeletes();
    return;
  }
  const double deadline = now() + maxProcessTime_;
  const Bridging::VlanId startKey = beginBumBatch();
  for (unsigned vlan = startKey.value(); bumRun_.vlansLeft != 0; ++vlan, --bumRun_.vlansLeft) {
    if (vlan > Bridging::VlanId::max) {
      MORU_TRACE(8, " reached end, resume from first entry", " startKey vlan ", startKey);
      vlan = Bridging::VlanId::min;
    }
    const auto vlanFloodSet = sde->vlanFloodSet(Bridging::VlanId(vlan));
    if (!vlanFloodSet) continue;
    const double time = now();
    if (time >= deadline) {
      rescheduleBumDeferredDeletes(vlanFloodSet->vlanId(), time);
      return;
    }
    MORU_TRACE(8, " iter vlan ", vlanFloodSet->vlanId());
    deleteStaleFloodSets(vlanFloodSet);
    // What was deleted may have come to somebody who has begun another convergence, which has reset
    // the run, or another time.
    if (bumRun_.vlansLeft == 0) return;
    if (!ownsFloodSets()) break;
  }
  MORU_TRACE(8, " flood list deferred delete complete. Deleted ", bumRun_.deleted);
  endBumDeferredDeletes();
}

// The VLAN to begin with.
Bridging::VlanId VxlanControllerClientSm::beginBumBatch() {
  if (!bumDeferredDeleteBookmarkValid_) {
    MORU_TRACE(8, " no bookmark. start fresh");
    bumRun_ = {Bridging::VlanId::max, 0};
    return Bridging::VlanId(Bridging::VlanId::min);
  }
  MORU_TRACE(8, " starting at bookmark vlan ", bumDeferredDeleteBookmark_);
  if (bumRun_.vlansLeft == 0) bumRun_ = {Bridging::VlanId::max, 0};
  return bumDeferredDeleteBookmark_;
}

void VxlanControllerClientSm::endBumDeferredDeletes() {
  bumRun_ = {};
  bumDeferredDeleteBookmarkValidIs(false);
  bumDeferredDeletionInProgressIs(false);
}

void VxlanControllerClientSm::rescheduleBumDeferredDeletes(const Bridging::VlanId& next,
                                                           double time) {
  bumDeferredDeleteBookmarkIs(next);
  bumDeferredDeleteBookmarkValidIs(true);
  MORU_TRACE(8, " reschedule, resume later from vlan ", next, " Deleted count ", bumRun_.deleted);
  arm(bumDeferredDeleteClock, time);
}

// Those of the VNIs that the VTIs map the VLAN to: one VTI's VLAN may well be another's, too, and
// stand for another VNI there.
VxlanControllerClientSm::PerVniSms VxlanControllerClientSm::perVniSmsOf(
    const Bridging::VlanId& vlan) const {
  PerVniSms machines;
  for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps())) {
    const VniSourcePair vsp = map->vlanToVsp(vlan);
    if (!vsp) continue;
    if (auto machine = zepPerVniFdbStatusSm(vsp.vni())) machines.push_back(std::move(machine));
  }
  return machines;
}

// Removes what none of the VLAN's VNIs asks for.
void VxlanControllerClientSm::deleteStaleFloodSets(
    const Moru::Ptr<L2Rib::VlanFloodSet>& vlanFloodSet) {
  const Bridging::VlanId& vlan = vlanFloodSet->vlanId();
  const PerVniSms machines = perVniSmsOf(vlan);
  if (machines.empty()) {
    MORU_TRACE(8, " deleting vlan ", vlan);
    zepSde_->vlanFloodSetDel(vlan);
    ++bumRun_.deleted;
    return;
  }
  for (const auto& [mac, floodSet] : vlanFloodSet->floodSet()) {
    const auto isAskedFor = [&mac = mac](const auto& machine) {
      return machine->multiPath(mac) != nullptr || machine->floodList(mac) != nullptr;
    };
    if (std::any_of(machines.begin(), machines.end(), isAskedFor)) {
      deleteStaleDests(floodSet, machines);
    } else {
      MORU_TRACE(8, " deleting vlan ", vlan, " mac ", mac);
      vlanFloodSet->floodSetDel(mac);
      ++bumRun_.deleted;
    }
  }
}

void VxlanControllerClientSm::deleteStaleDests(const Moru::Ptr<L2Rib::FloodSet>& floodSet,
                                               const PerVniSms& machines) {
  const Vorn::EthAddr& mac = floodSet->macAddr();
  for (const auto& machine : machines) checkDestCount(*floodSet, *machine, false);
  bumRun_.deleted += sweepDests(floodSet, [&](const L2Rib::Dest& dest) {
    return std::any_of(machines.begin(), machines.end(),
                       [&](const auto& machine) { return machine->isDestAskedFor(mac, dest); });
  });
  for (const auto& machine : machines) checkDestCount(*floodSet, *machine, true);
}

// All that a list holds stands in the flood set, and nothing else once that has been swept. Where
// it does not, that is told, and no more: two VNIs may share the VLAN.
void VxlanControllerClientSm::checkDestCount(const L2Rib::FloodSet& floodSet,
                                             const ZepPerVniFdbStatusSm& machine,
                                             bool swept) const {
  const std::size_t dests = floodSet.destSets();
  const auto* const multiPath = machine.multiPath(floodSet.macAddr());
  const auto* const floodList = machine.floodList(floodSet.macAddr());
  if (multiPath == nullptr && floodList == nullptr) return;
  const std::size_t vteps =
      multiPath != nullptr ? multiPath->vtepIpLists() : floodList->vtepIpFloodLists();
  if (!swept && dests > vteps) MORU_TRACE(8, " flood dest count mismatch ", dests, " > ", vteps);
  if (swept ? dests == vteps : dests >= vteps) return;
  if (multiPath != nullptr && swept)
    MORU_TRACE(8,
               "fsIter->destSets() == vniFdbStatus->macVtepMultiPathTable( macAddr ) "
               ".vtepIpLists()");
  else if (multiPath != nullptr)
    MORU_TRACE(8,
               "fsIter->destSets() >= vniFdbStatus->macVtepMultiPathTable( macAddr )"
               ".vtepIpLists()");
  else if (swept)
    MORU_TRACE(8,
               "fsIter->destSets() == vniFdbStatus->macVtepFloodListTable( macAddr ) "
               "->vtepIpFloodLists()");
  else
    MORU_TRACE(8,
               "fsIter->destSets() >= vniFdbStatus->macVtepFloodListTable( macAddr ) "
               "->vtepIpFloodLists()");
}

Moru::Ptr<VxlanControllerClientSm> vxlanControllerClientSmFactory(const ClientInputs& inputs) {
  return Moru::create<VxlanControllerClientSm>(inputs);
}

Moru::Ptr<VxlanControllerClientSm> vxlanControllerClientSmFactory(
    const Moru::Ptr<VtiStatusDir const>& vtiStatusDir,
    const Moru::Ptr<Moru::Dir const>& controllerStatusBaseDir,
    const Moru::Ptr<VxlanController::ZepStateClientViewV2>& zepStateClientView,
    const Moru::Ptr<VxlanHwStatusDir const>& vxlanHwStatusDir,
    const Moru::Ptr<Mlag::Status const>& mlagStatus,
    const Moru::Ptr<Mlag::VxlanStatus const>& mlagVxlanStatus,
    const Moru::Ptr<Moru::Dir const>& zepStateBaseDir,
    const Moru::Ptr<VlanVniMaps const>& vlanVniMaps, const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde,
    const Moru::Ptr<L2Rib::HostInput>& l2RibZepInput,
    const Moru::Ptr<VxlanClientConvergenceStatus>& zepConvergenceStatus) {
  return vxlanControllerClientSmFactory(
      {vtiStatusDir, controllerStatusBaseDir, zepStateClientView, vxlanHwStatusDir, mlagStatus,
       mlagVxlanStatus, zepStateBaseDir, vlanVniMaps, zepSde, l2RibZepInput, zepConvergenceStatus});
}

}  // namespace Vxlan
