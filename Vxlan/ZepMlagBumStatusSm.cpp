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
  for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps)) vtiVlanVniMapIs(map);
  for (auto map = vtiVlanVniMap().begin(); map; ++map)
    if (!vlanVniMaps->vlanVniMap(map.key())) vtiVlanVniMapDel(map.key());
  if (const auto remote = remoteSde()) {
    for (const auto& [vlan, floodSets] : remote->vlanFloodSet()) vlanFloodSetIs(floodSets);
    for (auto vlan = vlanFloodSet().begin(); vlan; ++vlan)
      if (!remote->vlanFloodSet(vlan.key())) vlanFloodSetDel(vlan.key());
  }
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
  handleBumReplicationMode();
  for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps()))
    for (auto vlan = map->vlanToVsp().begin(); vlan; ++vlan) markAndSweep(vlan.key());
}

// --- Replication modes ---

void ZepMlagBumStatusSm::MoruRemoteBumStatus::onAttribute(Moru::AttributeId attribute,
                                                          const void*) {
  if (attribute == Moru::idOf<&BumStatus::bumReplicationMode>)
    machine()->handleBumReplicationMode();
}

void ZepMlagBumStatusSm::MoruLocalBumStatus::onAttribute(Moru::AttributeId attribute, const void*) {
  if (attribute == Moru::idOf<&BumStatus::bumReplicationMode>)
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
  if (attribute != Moru::idOf<&VlanVniMaps::vlanVniMap>) return;
  const Vorn::IntfId& intf = *Moru::keyOf<&VlanVniMaps::vlanVniMap>(key);
  if (const auto map = notifier()->vlanVniMap(intf))
    machine()->vtiVlanVniMapIs(map);
  else
    machine()->vtiVlanVniMapDel(intf);
}

void ZepMlagBumStatusSm::MoruVtiVlanVniMap::onAttribute(Moru::AttributeId attribute,
                                                        const void* key) {
  if (attribute == Moru::idOf<&VlanVniMap::vlanToVsp>)
    handleVlanVniMapUpdate(*Moru::keyOf<&VlanVniMap::vlanToVsp>(key));
}

// A VLAN without a VNI keeps what has been copied; it is not followed until it has one again.
void ZepMlagBumStatusSm::MoruVtiVlanVniMap::handleVlanVniMapUpdate(Bridging::VlanId vlan) {
  MORU_TRACE(8, "handleVlanVniMapUpdate", vlan);
  const auto reactor = machine()->vlanFloodSet(vlan);
  if (!reactor) return;
  if (!notifier()->vlanToVsp(vlan))
    reactor->initializedIs(false);
  else
    reactor->handleVfsInit();
}

bool ZepMlagBumStatusSm::isMapped(const Bridging::VlanId& vlan) const {
  for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps()))
    if (!!map->vlanToVsp(vlan)) return true;
  return false;
}

// --- The peer's VLANs ---

void ZepMlagBumStatusSm::MoruRemoteSde::onAttribute(Moru::AttributeId attribute, const void* key) {
  if (attribute != Moru::idOf<&L2Rib::SourceDirEntry::vlanFloodSet>) return;
  const Bridging::VlanId& vlan = *Moru::keyOf<&L2Rib::SourceDirEntry::vlanFloodSet>(key);
  const Moru::Ptr<L2Rib::SourceDirEntry const> remote(notifier().get());
  if (!isZombie()) machine()->handleVlanFloodSet(vlan);
  if (isZombie()) return;
  if (const auto floodSets = remote->vlanFloodSet(vlan)) machine()->vlanFloodSetIs(floodSets);
  // Asked anew: copying writes, and what comes of that may reach the peer.
  if (!isZombie() && !remote->vlanFloodSet(vlan)) machine()->vlanFloodSetDel(vlan);
}

void ZepMlagBumStatusSm::handleVlanFloodSet(Bridging::VlanId vlan) {
  MORU_TRACE(8, "handleVlanFloodSet", vlan);
  Moru::assertThat(remoteSde() != nullptr, "remoteSde()");
  if (remoteSde()->vlanFloodSet(vlan)) return;
  MORU_TRACE(8, "Deleting local vlanFloodSet");
  if (zepSde_) zepSde_->vlanFloodSetDel(vlan);
}

void ZepMlagBumStatusSm::markAndSweep(Bridging::VlanId vlan) {
  MORU_TRACE(8, "markAndSweep", " vlan=", vlan);
  const auto local = zepSde_ ? zepSde_->vlanFloodSet(vlan) : nullptr;
  if (!local) return;
  Moru::assertThat(remoteSde() != nullptr, "remoteSde()");
  const auto remote = remoteSde()->vlanFloodSet(vlan);
  if (!remote) {
    MORU_TRACE(8, "Sweeping vlan ", vlan);
    zepSde_->vlanFloodSetDel(vlan);
    return;
  }
  for (const auto& [mac, floodSet] : local->floodSet()) {
    if (const auto remoteFloodSet = remote->floodSet(mac)) {
      sweepFloodSet(floodSet, remoteFloodSet, vlan);
    } else {
      MORU_TRACE(8, "Sweeping ", mac, " from vlan ", vlan);
      local->floodSetDel(mac);
    }
  }
}

void ZepMlagBumStatusSm::sweepFloodSet(const Moru::Ptr<L2Rib::FloodSet>& local,
                                       const Moru::Ptr<L2Rib::FloodSet const>& remote,
                                       Bridging::VlanId vlan) {
  for (auto dest = local->destSet().begin(); dest; ++dest) {
    if (remote->destSet(dest.key())) continue;
    MORU_TRACE(8, "Sweeping ", dest.key().stringValue(), " from ", local->macAddr(), " on vlan ",
               vlan);
    local->destSetDel(dest.key());
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
