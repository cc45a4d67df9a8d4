#include "Vxlan/ZepMlagBumStatusSm.h"

#include "Vxlan/Trace.h"
#include "Vxlan/Walk.h"
#include "framework/Moru/Assert.h"

namespace Vxlan {

ZepMlagBumStatusSm::ZepMlagBumStatusSm(const Moru::Ptr<Mlag::VxlanStatus const>& mlagVxlanStatus,
                                       const Moru::Ptr<VxlanHwStatusDir const>& vxlanHwStatusDir,
                                       const Moru::Ptr<VlanVniMaps const>& vlanVniMaps,
                                       const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde)
    : zepSde_(zepSde) {
  mlagVxlanStatusIs(mlagVxlanStatus);
  vxlanHwStatusDirIs(vxlanHwStatusDir);
  vlanVniMapsIs(vlanVniMaps);
  bindPeer();
  vtiVlanVniMap.sync(vlanVniMapsOf(vlanVniMaps));
  if (const auto remote = remoteSde()) vlanFloodSet.sync(remote->vlanFloodSet());
  handleInitialized();
}

ZepMlagBumStatusSm::~ZepMlagBumStatusSm() { moruDoZombieReactors(true); }

bool ZepMlagBumStatusSm::isMadeFrom(const Moru::Ptr<Mlag::VxlanStatus const>& mlagVxlanStatus,
                                    const Moru::Ptr<VxlanHwStatusDir const>& vxlanHwStatusDir,
                                    const Moru::Ptr<VlanVniMaps const>& vlanVniMaps,
                                    const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde) const {
  return this->mlagVxlanStatus() == mlagVxlanStatus &&
         this->vxlanHwStatusDir() == vxlanHwStatusDir && this->vlanVniMaps() == vlanVniMaps &&
         zepSde_ == zepSde;
}

// Once more when the machine initializes itself, and then no more: where the status comes to point
// to another peer, the root makes another machine.
void ZepMlagBumStatusSm::bindPeer() {
  remoteBumStatusIs(mlagVxlanStatus() ? mlagVxlanStatus()->peerBumStatus() : nullptr);
  localBumStatusIs(vxlanHwStatusDir() ? vxlanHwStatusDir()->bumStatus() : nullptr);
  remoteSdeIs(mlagVxlanStatus() ? mlagVxlanStatus()->peerSourceDirEntry() : nullptr);
}

void ZepMlagBumStatusSm::handleInitialized() {
  MORU_TRACE(8, "handleInitialized", initialized());
  Moru::assertThat(mlagVxlanStatus() != nullptr, "mlagVxlanStatus()");
  Moru::assertThat(vxlanHwStatusDir() != nullptr, "vxlanHwStatusDir()");
  bindPeer();
  initializedIs(true);
  // Copied first and swept then, so that what both have is never away in between. A VLAN that two
  // VTIs map is swept twice, and the second time nothing is found.
  handleBumReplicationMode();
  for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps()))
    for (auto vlan = map->vlanToVsp().begin(); vlan; ++vlan) markAndSweep(vlan.key());
}

// --- Replication modes ---

void ZepMlagBumStatusSm::MoruRemoteBumStatus::onAttribute(Moru::AttributeId attribute,
                                                          const void*) {
  switch (attribute) {
    case Moru::idOf<&BumStatus::bumReplicationMode>:
      forward(&MoruRemoteBumStatus::moru_handleRemoteBumStatus_bumReplicationMode);
  }
}

void ZepMlagBumStatusSm::MoruRemoteBumStatus::moru_handleRemoteBumStatus_bumReplicationMode() {
  machine()->handleBumReplicationMode();
}

void ZepMlagBumStatusSm::MoruLocalBumStatus::onAttribute(Moru::AttributeId attribute, const void*) {
  switch (attribute) {
    case Moru::idOf<&BumStatus::bumReplicationMode>:
      forward(&MoruLocalBumStatus::moru_handleLocalBumStatus_bumReplicationMode);
  }
}

void ZepMlagBumStatusSm::MoruLocalBumStatus::moru_handleLocalBumStatus_bumReplicationMode() {
  machine()->handleBumReplicationMode();
}

void ZepMlagBumStatusSm::handleBumReplicationMode() {
  MORU_TRACE(8, "handleBumReplicationMode");
  if (!initialized()) return;
  constexpr BumReplicationMode controller = BumReplicationMode::controller;
  const bool copying = remoteBumStatus() && remoteBumStatus()->bumReplicationMode() == controller &&
                       localBumStatus() && localBumStatus()->bumReplicationMode() == controller;
  // What has been copied stays: the root clears the flood sets when the switch's own mode ends.
  bumRepModeIs(copying ? controller : BumReplicationMode::unknown);
  if (!copying) return;
  for (const auto& [vlan, reactor] : vlanFloodSet()) {
    MORU_TRACE(8, "handling vtep ", vlan);
    reactor->handleVfsInit();
  }
}

// --- VLAN-VNI maps ---

void ZepMlagBumStatusSm::MoruVlanVniMaps::onAttribute(Moru::AttributeId attribute,
                                                      const void* key) {
  switch (attribute) {
    case Moru::idOf<&VlanVniMaps::vlanVniMap>:
      forward(&MoruVlanVniMaps::moru_handleVlanVniMaps_vlanVniMap,
              Moru::keyOf<&VlanVniMaps::vlanVniMap>(key));
  }
}

