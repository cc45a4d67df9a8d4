#include "agent/watch/FloodSetsWatch.h"

namespace Agent {

FloodSetsWatch::FloodSetsWatch(const Moru::Ptr<L2Rib::SourceDirEntry const>& floodSets,
                               Listener& listener)
    : listener_(listener) {
  floodSetsIs_(floodSets);
  vlanFloodSet_.sync(floodSets->vlanFloodSet());
}

FloodSetsWatch::~FloodSetsWatch() { moruDoZombieReactors(true); }

void FloodSetsWatch::MoruFloodSets::onAttribute(Moru::AttributeId, const void* key) {
  forward(&MoruFloodSets::moru_handleFloodSets_vlanFloodSet,
          Moru::keyOf<&L2Rib::SourceDirEntry::vlanFloodSet>(key));
}

// What was there has changed, and what is there now.
void FloodSetsWatch::MoruFloodSets::moru_handleFloodSets_vlanFloodSet(Bridging::VlanId vlan) {
  auto& reactors = machine()->vlanFloodSet_;
  if (const auto present = reactors(vlan)) present->tellAllChanged();
  reactors.follow(notifier()->vlanFloodSet(), vlan);
}

void FloodSetsWatch::MoruVlanFloodSet::onAttribute(Moru::AttributeId, const void* key) {
  forward(&MoruVlanFloodSet::moru_handleVlanFloodSet_floodSet,
          Moru::keyOf<&L2Rib::VlanFloodSet::floodSet>(key));
}

void FloodSetsWatch::MoruVlanFloodSet::moru_handleVlanFloodSet_floodSet(Vorn::EthAddr mac) {
  tellChanged(mac);
  floodSet.follow(notifier()->floodSet(), mac);
}

void FloodSetsWatch::MoruVlanFloodSet::handleInitialized() {
  vlan_ = notifier()->vlanId();
  handleReplaced();
}

void FloodSetsWatch::MoruVlanFloodSet::handleReplaced() {
  floodSet.sync(notifier()->floodSet());
  tellAllChanged();
}

void FloodSetsWatch::MoruVlanFloodSet::tellAllChanged() {
  for (const auto& [mac, reactor] : floodSet()) tellChanged(mac);
}

void FloodSetsWatch::MoruVlanFloodSet::MoruFloodSet::onAttribute(Moru::AttributeId attribute,
                                                                 const void* key) {
  if (!notifier()) return;
  if (attribute == Moru::idOf<&L2Rib::FloodSet::destSet>)
    machine()->tellDest(fwkKey(), *Moru::keyOf<&L2Rib::FloodSet::destSet>(key));
  else
    machine()->tellType(fwkKey());
}

}  // namespace Agent
