// The VTEPs over any one of which a MAC is reached, as the controller says.
#pragma once

#include <cstddef>
#include <ostream>

#include "model/Vorn/EthAddr.h"
#include "model/VxlanController/VtepIpList.h"

namespace VxlanController {

struct MacVtepMultiPathV2 {
  MacVtepMultiPathV2() = default;
  explicit MacVtepMultiPathV2(const Vorn::EthAddr& mac) : macAddr(mac) {}

  std::size_t vtepIpLists() const { return vtepIpList.size(); }

  // Whether the value is empty: no VTEP is listed, whatever MAC it carries.
  bool operator!() const { return vtepIpList.empty(); }

  friend bool operator==(const MacVtepMultiPathV2&, const MacVtepMultiPathV2&) = default;

  Vorn::EthAddr macAddr;
  // The addresses are what counts; the flag says nothing to the client.
  VtepIpList vtepIpList;
};

// "02:00:00:00:00:01 vteps 10.0.0.2 10.0.0.3"
std::ostream& operator<<(std::ostream& out, const MacVtepMultiPathV2& multiPath);

}  // namespace VxlanController
