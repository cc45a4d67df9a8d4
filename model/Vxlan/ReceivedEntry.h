// One remote host, as the controller reported it.
#pragma once

#include <cstdint>
#include <ostream>

#include "model/Bridging/MacVlanPair.h"
#include "model/Vorn/IntfId.h"
#include "model/Vorn/IpGenAddr.h"

namespace Vxlan {

// 56 bytes: the small fields stand before the time, where they cost nothing. The default record
// stands for no host, and is what a lookup of an absent key gives.
struct ReceivedEntry {
  Bridging::MacVlanPair key;
  Vorn::IntfId vtiIntfId;  // the VTI whose VLAN-VNI map supplied the VLAN
  std::uint32_t source = 0;
  Vorn::IpGenAddr vtepAddr;  // the remote VTEP behind which the host lives
  std::uint32_t reserved32 = 0;
  std::uint32_t moveCount = 0;  // the controller's sequence number of the host's moves
  std::uint8_t hostKind = 0;
  bool markedForDel = false;  // waits for deferred deletion
  double time = 0;            // when the entry was written, in seconds of the activity facility

  bool operator!() const { return *this == ReceivedEntry(); }
  friend bool operator==(const ReceivedEntry&, const ReceivedEntry&) = default;
};

// "02:00:00:00:00:01 vlan 10 vti Vxlan1 vtep 10.0.0.2 ..."
std::ostream& operator<<(std::ostream& out, const ReceivedEntry& entry);

}  // namespace Vxlan
