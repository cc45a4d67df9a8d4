#include "agent/watch/FloodDests.h"

#include <algorithm>

namespace Agent {

namespace {

bool isVtep(const L2Rib::Dest& dest) { return dest.tag() == L2Rib::DestTag::vxlan; }

Vorn::IpAddr vtepOf(const L2Rib::Dest& dest) { return dest.vxlan().vtepAddr.ip4(); }

}  // namespace

FloodDests::FloodDests(Moru::Ptr<L2Rib::SourceDirEntry const> floodSets, Sink sink)
    : floodSets_(std::move(floodSets)), sink_(std::move(sink)) {
  watch_ = Moru::create<FloodSetsWatch>(floodSets_, static_cast<FloodSetsWatch::Listener&>(*this));
}

Moru::Ptr<L2Rib::FloodSet const> FloodDests::find(const Bridging::VlanId& vlan,
                                                  const Vorn::EthAddr& mac) const {
  const auto vlanFloodSet = floodSets_->vlanFloodSet(vlan);
  if (!vlanFloodSet) return nullptr;
  return vlanFloodSet->floodSet(mac);
}

void FloodDests::floodSetChanged(const Bridging::VlanId& vlan, const Vorn::EthAddr& mac) {
  const Key key(vlan, mac);
  Vteps wanted;
  const auto floodSet = find(vlan, mac);
  if (floodSet)
    for (const auto& [dest, isPresent] : floodSet->destSet())
      if (isPresent && isVtep(dest)) wanted.push_back(vtepOf(dest));
  std::sort(wanted.begin(), wanted.end());
  Vteps& vteps = sets_[key];
  const Vteps before = vteps;
  for (const Vorn::IpAddr& vtep : before)
    if (!std::binary_search(wanted.begin(), wanted.end(), vtep)) remove(key, vteps, vtep);
  for (const Vorn::IpAddr& vtep : wanted) add(key, vteps, vtep);
  if (!floodSet) sets_.erase(key);
}

void FloodDests::destChanged(const Bridging::VlanId& vlan, const Vorn::EthAddr& mac,
                             const L2Rib::Dest& dest) {
  if (!isVtep(dest)) return;
  const Key key(vlan, mac);
  const auto floodSet = find(vlan, mac);
  Vteps& vteps = sets_[key];
  if (floodSet && floodSet->destSet(dest))
    add(key, vteps, vtepOf(dest));
  else
    remove(key, vteps, vtepOf(dest));
}

void FloodDests::add(const Key& key, Vteps& vteps, const Vorn::IpAddr& vtep) {
  const auto at = std::lower_bound(vteps.begin(), vteps.end(), vtep);
  if (at != vteps.end() && *at == vtep) return;
  vteps.insert(at, vtep);
  ++dests_;
  tell(key, vtep, true);
}

void FloodDests::remove(const Key& key, Vteps& vteps, const Vorn::IpAddr& vtep) {
  const auto at = std::lower_bound(vteps.begin(), vteps.end(), vtep);
  if (at == vteps.end() || *at != vtep) return;
  vteps.erase(at);
  --dests_;
  tell(key, vtep, false);
}

void FloodDests::tell(const Key& key, const Vorn::IpAddr& vtep, bool isPresent) {
  if (sink_) sink_({key.first, key.second, vtep, isPresent});
}

}  // namespace Agent
