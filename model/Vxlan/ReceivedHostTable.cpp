#include "model/Vxlan/ReceivedHostTable.h"

#include <string>

#include "framework/Moru/Assert.h"

namespace Vxlan {

void ReceivedHostTable::markedForDelCountIs(std::uint32_t count) {
  Moru::assertThat(
      count <= receivedEntrys(), "markedForDelCount() + _markedForDelCount <= receivedEntrys()",
      [&] { return std::to_string(count) + " marked of " + std::to_string(receivedEntrys()); });
  countIs_(count);
}

void ReceivedHostTable::markedForDelCountInc() { markedForDelCountIs(markedForDelCount() + 1); }

void ReceivedHostTable::markedForDelCountDec() {
  Moru::assertThat(markedForDelCount() != 0, "markedForDelCount()");
  markedForDelCountIs(markedForDelCount() - 1);
}

}  // namespace Vxlan