void ZepMlagBumStatusSm::MoruVlanVniMaps::moru_handleVlanVniMaps_vlanVniMap(Vorn::IntfId intf) {
  machine()->vtiVlanVniMap.follow(notifier()->vlanVniMap(), intf);
}

void ZepMlagBumStatusSm::MoruVtiVlanVniMap::onAttribute(Moru::AttributeId attribute,
                                                        const void* key) {
  switch (attribute) {
    case Moru::idOf<&VlanVniMap::vlanToVsp>:
      forward(&MoruVtiVlanVniMap::moru_handleVtiVlanVniMap_vlanToVsp,
              Moru::keyOf<&VlanVniMap::vlanToVsp>(key));
  }
}

void ZepMlagBumStatusSm::MoruVtiVlanVniMap::moru_handleVtiVlanVniMap_vlanToVsp(
    Bridging::VlanId vlan) {
  handleVlanVniMapUpdate(vlan);
}

// A VLAN without a VNI keeps what has been copied; it is not followed until it has one again.
void ZepMlagBumStatusSm::MoruVtiVlanVniMap::handleVlanVniMapUpdate(Bridging::VlanId vlan) {
  MORU_TRACE(8, "handleVlanVniMapUpdate", vlan);
  const auto reactor = machine()->vlanFloodSet(vlan);
  if (!reactor) return;
  if (!notifier() || !notifier()->vlanToVsp(vlan))
    reactor->initializedIs(false);
  else
    reactor->handleVfsInit();
}

// By any VTI: the flood sets of a VLAN are one, however many VTIs map it.
bool ZepMlagBumStatusSm::isMapped(const Bridging::VlanId& vlan) const {
  for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps()))
    if (!!map->vlanToVsp(vlan)) return true;
  return false;
}

// --- The peer's VLANs ---

void ZepMlagBumStatusSm::MoruRemoteSde::onAttribute(Moru::AttributeId attribute, const void* key) {
  switch (attribute) {
    case Moru::idOf<&L2Rib::SourceDirEntry::vlanFloodSet>:
      forward(&MoruRemoteSde::moru_handleRemoteSde_vlanFloodSet,
              Moru::keyOf<&L2Rib::SourceDirEntry::vlanFloodSet>(key));
  }
}

void ZepMlagBumStatusSm::MoruRemoteSde::moru_handleRemoteSde_vlanFloodSet(Bridging::VlanId vlan) {
  const auto remote = Moru::held(notifier());
  // The switch's own go before their copier, which could not say any more what it has copied.
  machine()->handleVlanFloodSet(vlan);
  if (!isZombie()) machine()->vlanFloodSet.follow(remote->vlanFloodSet(), vlan);
}

void ZepMlagBumStatusSm::handleVlanFloodSet(Bridging::VlanId vlan) {
  MORU_TRACE(8, "handleVlanFloodSet", vlan);
  Moru::assertThat(remoteSde() != nullptr, "remoteSde()");
  if (remoteSde()->vlanFloodSet(vlan)) return;  // copied by its reactor
  MORU_TRACE(8, "Deleting local vlanFloodSet");
  if (zepSde_) zepSde_->vlanFloodSetDel(vlan);
}

void ZepMlagBumStatusSm::markAndSweep(Bridging::VlanId vlan) {
  MORU_TRACE(8, "markAndSweep", " vlan=", vlan);
  const auto local = zepSde_ ? zepSde_->vlanFloodSet(vlan) : nullptr;
  if (!local) return;  // which may be asked before there is a peer
  Moru::assertThat(remoteSde() != nullptr, "remoteSde()");
  const auto remote = remoteSde()->vlanFloodSet(vlan);
  if (!remote) {
    MORU_TRACE(8, "Sweeping vlan ", vlan);
    zepSde_->vlanFloodSetDel(vlan);
    return;
  }
  for (const auto& [mac, floodSet] : local->floodSet()) {
    const auto remoteFloodSet = remote->floodSet(mac);
    if (!remoteFloodSet) {
      MORU_TRACE(8, "Sweeping ", mac, " from vlan ", vlan);
      local->floodSetDel(mac);
      continue;
    }
    for (auto dest = floodSet->destSet().begin(); dest; ++dest) {
      if (remoteFloodSet->destSet(dest.key())) continue;
      MORU_TRACE(8, "Sweeping ", dest.key().stringValue(), " from ", mac, " on vlan ", vlan);
      floodSet->destSetDel(dest.key());
    }
  }
}

Moru::Ptr<ZepMlagBumStatusSm> zepMlagBumStatusSmFactory(
    const Moru::Ptr<Mlag::VxlanStatus const>& mlagVxlanStatus,
    const Moru::Ptr<VxlanHwStatusDir const>& vxlanHwStatusDir,
    const Moru::Ptr<VlanVniMaps const>& vlanVniMaps,
    const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde) {
  return Moru::create<ZepMlagBumStatusSm>(mlagVxlanStatus, vxlanHwStatusDir, vlanVniMaps, zepSde);
}

}  // namespace Vxlan
