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

inline const auto& vlanVniMapsOf(const Moru::Ptr<VlanVniMaps const>& maps) {
  static const VlanVniMaps none;
  return (maps ? *maps : none).vlanVniMap();
}

inline const auto& vtiStatusesOf(const Moru::Ptr<VtiStatusDir const>& dir) {
  static const VtiStatusDir none;
  return (dir ? *dir : none).vtiStatus();
}

// Where each VTI maps a VNI to: an element for every VTI that has a map, with no VLAN where that
// does not have the VNI.
class VlansOfVni {
 public:
  struct Entry {
    Vorn::IntfId intf;
    Bridging::VlanIdOrNone vlan;
  };

  class Iterator {
   public:
    using Maps = decltype(vlanVniMapsOf(nullptr).begin());

    Iterator(Maps at, const VniExt& vni) : at_(std::move(at)), vni_(vni) {}

    friend bool operator==(const Iterator& it, std::default_sentinel_t) { return !it.at_; }
    Entry operator*() const { return {at_.key(), at_.value()->vniToVlan(vni_)}; }
    Iterator& operator++() {
      ++at_;
      return *this;
    }

   private:
    Maps at_;
    VniExt vni_;
  };

  VlansOfVni(const Moru::Ptr<VlanVniMaps const>& maps, const VniExt& vni)
      : first_(vlanVniMapsOf(maps).begin(), vni) {}

  Iterator begin() const { return first_; }
  static std::default_sentinel_t end() { return std::default_sentinel; }

 private:
  Iterator first_;
};

inline VlansOfVni vlansOfVni(const Moru::Ptr<VlanVniMaps const>& maps, const VniExt& vni) {
  return {maps, vni};
}

}  // namespace Vxlan
