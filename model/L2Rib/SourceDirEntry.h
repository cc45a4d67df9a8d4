// The flood sets that one source feeds into the layer-2 RIB, by VLAN. The client's own is an
// output; the MLAG peer's is an input.
#pragma once

#include "framework/Moru/Attribute.h"
#include "model/Bridging/VlanId.h"
#include "model/L2Rib/VlanFloodSet.h"

namespace L2Rib {

class SourceDirEntry final : public Moru::EntityOf<SourceDirEntry> {
 public:
  // vlanFloodSetIs(vlan) gives the VLAN's flood sets, making an empty one if there is none;
  // vlanFloodSetIs(vlanFloodSet) adds one that has been filled before.
  using VlanFloodSets = Moru::EntityAttribute<Bridging::VlanId, VlanFloodSet, 1>;
  VlanFloodSets vlanFloodSet{this, "L2Rib::SourceDirEntry::vlanFloodSet"};
  VlanFloodSets::Is vlanFloodSetIs{vlanFloodSet};
  VlanFloodSets::Del vlanFloodSetDel{vlanFloodSet};
  VlanFloodSets::DelAll vlanFloodSetDelAll{vlanFloodSet};
};

}  // namespace L2Rib
