// Nexthop objects that FDB entries use: a VTEP each, and groups of them.
#pragma once

#include <cstdint>
#include <linux/nexthop.h>
#include <vector>

#include "agent/netlink/Batch.h"
#include "model/Vorn/IpAddr.h"

namespace Agent::Netlink {

// Who has made an object: a number of ours beside those of routing protocols.
inline constexpr std::uint8_t ourProtocol = 201;

struct Nexthop {
  std::uint32_t id = 0;
  bool isOurs = false;
  Vorn::IpAddr via{};                    // of a VTEP
  std::vector<std::uint32_t> members{};  // identifiers, of a group; in the kernel's order
};

// What RTM_NEWNEXTHOP or RTM_DELNEXTHOP says.
Nexthop nexthopOf(const nlmsghdr& message);

// Asks for all of them: with RTM_GETNEXTHOP.
inline constexpr nhmsg allNexthops{};

// Adds a request to make or, with NLM_F_REPLACE, to change an object.
void putNexthop(Batch& batch, std::uint16_t flags, const Nexthop& nexthop);
void deleteNexthop(Batch& batch, std::uint32_t id);

}  // namespace Agent::Netlink
