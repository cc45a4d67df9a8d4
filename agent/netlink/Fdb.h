// Entries of the forwarding databases of vxlan devices, and of the bridges that they are ports of.
#pragma once

#include <cstdint>
#include <linux/neighbour.h>

#include "agent/netlink/Batch.h"
#include "model/Vorn/EthAddr.h"
#include "model/Vorn/IpAddr.h"

namespace Agent::Netlink {

// The mark of an entry of ours: this state, and NTF_EXT_LEARNED. Who adds entries by hand with the
// tools at hand, or learns them from other protocols, always has NUD_NOARP or NUD_REACHABLE beside
// it or instead.
inline constexpr std::uint16_t ourState = NUD_PERMANENT;

struct FdbEntry {
  enum class Of : std::uint8_t { device, bridge };

  Of of = Of::device;
  int index = 0;   // of the device
  int bridge = 0;  // its index, for an entry of a bridge
  Vorn::EthAddr mac{};
  Vorn::IpAddr dst{};         // 0.0.0.0: none, or none that is IPv4
  std::uint32_t nexthop = 0;  // its identifier in place of `dst`
  bool isOurs = false;        // has the mark. A bridge shows the flag alone
};

// The kernel keeps where unknown frames are flooded to under the MAC zero; everybody else, under
// the broadcast address. Each turns one into the other, and leaves every other MAC.
Vorn::EthAddr kernelMac(const Vorn::EthAddr& mac);
Vorn::EthAddr floodMac(const Vorn::EthAddr& mac);

// RTM_NEWNEIGH and RTM_DELNEIGH are also of neighbours.
bool isFdbEntry(const nlmsghdr& message);

// What RTM_NEWNEIGH or RTM_DELNEIGH of AF_BRIDGE says.
FdbEntry fdbEntryOf(const nlmsghdr& message);

// Asks for all of them: with RTM_GETNEIGH.
inline constexpr ndmsg allFdbEntries{AF_BRIDGE, 0, 0, 0, 0, 0, 0};

// Which of the two databases a request is for: one, or both.
struct Sides {
  bool device = false;
  bool bridge = false;
};

// Adds a request to set or to delete an entry. `flags` are NLM_F_CREATE and the like; an entry
// without `dst` and `nexthop` is named by its MAC alone.
void putFdb(Batch& batch, std::uint16_t type, std::uint16_t flags, const FdbEntry& entry,
            Sides sides);

}  // namespace Agent::Netlink
