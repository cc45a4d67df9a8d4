// What a source of state says of the controller's state, in the order in which it says it.
#pragma once

#include <cstdint>
#include <vector>

#include "model/Bridging/VlanId.h"
#include "model/L2Rib/FloodSetType.h"
#include "model/Vorn/EthAddr.h"
#include "model/Vorn/IpAddr.h"
#include "model/Vxlan/VniExt.h"

namespace Agent {

// The one VTI of a live agent, on which all VNIs are mapped.
inline constexpr const char* vtiName = "Vxlan1";

// Who withdraws: the controller no longer says it, or the operator has taken away what it was for.
// What is meant waits like the rest, and no hold comes of it.
enum class Cause : std::uint8_t { controller, meant };

struct FloodList {
  L2Rib::FloodSetType type = L2Rib::FloodSetType::sendToAll;  // or sendToAny
  std::vector<Vorn::IpAddr> vteps;  // ascending, nothing twice, never empty

  friend bool operator==(const FloodList&, const FloodList&) = default;
};

// The new VLAN of a VNI, VTEP of a host or list of a MAC takes the place of the one before. What is
// said already may be said again. Hosts and lists are said of VNIs that have been said, and
// withdrawn before them. While a batch is being said, two VNIs may have one VLAN.
class Announcements {
 public:
  virtual ~Announcements() = default;

  virtual void vniIs(const Vxlan::VniExt& vni, const Bridging::VlanId& vlan) = 0;
  virtual void vniDel(const Vxlan::VniExt& vni, Cause cause) = 0;
  virtual void hostIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac,
                      const Vorn::IpAddr& vtep) = 0;
  virtual void hostDel(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, Cause cause) = 0;
  virtual void listIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac,
                      const FloodList& list) = 0;
  virtual void listDel(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, Cause cause) = 0;
  // The end of a batch.
  virtual void commit() = 0;
};

}  // namespace Agent
