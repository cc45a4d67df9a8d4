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

bool ReceivedHostTable::isMarked(const Bridging::MacVlanPair& key) const {
  const ReceivedEntry* const entry = receivedEntry().find(key);
  return entry != nullptr && entry->markedForDel;
}

void ReceivedHostTable::mark(const Bridging::MacVlanPair& key) {
  ReceivedEntry entry = receivedEntry(key);
  if (!entry || entry.markedForDel) return;
  entry.markedForDel = true;
  receivedEntryIs(entry);
  markedForDelCountIs(markedForDelCount() + 1);
}

bool ReceivedHostTable::announce(const ReceivedEntry& entry) {
  const bool wasMarked = isMarked(entry.key);
  receivedEntryIs(entry);
  if (wasMarked) lowerCount();
  return wasMarked;
}

bool ReceivedHostTable::unmark(const Bridging::MacVlanPair& key) {
  const bool wasMarked = isMarked(key);
  if (wasMarked) lowerCount();
  return wasMarked;
}

void ReceivedHostTable::lowerCount() {
  Moru::assertThat(markedForDelCount() != 0, "markedForDelCount()");
  markedForDelCountIs(markedForDelCount() - 1);
}

}  // namespace Vxlan
