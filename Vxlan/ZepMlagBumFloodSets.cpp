// The copying of ZepMlagBumStatusSm: the reactors on the peer's flood sets.
//
// What they write may end their own reason, down to the machine: a reactor that has been dropped is
// a zombie, and watches nothing. The rule is the same everywhere: a handler does nothing in a
// zombie, and what goes on after a write calls handlers, holds what it walks, or asks again.
#include "Vxlan/FloodSets.h"
#include "Vxlan/Trace.h"
#include "Vxlan/ZepMlagBumStatusSm.h"

namespace Vxlan {

using MoruVlanFloodSet = ZepMlagBumStatusSm::MoruVlanFloodSet;
using MoruFloodSet = MoruVlanFloodSet::MoruFloodSet;

// --- One VLAN ---

void ZepMlagBumStatusSm::MoruVlanFloodSet::onAttribute(Moru::AttributeId attribute,
                                                       const void* key) {
  switch (attribute) {
    case Moru::idOf<&L2Rib::VlanFloodSet::floodSet>:
      forward(&MoruVlanFloodSet::moru_handleVlanFloodSet_floodSet,
              Moru::keyOf<&L2Rib::VlanFloodSet::floodSet>(key));
  }
}

void ZepMlagBumStatusSm::MoruVlanFloodSet::moru_handleVlanFloodSet_floodSet(Vorn::EthAddr mac) {
  const auto peer = Moru::held(notifier());
  handleFloodSet(mac);
  if (!isZombie()) floodSet.follow(peer->floodSet(), mac);
}

// It observes first: what is copied while it comes into being may come back from the peer.
void ZepMlagBumStatusSm::MoruVlanFloodSet::handleInitialized() {
  hasNotificationActiveIs(true);
  handleReplaced();
}

// An entity that takes another's place under its VLAN is copied from the start.
void ZepMlagBumStatusSm::MoruVlanFloodSet::handleReplaced() {
  const auto peer = Moru::held(notifier());
  floodSet.sync(peer->floodSet());
  handleVfsInit();
}

void ZepMlagBumStatusSm::MoruVlanFloodSet::handleVfsInit() {
  if (isZombie()) return;
  MORU_TRACE(8, "handleVfsInit", vlanId());
  if (bumRepMode() != BumReplicationMode::controller || !machine()->initialized()) {
    initializedIs(false);
    MORU_TRACE(8, " bum replication mode: ", bumRepMode(), " init? ", machine()->initialized());
    return;
  }
  if (machine()->isMapped(vlanId())) initializedIs(true);
  // A VLAN that has been followed so far is followed on, mapped or not: what ends that is a change
  // of its mapping.
  if (initialized()) handleFloodSet();
}

void ZepMlagBumStatusSm::MoruVlanFloodSet::handleFloodSet() {
  if (isZombie()) return;
  const auto peer = Moru::held(notifier());
  const auto sde = Moru::held(machine()->zepSde());
  MORU_TRACE(8, "handleFloodSet", peer->vlanId());
  // What stands there already, of the controller's or of an earlier copy, is taken over and not
  // replaced: what both have keeps forwarding.
  localVlanFloodSet_ = sde ? sde->vlanFloodSet(peer->vlanId()) : nullptr;
  if (const auto local = Moru::held(localVlanFloodSet_)) {
    MORU_TRACE(8, "vlanfloodSet of ", peer->vlanId(),
               " pre-exists in L2Rib Sde. Deleting obsolete macs");
    for (const auto& [mac, floodSet] : local->floodSet())
      if (!peer->floodSet(mac)) local->floodSetDel(mac);
  } else if (sde) {
    localVlanFloodSet_ = sde->vlanFloodSetIs(peer->vlanId());
  }
  // All sets first, then what is in them.
  for (const auto& [mac, peerFloodSet] : peer->floodSet()) handleFloodSet(mac);
  for (const auto& [mac, reactor] : floodSet()) reactor->handleFsInit();
}

void ZepMlagBumStatusSm::MoruVlanFloodSet::handleFloodSet(Vorn::EthAddr mac) {
  if (isZombie()) return;
  MORU_TRACE(8, "handleFloodSet", vlanId(), mac);
  if (!isCopied()) {
    MORU_TRACE(8, " bum replication mode: ", bumRepMode(), " init? ", initialized());
    return;
  }
  if (!localVlanFloodSet_) return;
  if (notifier()->floodSet(mac))
    localVlanFloodSet_->floodSetIs(mac);
  else
    localVlanFloodSet_->floodSetDel(mac);
}

// --- One MAC of a VLAN ---

void MoruFloodSet::onAttribute(Moru::AttributeId attribute, const void* key) {
  switch (attribute) {
    case Moru::idOf<&L2Rib::FloodSet::floodSetType>:
      return forward(&MoruFloodSet::moru_handleFloodSet_floodSetType);
    case Moru::idOf<&L2Rib::FloodSet::destSet>:
      return forward(&MoruFloodSet::moru_handleFloodSet_destSet,
                     Moru::keyOf<&L2Rib::FloodSet::destSet>(key));
  }
}

void MoruFloodSet::moru_handleFloodSet_floodSetType() { handleFloodSetType(); }

void MoruFloodSet::moru_handleFloodSet_destSet(L2Rib::Dest dest) { handleDest(dest); }

void MoruFloodSet::handleInitialized() {
  hasNotificationActiveIs(true);
  handleFsInit();
}

void MoruFloodSet::handleReplaced() { handleFsInit(); }

void MoruFloodSet::handleFsInit() {
  if (isZombie()) return;
  MORU_TRACE(8, "handleFsInit");
  if (machine()->isCopied()) handleDest();
}

void MoruFloodSet::handleDest() {
  if (isZombie()) return;
  const auto peer = Moru::held(notifier());
  const auto localVlan = Moru::held(machine()->localVlanFloodSet());
  MORU_TRACE(8, "handleDest", " vlan ", machine()->vlanId(), " mac ", peer->macAddr());
  localFloodSet_ = localVlan ? localVlan->floodSet(peer->macAddr()) : nullptr;
  if (localFloodSet_) {
    MORU_TRACE(8, "floodSet of ", machine()->vlanId(), ":", peer->macAddr(),
               " pre-exists in L2Rib Sde. Deleting obsolete dests");
    sweepDests(localFloodSet_, [&](const L2Rib::Dest& dest) { return peer->destSet(dest); });
  } else if (localVlan) {
    localFloodSet_ = localVlan->floodSetIs(peer->macAddr());
  }
  handleFloodSetType();
  for (auto dest = peer->destSet().begin(); dest; ++dest) handleDest(dest.key());
}

void MoruFloodSet::handleDest(L2Rib::Dest dest) {
  if (isZombie()) return;
  const auto peer = Moru::held(notifier());
  MORU_TRACE(8, "handleDest", machine()->vlanId(), peer->macAddr(), dest.stringValue());
  if (!machine()->isCopied()) {
    MORU_TRACE(8, " bum replication mode: ", machine()->bumRepMode(), " init? ",
               machine()->initialized());
    return;
  }
  if (!localFloodSet_) return;
  // A destination whose flag is false is none: the copy never has such.
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

}  // namespace Vxlan
