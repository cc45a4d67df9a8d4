// Which part of what the client has made is shown: that of certain VLANs, VNIs, VTEPs and MACs.
// Within a kind any of the values will do; of each kind that is given there must be one.
#pragma once

#include <optional>
#include <set>
#include <span>
#include <string>

#include "model/Bridging/VlanId.h"
#include "model/Vorn/EthAddr.h"
#include "model/Vorn/IpGenAddr.h"
#include "model/Vxlan/VniExt.h"

namespace Agent {

struct Snapshot;

struct Filter {
  std::set<Bridging::VlanId> vlans{};
  std::set<Vxlan::VniExt> vnis{};
  std::set<Vorn::IpGenAddr> vteps{};
  std::set<Vorn::EthAddr> macs{};

  // Whether it admits everything.
  bool empty() const { return vlans.empty() && vnis.empty() && vteps.empty() && macs.empty(); }

  // Each looks at its own kinds alone. A VLAN without a VNI has none of the VNIs; of a flood set
  // one of the VTEPs is enough.
  bool admits(const Bridging::VlanId& vlan, const std::optional<Vxlan::VniExt>& vni) const;
  bool admits(const Vorn::EthAddr& mac) const;
  bool admitsAnyOf(std::span<const Vorn::IpGenAddr> vteps) const;

  friend bool operator==(const Filter&, const Filter&) = default;
};

// "VLAN 10 or 20, VTEP 10.0.0.2"
std::string textOf(const Filter& filter);

// Takes out of the snapshot what the filter does not admit, and notes the filter in it. What has
// neither MAC nor VTEP - import VLANs, VNIs, a VLAN without flood sets - is held to the VLANs and
// the VNIs; what is counted or switched of the whole client stays as it is.
void filterBy(const Filter& filter, Snapshot& snapshot);

}  // namespace Agent
