// What the machines that write flood sets have in common.
#pragma once

#include <cstddef>

#include "framework/Moru/Ptr.h"
#include "model/L2Rib/Dest.h"
#include "model/L2Rib/FloodSet.h"
#include "model/L2Rib/SourceDirEntry.h"
#include "model/Vorn/EthAddr.h"
#include "model/Vorn/IpAddr.h"

namespace Vxlan {

// The destination that stands for a VTEP.
inline L2Rib::Dest destOf(const Vorn::IpAddr& vtep) {
  return {L2Rib::DestId{}, L2Rib::DestDataVxlan{vtep}};
}

// Whether the VTEP of a destination satisfies `isListed(address)`. A destination that the client
// would not have written, of another kind or with an IPv6 address, is on no list.
template <class IsListed>
bool isDestListed(const L2Rib::Dest& dest, IsListed&& isListed) {
  if (dest.tag() != L2Rib::DestTag::vxlan) return false;
  const Vorn::IpGenAddr address = dest.vxlan().vtepAddr;
  return !address.isIp6() && isListed(address.ip4());
}

// The flood set of one MAC in a VLAN, made if need be, and given its type; null without a source
// directory entry.
inline Moru::Ptr<L2Rib::FloodSet> floodSetIs(const Moru::Ptr<L2Rib::SourceDirEntry>& sde,
                                             const Bridging::VlanId& vlan, const Vorn::EthAddr& mac,
                                             L2Rib::FloodSetType type) {
  if (!sde) return nullptr;
  auto floodSet = sde->vlanFloodSetIs(vlan)->floodSetIs(mac);
  floodSet->floodSetTypeIs(type);
  return floodSet;
}

// Removes the destinations of a flood set that `isKept(dest)` says no to, and says how many.
template <class IsKept>
std::size_t sweepDests(const Moru::Ptr<L2Rib::FloodSet>& set, IsKept&& isKept) {
  const auto floodSet = Moru::held(set);
  std::size_t swept = 0;
  for (auto dest = floodSet->destSet().begin(); dest; ++dest) {
    if (isKept(dest.key())) continue;
    floodSet->destSetDel(dest.key());
    ++swept;
  }
  return swept;
}

// Removes the flood set of one MAC from those of its VLAN, and these if it was the last: but for
// those that somebody who watches has put in their place meanwhile.
inline void deleteFloodSet(const Moru::Ptr<L2Rib::SourceDirEntry>& sde,
                           const Moru::Ptr<L2Rib::VlanFloodSet>& vlanFloodSet,
                           const Vorn::EthAddr& mac) {
  vlanFloodSet->floodSetDel(mac);
  const Bridging::VlanId& vlan = vlanFloodSet->vlanId();
  if (vlanFloodSet->floodSet().empty() && sde->vlanFloodSet(vlan) == vlanFloodSet)
    sde->vlanFloodSetDel(vlan);
}

}  // namespace Vxlan
