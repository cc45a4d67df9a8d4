// The remote hosts that the controller has reported, by MAC and VLAN, in the order of the keys.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Name.h"
#include "model/Bridging/MacVlanPair.h"
#include "model/Vxlan/ReceivedEntry.h"
#include "model/Vxlan/VlanIndexedMap.h"

namespace Vxlan {

class ReceivedHostTable final : public Moru::EntityOf<ReceivedHostTable> {
 public:
  explicit ReceivedHostTable(Moru::Name name) : name_(std::move(name)) {}

  const Moru::Name& name() const { return name_; }

  // receivedEntryIs(entry) writes the entry under entry.key. receivedEntry().keysOfVlan(vlan) walks
  // the hosts of one VLAN.
  using ReceivedEntries =
      Moru::KeyedAttribute<VlanIndexedMap, Bridging::MacVlanPair, ReceivedEntry, 1>;
  ReceivedEntries receivedEntry{this};
  ReceivedEntries::Is receivedEntryIs{receivedEntry};
  ReceivedEntries::Del receivedEntryDel{receivedEntry};

  std::size_t receivedEntrys() const { return receivedEntry().size(); }

  // The number of entries that are marked for deletion. Whoever marks an entry or takes a mark away
  // keeps the number right; that it stays between 0 and the number of entries is asserted.
  using MarkedForDelCount = Moru::Attribute<std::uint32_t, 2>;
  MarkedForDelCount markedForDelCount{this};
  void markedForDelCountIs(std::uint32_t count);
  void markedForDelCountInc();
  void markedForDelCountDec();

 private:
  MarkedForDelCount::Is countIs_{markedForDelCount};
  const Moru::Name name_;
};

}  // namespace Vxlan
