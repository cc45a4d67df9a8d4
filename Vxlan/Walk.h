// The switch's tables, to be walked in the order of insertion; an input that is absent is an empty
// table. Members may come and go meanwhile, and the table itself.
//
// A range-for serves where its body reads the key alone, or the value before anything is written:
// maps of members give copies of both, but the value of a table is a reference, which goes with the
// element. The body of any other walk takes an iterator, and asks it for the key. What holds the
// table is held meanwhile (Moru::held), unless it is an input's, whose absence these handle.
//
//   for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps())) ...
//   for (const auto& [intf, vlan] : vlansOfVni(vlanVniMaps(), vni)) ...
#pragma once

#include <iterator>

#include "framework/Moru/Ptr.h"
#include "model/Vxlan/VlanVniMaps.h"
#include "model/Vxlan/VtiStatusDir.h"

namespace Vxlan {

inline Moru::ConstHashMap<Vorn::IntfId, VlanVniMap> vlanVniMapsOf(
    const Moru::Ptr<VlanVniMaps const>& maps) {
  return maps ? maps->vlanVniMap() : Moru::ConstHashMap<Vorn::IntfId, VlanVniMap>();
}

inline Moru::ConstHashMap<Vorn::IntfId, VtiStatus> vtiStatusesOf(
    const Moru::Ptr<VtiStatusDir const>& dir) {
  return dir ? dir->vtiStatus() : Moru::ConstHashMap<Vorn::IntfId, VtiStatus>();
}

// Where each VTI maps a VNI to: an element for every VTI that has a map, with no VLAN where that
// does not have the VNI.
class VlansOfVni {
 public:
  struct Entry {
    Vorn::IntfId intf;
    Bridging::VlanIdOrNone vlan;
  };

  struct Iterator {
    friend bool operator==(const Iterator& it, std::default_sentinel_t) { return !it.at; }
    Entry operator*() const { return {at.key(), at.value()->vniToVlan(vni)}; }
    Iterator& operator++() {
      ++at;
      return *this;
    }

    Moru::ConstHashMap<Vorn::IntfId, VlanVniMap>::Iterator at;
    VniExt vni;
  };

  VlansOfVni(const Moru::Ptr<VlanVniMaps const>& maps, const VniExt& vni)
      : maps_(vlanVniMapsOf(maps)), vni_(vni) {}

  Iterator begin() const { return {maps_.begin(), vni_}; }
  static std::default_sentinel_t end() { return std::default_sentinel; }

 private:
  Moru::ConstHashMap<Vorn::IntfId, VlanVniMap> maps_;
  VniExt vni_;
};

inline VlansOfVni vlansOfVni(const Moru::Ptr<VlanVniMaps const>& maps, const VniExt& vni) {
  return {maps, vni};
}

}  // namespace Vxlan
