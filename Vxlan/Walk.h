// The switch's tables, to be walked in the order of insertion; an input that is absent is an empty
// table. Members may come and go meanwhile, and the table itself.
//
//   for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps())) ...
#pragma once

#include "framework/Moru/Ptr.h"
#include "model/Vxlan/VlanVniMaps.h"
#include "model/Vxlan/VtiStatusDir.h"

namespace Vxlan {

inline const Moru::HashMap<Vorn::IntfId, VlanVniMap>& vlanVniMapsOf(
    const Moru::Ptr<VlanVniMaps const>& maps) {
  static const Moru::HashMap<Vorn::IntfId, VlanVniMap> none;
  return maps ? maps->vlanVniMap() : none;
}

inline const Moru::HashMap<Vorn::IntfId, VtiStatus>& vtiStatusesOf(
    const Moru::Ptr<VtiStatusDir const>& dir) {
  static const Moru::HashMap<Vorn::IntfId, VtiStatus> none;
  return dir ? dir->vtiStatus() : none;
}

}  // namespace Vxlan
