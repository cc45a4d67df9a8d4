#include "agent/kernel/RibWatch.h"

namespace Agent::Kernel {

RibWatch::RibWatch(const Rib& rib) {
  hostsIs_(rib.hosts);
  floodSetsIs_(rib.floodSets);
  mapsIs_(rib.vlanVniMaps);
  vtisIs_(rib.vtis);
  for (const auto& [key, host] : rib.hosts->host()) changes_.hosts.push_back(key);
  vlanFloodSet_.sync(rib.floodSets->vlanFloodSet());
  map_.sync(rib.vlanVniMaps->vlanVniMap());
  vti_.sync(rib.vtis->vtiStatus());
  changes_.maps = true;
  changes_.vtis = true;
}

RibWatch::~RibWatch() { moruDoZombieReactors(true); }

void RibWatch::MoruHosts::onAttribute(Moru::AttributeId, const void* key) {
  forward(&MoruHosts::moru_handleHosts_host, Moru::keyOf<&L2Rib::HostInput::host>(key));
}

void RibWatch::MoruHosts::moru_handleHosts_host(Bridging::MacVlanPair key) {
  machine()->changes_.hosts.push_back(key);
}

void RibWatch::MoruFloodSets::onAttribute(Moru::AttributeId, const void* key) {
  forward(&MoruFloodSets::moru_handleFloodSets_vlanFloodSet,
          Moru::keyOf<&L2Rib::SourceDirEntry::vlanFloodSet>(key));
}

// What was there has changed, and what is there now.
void RibWatch::MoruFloodSets::moru_handleFloodSets_vlanFloodSet(Bridging::VlanId vlan) {
  auto& reactors = machine()->vlanFloodSet_;
  if (const auto present = reactors(vlan)) present->noteAll();
  reactors.follow(notifier()->vlanFloodSet(), vlan);
}

void RibWatch::MoruVlanFloodSet::onAttribute(Moru::AttributeId, const void* key) {
  forward(&MoruVlanFloodSet::moru_handleVlanFloodSet_floodSet,
          Moru::keyOf<&L2Rib::VlanFloodSet::floodSet>(key));
}

void RibWatch::MoruVlanFloodSet::moru_handleVlanFloodSet_floodSet(Vorn::EthAddr mac) {
  note(mac);
  floodSet.follow(notifier()->floodSet(), mac);
}

void RibWatch::MoruVlanFloodSet::handleInitialized() {
  vlan_ = notifier()->vlanId();
  handleReplaced();
}

void RibWatch::MoruVlanFloodSet::handleReplaced() {
  floodSet.sync(notifier()->floodSet());
  noteAll();
}

void RibWatch::MoruVlanFloodSet::noteAll() {
  for (const auto& [mac, reactor] : floodSet()) note(mac);
}

// Its type, or one of its destinations.
void RibWatch::MoruVlanFloodSet::MoruFloodSet::onAttribute(Moru::AttributeId, const void*) {
  if (notifier()) machine()->note(fwkKey());
}

void RibWatch::MoruMaps::onAttribute(Moru::AttributeId, const void* key) {
  forward(&MoruMaps::moru_handleMaps_vlanVniMap, Moru::keyOf<&Vxlan::VlanVniMaps::vlanVniMap>(key));
}

void RibWatch::MoruMaps::moru_handleMaps_vlanVniMap(Vorn::IntfId intf) {
  machine()->map_.follow(notifier()->vlanVniMap(), intf);
  machine()->changes_.maps = true;
}

void RibWatch::MoruVtis::onAttribute(Moru::AttributeId, const void* key) {
  forward(&MoruVtis::moru_handleVtis_vtiStatus, Moru::keyOf<&Vxlan::VtiStatusDir::vtiStatus>(key));
}

void RibWatch::MoruVtis::moru_handleVtis_vtiStatus(Vorn::IntfId intf) {
  machine()->vti_.follow(notifier()->vtiStatus(), intf);
  machine()->changes_.vtis = true;
}

}  // namespace Agent::Kernel
