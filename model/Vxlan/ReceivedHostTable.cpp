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
  write(entry, 1);
}

bool ReceivedHostTable::announce(const ReceivedEntry& entry) {
  const bool wasMarked = isMarked(entry.key);
  write(entry, wasMarked ? -1 : 0);
  return wasMarked;
}

bool ReceivedHostTable::unmark(const Bridging::MacVlanPair& key) {
  const bool wasMarked = isMarked(key);
  if (wasMarked) count(key, -1);
  return wasMarked;
}

void ReceivedHostTable::write(const ReceivedEntry& entry, int change) {
  Pending pending{entry.key, change, pending_};
  pending_ = &pending;
  try {
    receivedEntryIs(entry);
  } catch (...) {
    pending_ = pending.outer;
    count(entry.key, pending.change);
    throw;
  }
  pending_ = pending.outer;
  count(entry.key, pending.change);
}

void ReceivedHostTable::count(const Bridging::MacVlanPair& key, int change) {
  for (Pending* each = pending_; each != nullptr; each = each->outer) {
    if (each->key != key) continue;
    each->change += change;
    return;
  }
  Moru::assertThat(change >= 0 || markedForDelCount() != 0, "markedForDelCount()");
  if (change != 0) markedForDelCountIs(markedForDelCount() + static_cast<std::uint32_t>(change));
}

}  // namespace Vxlan
