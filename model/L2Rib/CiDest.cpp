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

std::ostream& operator<<(std::ostream& out, const CiDest& dest) {
  out << "type " << dest.type() << " intf " << dest.intfId() << " vteps";
  for (CiVtepIndex index = 0; index < dest.vtepAddrs(); ++index) out << ' ' << dest.vtepAddr(index);
  return out;
}

}  // namespace L2Rib
