#include "model/Bridging/MacVlanPair.h"

namespace Bridging {

std::ostream& operator<<(std::ostream& out, const MacVlanPair& pair) {
  return out << pair.mac << " vlan " << pair.vlan;
}

}  // namespace Bridging
