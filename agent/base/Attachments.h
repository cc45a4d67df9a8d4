// Where our VTEP is, and which of its ports belong to which VNIs.
#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <vector>

#include "model/Vorn/IpAddr.h"
#include "model/Vxlan/VniExt.h"

namespace Agent {

// Frames of one tag, at one of our ports, are those of a VNI.
struct Attachment {
  std::string port;       // a name that a network interface can have
  std::uint16_t tag = 0;  // 1 to 4094; 0: untagged
  Vxlan::VniExt vni;      // 1 to 16777215

  friend auto operator<=>(const Attachment&, const Attachment&) = default;
};

struct Attachments {
  std::vector<Vorn::IpAddr> ownAddresses;  // the first is that of our VTEP; empty: none yet
  std::vector<Attachment> ports;           // ascending, no port and tag twice

  friend bool operator==(const Attachments&, const Attachments&) = default;
};

}  // namespace Agent
