#include "model/VxlanController/MacVtepV2.h"

namespace VxlanController {

std::ostream& operator<<(std::ostream& out, const MacVtepV2& macVtep) {
  return out << macVtep.macAddr << " vtep " << macVtep.vtepIp << " moveCount " << macVtep.moveCount
             << " hostKind " << macVtep.hostKind;
}

}  // namespace VxlanController
