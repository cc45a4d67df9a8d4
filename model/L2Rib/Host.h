// A host of the layer-2 RIB.
#pragma once

#include <array>
#include <cstdint>
#include <ostream>

#include "model/Bridging/MacVlanPair.h"
#include "model/L2Rib/CiDest.h"

namespace L2Rib {

// The default record stands for no host.
struct Host {
  Bridging::MacVlanPair key;
  std::uint32_t moveCount = 0;
  std::uint32_t kind = 0;
  std::uint32_t entryType = 16;
  double time = 0;  // seconds of the activity facility
  std::uint32_t source = 0;
  std::array<std::uint32_t, 3> reserved{};
  CiDest dest;

  bool operator!() const { return *this == Host(); }
  friend bool operator==(const Host&, const Host&) = default;
};

// "02:00:00:00:00:01 vlan 10 kind 16 ... type 1 intf Vxlan1 vteps 10.0.0.2"
std::ostream& operator<<(std::ostream& out, const Host& host);

}  // namespace L2Rib
