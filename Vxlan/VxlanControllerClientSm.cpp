#include "Vxlan/VxlanControllerClientSm.h"

#include <array>
#include <cstdlib>
#include <sstream>
#include <utility>

#include "Vxlan/Clocks.h"
#include "Vxlan/Trace.h"
#include "Vxlan/Walk.h"
#include "framework/Moru/Assert.h"
#include "framework/Ringlog/Ring.h"

namespace Vxlan {

namespace {

constexpr const char* traceRingName = "DpxVxlanControllerSm.rlg";
constexpr std::array<std::size_t, 10> traceRingSizes{33, 33, 33, 33, 33,
                                                     33, 33, 33, 33, 33};  // KiB

// An input that is absent is an empty directory. Null if there is no such entry.
Moru::Ptr<Moru::Entity const> entityOf(const Moru::Ptr<Moru::Dir const>& dir,
                                       const Moru::Name& name) {
  return dir ? dir->entityPtr(name) : nullptr;
}

// The VNI that a directory entry is named by: the number that the name begins with, 0 if none.
// Throws RangeException for a number that is no VNI: to follow another VNI than the controller has
// named would be worse than to follow none.
VniExt vniOf(const Moru::Name& name) {
  constexpr int decimal = 10;
  return VniExt(std::strtol(name.stringValue().c_str(), nullptr, decimal));
}

// The way back: the entry that the controller publishes a VNI under.
Moru::Name nameOf(const VniExt& vni) {
  std::ostringstream name;
  name << vni;
  return name.str();
}

}  // namespace

// --- Construction and teardown ---

VxlanControllerClientSm::VxlanControllerClientSm(const ClientInputs& inputs)
    : VxlanControllerClientSm() {
  // Nothing reacts yet: handlers wait for initialized(). The order is that in which the reactors
  // register, and so the order in which one entity that is several inputs tells them.
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
  // Bound once: a switch has its BUM status before it has a client.
  localBumStatusIs(inputs.vxlanHwStatusDir ? inputs.vxlanHwStatusDir->bumStatus() : nullptr);
  unicastDeferredDeleteClockIs(Moru::ActivityFacility::current()->clock());
  bumDeferredDeleteClockIs(Moru::ActivityFacility::current()->clock());
  // Each reactor that this makes folds the modes, which are therefore right before initialization
  // makes the first machine.
  if (inputs.vtiStatusDir) vtiStatus.sync(inputs.vtiStatusDir->vtiStatus());
  handleInitialized();
}

VxlanControllerClientSm::~VxlanControllerClientSm() {
  // From here on nothing that is written comes back to this machine or to one of its children.
  moruDoZombieReactors(true);
  try {
    zepStateSmDel();  // which ends the convergence window for the next client
  } catch (...) {     // of a watcher of the client view: there is nobody left to tell
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
  // Over a table that is still empty: it takes from the layer-2 RIB what an earlier client has left
  // there. What the controller still has comes back within this initialization.
  receivedHostTableToL2RibHostInputSmIs(hostTable_, l2RibZepInput_);
  // The import VLANs come before the VNIs, whose scan looks at them.
  updateAggregateImportVlans();
  handleControllerVniBaseDir();
  handleZepStateBaseDir();
  cacheControllerClientMode();
  cacheDatapathLearningMode();
  updateControllerClientMode();
  // Last: the maps' machines scan for VNIs, and want modes and import VLANs as they are.
  handleVlanVniMapVti();
}

// --- VTI status and client modes ---

void VxlanControllerClientSm::MoruVtiStatusDir::notifierIs(Moru::Ptr<VtiStatusDir const> dir) {
  Reactor::notifierIs(std::move(dir));
  // At construction the VTIs are read when all inputs are there. The VTIs of a directory that was
  // exchanged stay until they are removed.
  if (isZombie() || !machine()->initialized()) return;
  for (const auto& [intf, status] : vtiStatusesOf(notifier())) machine()->vtiStatusIs(status);
}

void VxlanControllerClientSm::MoruVtiStatusDir::onAttribute(Moru::AttributeId attribute,
                                                            const void* key) {
  switch (attribute) {
    case Moru::idOf<&VtiStatusDir::vtiStatus>:
      forward(&MoruVtiStatusDir::moru_handleVtiStatusDir_vtiStatus,
              Moru::keyOf<&VtiStatusDir::vtiStatus>(key));
  }
}

void VxlanControllerClientSm::MoruVtiStatusDir::moru_handleVtiStatusDir_vtiStatus(
    Vorn::IntfId intf) {
  const auto dir = Moru::held(notifier());
  machine()->vtiStatus.follow(dir->vtiStatus(), intf);
}

void VxlanControllerClientSm::MoruVtiStatus::onAttribute(Moru::AttributeId attribute,
                                                         const void* key) {
  switch (attribute) {
    case Moru::idOf<&VtiStatus::controllerClientMode>:
      return forward(&MoruVtiStatus::moru_handleVtiStatus_controllerClientMode);
    case Moru::idOf<&VtiStatus::datapathLearning>:
      return forward(&MoruVtiStatus::moru_handleVtiStatus_datapathLearning);
    case Moru::idOf<&VtiStatus::vccImportVlans>:
      return forward(&MoruVtiStatus::moru_handleVtiStatus_vccImportVlans,
                     Moru::keyOf<&VtiStatus::vccImportVlans>(key));
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

// The two folds differ on purpose: one VTI that wants the controller's hosts is enough to fetch
// them, and one that does not learn in the data path is enough to need them.
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
  // First of all whether the controller converges: it decides how what follows deletes.
  handleZepStateBaseDir();
  if (!vxlanControllerClientMode_) {
    cleanupZepPerVniFdbStatusSm();
    handleMlagState();
    return;
  }
  if (datapathLearningMode_) {
    // What the data path learns now must not be held from the controller, too.
    MORU_TRACE(8, " Deleting remote MACs learnt from ZEP");
    for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps()))
      for (auto vlan = map->vlanToVsp().begin(); vlan; ++vlan)
        deleteRemoteMacFromController(vlan.key(), false);
  }
  handleControllerVniBaseDir();
  handleMlagState();
}

// --- VLAN-VNI maps ---

void VxlanControllerClientSm::MoruVlanVniMaps::onAttribute(Moru::AttributeId attribute,
                                                           const void* key) {
  switch (attribute) {
    case Moru::idOf<&VlanVniMaps::vlanVniMap>:
      forward(&MoruVlanVniMaps::moru_handleVlanVniMaps_vlanVniMap,
              Moru::keyOf<&VlanVniMaps::vlanVniMap>(key));
  }
}

void VxlanControllerClientSm::MoruVlanVniMaps::moru_handleVlanVniMaps_vlanVniMap(
    Vorn::IntfId intf) {
  machine()->handleVlanVniMapVti(intf);
}

// A machine that exists is not told to look again: it watches its map itself. Another map under the
// same VTI is refused, for what the first has led to would be left behind.
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

// The mutators act on a change of membership alone: the union is computed anew, over all VLANs,
// with every VTI that comes or goes.
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
  switch (attribute) {
    case Moru::Dir::entityPtrId:
      forward(&MoruZepStateBaseDir::moru_handleZepStateBaseDir_entityPtr, Moru::Dir::nameOf(key));
  }
}

