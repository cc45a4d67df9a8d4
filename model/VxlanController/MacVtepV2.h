// Which VTEP a host lives behind, as the controller says.
#pragma once

#include <cstdint>
#include <ostream>

#include "model/Vorn/EthAddr.h"
#include "model/Vorn/IpAddr.h"
#include "model/VxlanController/HostKind.h"

namespace VxlanController {

// The default value means that the controller has no such host.
struct MacVtepV2 {
  Vorn::EthAddr macAddr;
  Vorn::IpAddr vtepIp;
  std::uint32_t moveCount = 0;  // sequence number of the host's moves; wraps around
  HostKind hostKind = HostKind::standard;

  friend bool operator==(const MacVtepV2&, const MacVtepV2&) = default;
};

// "02:00:00:00:00:01 vtep 10.0.0.2 moveCount 0 hostKind 16"
std::ostream& operator<<(std::ostream& out, const MacVtepV2& macVtep);

}  // namespace VxlanController
