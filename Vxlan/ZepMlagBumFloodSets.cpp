// The copying of ZepMlagBumStatusSm: the reactors on the peer's flood sets.
#include "Vxlan/FloodSets.h"
#include "Vxlan/Trace.h"
#include "Vxlan/ZepMlagBumStatusSm.h"

namespace Vxlan {

using MoruVlanFloodSet = ZepMlagBumStatusSm::MoruVlanFloodSet;
using MoruFloodSet = MoruVlanFloodSet::MoruFloodSet;

// --- One VLAN ---

void ZepMlagBumStatusSm::MoruVlanFloodSet::onAttribute(Moru::AttributeId attribute,
                                                       const void* key) {
  if (attribute == Moru::idOf<&L2Rib::VlanFloodSet::floodSet>)
    handlePeerFloodSet(*Moru::keyOf<&L2Rib::VlanFloodSet::floodSet>(key));
}

void ZepMlagBumStatusSm::MoruVlanFloodSet::handlePeerFloodSet(Vorn::EthAddr mac) {
  const Moru::Ptr<L2Rib::VlanFloodSet const> peer = notifier();
  // Someone else may have removed the switch's own; what is written into it would be lost.
  if (isCopied() && !isLocalVlanFloodSetInPlace()) handleFloodSet();
  if (!isZombie()) handleFloodSet(mac);
  if (isZombie()) return;
  if (const auto peerFloodSet = peer->floodSet(mac)) floodSetIs(peerFloodSet);
  if (!isZombie() && !peer->floodSet(mac)) floodSetDel(mac);
}

// It observes first: what is copied while it comes into being may come back from the peer.
void ZepMlagBumStatusSm::MoruVlanFloodSet::handleInitialized() {
  hasNotificationActiveIs(true);
  handleReplaced();
}

// An entity that takes another's place under its VLAN is copied from the start.
void ZepMlagBumStatusSm::MoruVlanFloodSet::handleReplaced() {
  const Moru::Ptr<L2Rib::VlanFloodSet const> peer = notifier();
  for (const auto& [mac, peerFloodSet] : peer->floodSet()) floodSetIs(peerFloodSet);
  for (auto mac = floodSet().begin(); mac; ++mac)
    if (!peer->floodSet(mac.key())) floodSetDel(mac.key());
  handleVfsInit();
}

bool ZepMlagBumStatusSm::MoruVlanFloodSet::isCopied() const {
  return !isZombie() && machine()->bumRepMode() == BumReplicationMode::controller && initialized();
}

void ZepMlagBumStatusSm::MoruVlanFloodSet::handleVfsInit() {
  if (isZombie()) return;
  MORU_TRACE(8, "handleVfsInit", vlanId());
  if (machine()->bumRepMode() != BumReplicationMode::controller || !machine()->initialized()) {
    initializedIs(false);
    MORU_TRACE(8, " bum replication mode: ", machine()->bumRepMode(), " init? ",
               machine()->initialized());
    return;
  }
  if (machine()->isMapped(vlanId())) initializedIs(true);
  // A VLAN that has been followed so far is followed on, mapped or not: what ends that is a change
  // of its mapping.
  if (initialized()) handleFloodSet();
}

void ZepMlagBumStatusSm::MoruVlanFloodSet::handleFloodSet() {
  const Moru::Ptr<L2Rib::VlanFloodSet const> peer = notifier();
  MORU_TRACE(8, "handleFloodSet", peer->vlanId());
  if (!machine()->zepSde()) return;
  bindLocalVlanFloodSet();
  for (auto mac = peer->floodSet().begin(); mac && !isZombie(); ++mac) handleFloodSet(mac.key());
  for (const auto& [mac, reactor] : floodSet()) reactor->handleFsInit();
}

void ZepMlagBumStatusSm::MoruVlanFloodSet::bindLocalVlanFloodSet() {
  const Moru::Ptr<L2Rib::VlanFloodSet const> peer = notifier();
  const Moru::Ptr<L2Rib::SourceDirEntry> sde = machine()->zepSde();
  localVlanFloodSet_ = sde->vlanFloodSet(peer->vlanId());
  if (!localVlanFloodSet_) {
    localVlanFloodSet_ = sde->vlanFloodSetIs(peer->vlanId());
    return;
  }
  MORU_TRACE(8, "vlanfloodSet of ", peer->vlanId(),
             " pre-exists in L2Rib Sde. Deleting obsolete macs");
  const Moru::Ptr<L2Rib::VlanFloodSet> local = localVlanFloodSet_;
  for (auto mac = local->floodSet().begin(); mac; ++mac)
    if (!peer->floodSet(mac.key())) local->floodSetDel(mac.key());
}

void ZepMlagBumStatusSm::MoruVlanFloodSet::handleFloodSet(Vorn::EthAddr mac) {
  MORU_TRACE(8, "handleFloodSet", vlanId(), mac);
  if (!isCopied()) {
    MORU_TRACE(8, " bum replication mode: ", machine()->bumRepMode(), " init? ", initialized());
    return;
  }
  if (!localVlanFloodSet_) return;
  if (notifier()->floodSet(mac))
    localVlanFloodSet_->floodSetIs(mac);
  else
    localVlanFloodSet_->floodSetDel(mac);
}

bool ZepMlagBumStatusSm::MoruVlanFloodSet::isLocalVlanFloodSetInPlace() const {
  const auto& sde = machine()->zepSde();
  return sde && localVlanFloodSet_ && sde->vlanFloodSet(vlanId()) == localVlanFloodSet_;
}

// --- One MAC of a VLAN ---

void MoruFloodSet::onAttribute(Moru::AttributeId attribute, const void* key) {
  switch (attribute) {
    case Moru::idOf<&L2Rib::FloodSet::floodSetType>:
      handleFloodSetType();
      break;
    case Moru::idOf<&L2Rib::FloodSet::destSet>:
      if (machine()->isCopied() && !isLocalFloodSetInPlace())
        machine()->handleFloodSet();
      else
        handleDest(*Moru::keyOf<&L2Rib::FloodSet::destSet>(key));
      break;
    default:
      break;
  }
}

void MoruFloodSet::handleInitialized() {
  hasNotificationActiveIs(true);
  handleFsInit();
}

void MoruFloodSet::handleReplaced() { handleFsInit(); }

void MoruFloodSet::handleFsInit() {
  MORU_TRACE(8, "handleFsInit");
  if (!isZombie() && machine()->isCopied()) handleDest();
}

void MoruFloodSet::handleDest() {
  const Moru::Ptr<L2Rib::FloodSet const> peer = notifier();
  const Moru::Ptr<L2Rib::VlanFloodSet> localVlan = machine()->localVlanFloodSet();
  MORU_TRACE(8, "handleDest", " vlan ", machine()->vlanId(), " mac ", peer->macAddr());
  if (!localVlan) return;
  localFloodSet_ = localVlan->floodSet(peer->macAddr());
  if (localFloodSet_) {
    MORU_TRACE(8, "floodSet of ", machine()->vlanId(), ":", peer->macAddr(),
               " pre-exists in L2Rib Sde. Deleting obsolete dests");
    sweepDests(localFloodSet_, [&](const L2Rib::Dest& dest) { return peer->destSet(dest); });
  } else {
    localFloodSet_ = localVlan->floodSetIs(peer->macAddr());
  }
  handleFloodSetType();
  for (auto dest = peer->destSet().begin(); dest && !isZombie(); ++dest) handleDest(dest.key());
}

void MoruFloodSet::handleDest(L2Rib::Dest dest) {
  const Moru::Ptr<L2Rib::FloodSet const>& peer = notifier();
  MORU_TRACE(8, "handleDest", machine()->vlanId(), peer->macAddr(), dest.stringValue());
  if (!machine()->isCopied()) {
    MORU_TRACE(8, " bum replication mode: ", machine()->machine()->bumRepMode(), " init? ",
               machine()->initialized());
    return;
  }
  if (!localFloodSet_) return;
  if (!peer->destSet(dest))
    localFloodSet_->destSetDel(dest);
  else if (!localFloodSet_->destSet(dest))  // else two that copy each other would never end
    localFloodSet_->destSetIs(dest, true);
}

// Whether or not changes are copied, on purpose: a flood set of the switch that is the copy of one
// of the peer's must not send to one VTEP what that sends to all.
void MoruFloodSet::handleFloodSetType() {
  if (isZombie()) return;
  MORU_TRACE(8, "handleFloodSetType", " vlan ", machine()->vlanId(), " mac ", notifier()->macAddr(),
             " type ", notifier()->floodSetType());
  if (localFloodSet_) localFloodSet_->floodSetTypeIs(notifier()->floodSetType());
}

bool MoruFloodSet::isLocalFloodSetInPlace() const {
  return machine()->isLocalVlanFloodSetInPlace() && localFloodSet_ &&
         machine()->localVlanFloodSet()->floodSet(notifier()->macAddr()) == localFloodSet_;
}

}  // namespace Vxlan
