// Walks over the received hosts by who removes or writes them, one after the other.
//
//   for (auto host = hostsOfVlan(table, hostInput, vlan); host; ++host) host.key() ...
//
// A host stands in two tables, the client's own and the layer-2 RIB's, and in both lies anywhere
// among a million: to wait for the memory of each would take longer than all the rest. Such a walk
// knows which keys come next, and has the processor fetch meanwhile what those will touch.
#pragma once

#include <cstddef>
#include <optional>
#include <utility>

#include "framework/Moru/Ptr.h"
#include "model/Bridging/MacVlanPair.h"
#include "model/L2Rib/HostInput.h"
#include "model/Vxlan/ReceivedHostTable.h"

namespace Vxlan {

// Has the processor fetch what is read of a host that will be written or removed soon: of the
// indexes, and when those are there, of the entries. Without a host input, of the table alone.
inline void prefetchHost(const ReceivedHostTable& table, const L2Rib::HostInput* hostInput,
                         const Bridging::MacVlanPair& key) {
  table.receivedEntry().prefetch(key);
  if (hostInput != nullptr) hostInput->host().prefetch(key);
}

inline void prefetchHostEntry(const ReceivedHostTable& table, const L2Rib::HostInput* hostInput,
                              const Bridging::MacVlanPair& key) {
  table.receivedEntry().prefetchElement(key);
  if (hostInput != nullptr) hostInput->host().prefetchElement(key);
}

// Goes where `Walk` goes, an iterator of the table that can look ahead. Keeps both tables alive.
template <class Walk>
class HostWalk {
 public:
  HostWalk(Moru::Ptr<ReceivedHostTable const> table, Moru::Ptr<L2Rib::HostInput const> hostInput,
           Walk walk)
      : table_(std::move(table)), hostInput_(std::move(hostInput)), walk_(std::move(walk)) {
    fetchAhead();
  }

  // As those of the iterator.
  explicit operator bool() const { return static_cast<bool>(walk_); }
  const Bridging::MacVlanPair& key() const { return walk_.key(); }
  const ReceivedEntry& value() const { return walk_.value(); }
  HostWalk& operator++() {
    ++walk_;
    fetchAhead();
    return *this;
  }

 private:
  // How many hosts ahead, in two steps: a lookup reads one thing to find the next.
  static constexpr std::size_t farAhead = 12;
  static constexpr std::size_t nearAhead = 6;

  void fetchAhead() const {
    if (const auto* const key = coming(walk_.ahead(farAhead)))
      prefetchHost(*table_, hostInput_.get(), *key);
    if (const auto* const key = coming(walk_.ahead(nearAhead)))
      prefetchHostEntry(*table_, hostInput_.get(), *key);
  }

  // Of the entries of the whole table those that are marked will go, of a VLAN's keys all.
  static const Bridging::MacVlanPair* coming(const Bridging::MacVlanPair* key) { return key; }
  template <class Entry>
  static const Bridging::MacVlanPair* coming(const std::optional<Entry>& entry) {
    return entry && entry->value.markedForDel ? &entry->key : nullptr;
  }

  Moru::Ptr<ReceivedHostTable const> table_;
  Moru::Ptr<L2Rib::HostInput const> hostInput_;
  Walk walk_;
};

// All hosts from `key` on, of which the marked ones will be removed.
inline auto hostsFrom(const Moru::Ptr<ReceivedHostTable>& table,
                      const Moru::Ptr<L2Rib::HostInput>& hostInput,
                      const Bridging::MacVlanPair& key) {
  return HostWalk(table, hostInput, table->receivedEntry().from(key));
}

// The hosts of one VLAN, all of which will be marked or removed.
inline auto hostsOfVlan(const Moru::Ptr<ReceivedHostTable>& table,
                        const Moru::Ptr<L2Rib::HostInput>& hostInput,
                        const Bridging::VlanId& vlan) {
  return HostWalk(table, hostInput, table->receivedEntry().keysOfGroup(vlan));
}

}  // namespace Vxlan
