#include "model/VxlanController/MacVtepMultiPathV2.h"

namespace VxlanController {

std::ostream& operator<<(std::ostream& out, const MacVtepMultiPathV2& multiPath) {
  out << multiPath.macAddr << " vteps";
  for (const auto& [address, flag] : multiPath.vtepIpList) out << ' ' << address;
  return out;
}

}  // namespace VxlanController
