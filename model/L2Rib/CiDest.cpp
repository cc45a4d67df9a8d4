#include "model/L2Rib/CiDest.h"

#include <algorithm>
#include <string>

#include "framework/Moru/Exception.h"

namespace L2Rib {

Vorn::IpGenAddr CiDest::vtepAddr(CiVtepIndex index) const {
  return index < vtepAddrs_ ? vtepAddr_[index] : Vorn::IpGenAddr();
}

void CiDest::vtepAddrIs(CiVtepIndex index, const Vorn::IpGenAddr& address) {
  if (index >= maxVtepAddrs)
    throw Moru::SizeException("PodArray::set expected size <= " + std::to_string(maxVtepAddrs) +
                              ", instead got " + std::to_string(index + 1));
  vtepAddr_[index] = address;
  vtepAddrs_ = std::max(vtepAddrs_, static_cast<std::uint8_t>(index + 1));
}

}  // namespace L2Rib
