// The remote hosts that the controller has reported, by MAC and VLAN, in the order of the keys.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Collections/GroupedRbTreeMap.h"
#include "framework/Moru/Name.h"
#include "model/Bridging/MacVlanPair.h"
#include "model/Vxlan/ReceivedEntry.h"

namespace Vxlan {

class ReceivedHostTable final : public Moru::EntityOf<ReceivedHostTable> {
 public:
  explicit ReceivedHostTable(Moru::Name name) : name_(std::move(name)) {}

  const Moru::Name& name() const { return name_; }

  // receivedEntryIs(entry) writes the entry under entry.key. receivedEntry().keysOfGroup(vlan)
  // walks the hosts of one VLAN.
  using ReceivedEntries =
      Moru::KeyedAttribute<Moru::GroupedRbTreeMap, Bridging::MacVlanPair, ReceivedEntry, 1>;
  ReceivedEntries receivedEntry{this};
  ReceivedEntries::Is receivedEntryIs{receivedEntry};
  ReceivedEntries::Del receivedEntryDel{receivedEntry};

  std::size_t receivedEntrys() const { return receivedEntry().size(); }

  // The number of entries that are marked for deletion. That it stays between 0 and the number of
  // entries is asserted. Those below keep it right; receivedEntryIs() and receivedEntryDel() alone
  // leave it as it is.
  using MarkedForDelCount = Moru::Attribute<std::uint32_t, 2>;
  MarkedForDelCount markedForDelCount{this};
  void markedForDelCountIs(std::uint32_t count);

  bool isMarked(const Bridging::MacVlanPair& key) const;

  // Marks an entry, which is then counted; one that is marked, or not there, stays as it is.
  void mark(const Bridging::MacVlanPair& key);

  // Writes an entry without a mark. True if the one in its place was marked: it no longer counts.
  bool announce(const ReceivedEntry& entry);

  // Takes the mark of an entry that is about to be removed out of the count, which is to come
  // before the removal. True if it was marked.
  bool unmark(const Bridging::MacVlanPair& key);

 private:
  // An entry is written before it is counted anew, and who is told of it in between may mark,
  // announce or remove it in turn: what that means for the count is added up until the first of
  // these is done.
  struct Pending {
    Bridging::MacVlanPair key;
    int change;
    Pending* outer;
  };

  void write(const ReceivedEntry& entry, int change);
  void count(const Bridging::MacVlanPair& key, int change);

  MarkedForDelCount::Is countIs_{markedForDelCount};
  const Moru::Name name_;
  Pending* pending_ = nullptr;  // the innermost
};

}  // namespace Vxlan