void VxlanControllerClientSm::MoruZepStateBaseDir::moru_handleZepStateBaseDir_entityPtr(
    Moru::Name name) {
  machine()->handleZepStateBaseDir(std::move(name));
}

void VxlanControllerClientSm::MoruZepStateClientView::onAttribute(Moru::AttributeId attribute,
                                                                  const void*) {
  switch (attribute) {
    case Moru::idOf<&VxlanController::ZepStateClientViewV2::convergenceInProgress>:
      forward(&MoruZepStateClientView::moru_handleZepStateClientView_convergenceInProgress);
  }
}

void VxlanControllerClientSm::MoruZepStateClientView::
    moru_handleZepStateClientView_convergenceInProgress() {
  machine()->handleConvergenceInProgress();
}

void VxlanControllerClientSm::handleZepStateBaseDir() {
  if (!initialized()) return;
  MORU_TRACE(8);
  const auto dir = Moru::held(zepStateBaseDir());
  if (!dir) return;
  for (auto entry = dir->entityPtr().begin(); entry; ++entry) handleZepStateBaseDir(entry.key());
}

void VxlanControllerClientSm::handleZepStateBaseDir(Moru::Name name) {
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
  // A second controller state is refused by the machine that follows the first: which of two would
  // be true, nobody could say.
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
  // Asked anew for each: who watches the first may have begun a convergence, or ended one.
  unicastDeferredDeletionInProgressIs(!converging);
  bumDeferredDeletionInProgressIs(!convergenceInProgress());
  // A batch that is under way stays armed during a new convergence, and finds that out by itself.
  // The flood sets' run starts over after it: VLANs that it has left behind may be stale anew.
  if (convergenceInProgress()) {
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
  switch (attribute) {
    case Moru::Dir::entityPtrId:
      forward(&MoruControllerStatusBaseDir::moru_handleControllerStatusBaseDir_entityPtr,
              Moru::Dir::nameOf(key));
  }
}

void VxlanControllerClientSm::MoruControllerStatusBaseDir::
    moru_handleControllerStatusBaseDir_entityPtr(Moru::Name name) {
  machine()->handleControllerVniBaseDir(std::move(name));
}

void VxlanControllerClientSm::handleControllerVniBaseDir() {
  if (!initialized()) return;
  // Entries may come and go, and the directory itself be exchanged, by what the machines write.
  const auto dir = Moru::held(controllerStatusBaseDir());
  MORU_TRACE(8, "handleControllerVniBaseDir", dir);
  if (!dir) return;
  for (auto entry = dir->entityPtr().begin(); entry; ++entry)
    handleControllerVniBaseDir(entry.key());
}

void VxlanControllerClientSm::handleControllerVniBaseDir(Moru::Name name) {
  MORU_TRACE(8, "handleControllerVniBaseDir", name);
  if (!initialized()) return;
  const auto entity = entityOf(controllerStatusBaseDir(), name);
  VniExt vni;
  bool removeMachine = false;  // looked at after the last VTI, whatever comes first
  if (!entity || !vxlanControllerClientMode_) {
    MORU_TRACE(8, " entry subdir deleted for ", name);
    vni = vniOf(name);
    removeMachine = true;
  } else {
    if (!controllerStatusBaseDir()->entryState(name)) {
      MORU_TRACE(8, " entry subdir added, but not instantiated ", name);
      return;
    }
    MORU_TRACE(8, " entry subdir added ", name);
    const auto status = Moru::dynamicPtrCast<VxlanController::VniFdbStatusV2 const>(entity);
    if (!status) return;
    vni = vniOf(name);
    // A controller that publishes VNI 0, or a name that is no number, is broken in a way that must
    // be seen.
    Moru::assertThat(vni.value() != 0, "!!vniId", [&] { return "entry " + name.stringValue(); });
    for (const auto& [intf, mapped] : vlansOfVni(vlanVniMaps(), vni)) {
      MORU_TRACE(8, "vniId: ", vni, " localmap: ", mapped);
      if (!mapped) continue;
      MORU_TRACE(8, " vni-vlan map found for vni ", vni, "vlanId ", mapped);
      const Bridging::VlanId vlan(mapped.value());
      if (!vccImportVlans_.contains(vlan)) {
        // The machine goes, even where another VTI has just had it made: what is not imported
        // anywhere must not be followed for it.
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
  }
  if (!removeMachine || !zepPerVniFdbStatusSm(vni)) return;
  // The clean-up comes first: it is the machine's hosts and flood sets that it looks for.
  MORU_TRACE(8, " Deleting the corresponding SM");
  cleanupZepPerVniFdbStatusSm(vni, true);
  zepPerVniFdbStatusSmDel(vni);
}

void VxlanControllerClientSm::vxlanControllerScanVniStatus(VniExt vni) {
  MORU_TRACE(8, " Scanning VniStatus for vni ", vni);
  if (const auto machine = zepPerVniFdbStatusSm(vni)) {
    // The whole of it: the VLAN is new to its hosts, and to its lists.
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
  for (const auto& [intf, mapped] : vlansOfVni(vlanVniMaps(), vni)) {
    if (!mapped) continue;
    found = true;
    const Bridging::VlanId vlan(mapped.value());
    if (deferIfConverging && vxlanControllerClientMode_ && convergenceInProgress()) deferred = true;
    deleteRemoteMacFromController(vlan, deferred);
    if (deferred) continue;  // to the deferred deletion after the convergence
    // While MLAG is active the flood sets are the peer's copies, and only what it lacks may go.
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
  forward(&MoruMlagStatus::moru_handleMlagStatus_mlagState);
}

void VxlanControllerClientSm::MoruMlagStatus::onAttribute(Moru::AttributeId attribute,
                                                          const void*) {
  switch (attribute) {
    case Moru::idOf<&Mlag::Status::mlagState>:
      forward(&MoruMlagStatus::moru_handleMlagStatus_mlagState);
  }
}

void VxlanControllerClientSm::MoruMlagStatus::moru_handleMlagStatus_mlagState() {
  machine()->handleMlagState();
}

void VxlanControllerClientSm::MoruLocalBumStatus::notifierIs(Moru::Ptr<BumStatus const> status) {
  Reactor::notifierIs(std::move(status));
  forward(&MoruLocalBumStatus::moru_handleLocalBumStatus_bumReplicationMode);
}

void VxlanControllerClientSm::MoruLocalBumStatus::onAttribute(Moru::AttributeId attribute,
                                                              const void*) {
  switch (attribute) {
    case Moru::idOf<&BumStatus::bumReplicationMode>:
      forward(&MoruLocalBumStatus::moru_handleLocalBumStatus_bumReplicationMode);
  }
}

void VxlanControllerClientSm::MoruLocalBumStatus::moru_handleLocalBumStatus_bumReplicationMode() {
  machine()->handleBumReplicationMode();
}

Mlag::MlagState VxlanControllerClientSm::mlagState() const {
  return mlagStatus() ? mlagStatus()->mlagState() : Mlag::MlagState::disabled;
}

bool VxlanControllerClientSm::isMlagBumWanted() const {
  return vxlanControllerClientMode_ && mlagState() == Mlag::MlagState::active;
}

void VxlanControllerClientSm::handleMlagState() {
  if (!initialized()) return;
  MORU_TRACE(8, "handleMlagState", mlagState());
  // A switch without MLAG says so in its status. Without one, while the controller's hosts are
  // wanted, nobody knows whose the flood sets are.
  Moru::assertThat(!vxlanControllerClientMode_ || mlagStatus() != nullptr, "mlagStatus()");
  if (isMlagBumWanted())
    zepMlagBumStatusSmIs(mlagVxlanStatus_, vxlanHwStatusDir(), vlanVniMaps(), zepSde_);
  // Asked anew: making it writes flood sets, and what comes of that may have ended its reason.
  if (!isMlagBumWanted()) zepMlagBumStatusSmDel();
}

void VxlanControllerClientSm::handleBumReplicationMode() {
  MORU_TRACE(8, "handleBumReplicationMode");
  if (!initialized()) return;
  const BumReplicationMode mode = localBumReplicationMode();
  // In another mode the hardware would send by what is in the flood sets, and nobody keeps them.
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
  // Of another name it is another table: the hosts of the one before are not taken over.
  if (!hostTable_ || hostTable_->name() != name) hostTable_ = Moru::create<ReceivedHostTable>(name);
  return hostTable_;
}

void VxlanControllerClientSm::hostTableDel() { hostTable_ = nullptr; }

bool VxlanControllerClientSm::isVtepIpMine(VniExt, Vorn::IpAddr vtepIp,
                                           Vorn::IntfId vtiIntfId) const {
  MORU_TRACE(8, "vtepIp: ", vtepIp);
  const auto status = vtiStatusDir() ? vtiStatusDir()->vtiStatus(vtiIntfId) : nullptr;
  if (!status) return false;  // a VTI that tells nothing of itself has only remote hosts
  MORU_TRACE(8, "local vtepIp: ", status->localVtepAddr(),
             " local varp vtepIp: ", status->vArpVtepAddr());
  return ownVtep(vtepIp, *status) != OwnVtep::none;
}

VxlanControllerClientSm::OwnVtep VxlanControllerClientSm::ownVtep(const Vorn::IpAddr& vtepIp,
                                                                  const VtiStatus& status) const {
  if (vtepIp == status.localVtepAddr()) return OwnVtep::local;
  if (vtepIp == status.vArpVtepAddr()) return OwnVtep::vArp;
  // The pair is one VTEP to everybody else: what is behind the peer is reached without a tunnel.
  if (!mlagVxlanStatus_) return OwnVtep::none;
  for (const auto& [type, address] : mlagVxlanStatus_->vtepTypeAddr())
    if (address == vtepIp) return OwnVtep::mlag;
  return OwnVtep::none;
}

// --- Factories ---

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
