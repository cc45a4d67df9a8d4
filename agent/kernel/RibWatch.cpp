#include "agent/kernel/RibWatch.h"

namespace Agent::Kernel {

RibWatch::RibWatch(const Rib& rib) {
  hostsIs_(rib.hosts);
  mapsIs_(rib.vlanVniMaps);
  vtisIs_(rib.vtis);
  for (const auto& [key, host] : rib.hosts->host()) changes_.hosts.push_back(key);
  floodSets_ =
      Moru::create<FloodSetsWatch>(rib.floodSets, static_cast<FloodSetsWatch::Listener&>(*this));
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
