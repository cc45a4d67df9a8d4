// The flood sets of one VLAN, by MAC.
#pragma once

#include "framework/Moru/Attribute.h"
#include "model/Bridging/VlanId.h"
#include "model/L2Rib/FloodSet.h"
#include "model/Vorn/EthAddr.h"

namespace L2Rib {

class VlanFloodSet final : public Moru::EntityOf<VlanFloodSet> {
 public:
  explicit VlanFloodSet(const Bridging::VlanId& vlanId) : vlanId_(vlanId) {}

  const Bridging::VlanId& vlanId() const { return vlanId_; }
  const Bridging::VlanId& fwkKey() const { return vlanId_; }

  // floodSetIs(mac) gives the flood set of the MAC, making an empty one if there is none;
  // floodSetIs(floodSet) adds one that has been filled before.
  using FloodSets = Moru::EntityAttribute<Vorn::EthAddr, FloodSet, 1>;
  FloodSets floodSet{this, "L2Rib::VlanFloodSet::floodSet"};
  FloodSets::Is floodSetIs{floodSet};
  FloodSets::Del floodSetDel{floodSet};

 private:
  const Bridging::VlanId vlanId_;
};

}  // namespace L2Rib
