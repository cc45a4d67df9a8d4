#include "model/Vxlan/ReceivedEntry.h"

namespace Vxlan {

std::ostream& operator<<(std::ostream& out, const ReceivedEntry& entry) {
  return out << entry.key << " vti " << entry.vtiIntfId << " vtep " << entry.vtepAddr << " source "
             << entry.source << " moveCount " << entry.moveCount << " hostKind "
             << unsigned{entry.hostKind} << " time " << entry.time
             << (entry.markedForDel ? " marked for deletion" : "");
}

}  // namespace Vxlan
