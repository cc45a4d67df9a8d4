#include "model/L2Rib/Host.h"

namespace L2Rib {

std::ostream& operator<<(std::ostream& out, const Host& host) {
  return out << host.key << " kind " << host.kind << " entryType " << host.entryType << " source "
             << host.source << " moveCount " << host.moveCount << " time " << host.time << ' '
             << host.dest;
}

}  // namespace L2Rib
