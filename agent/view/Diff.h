// What changed from one snapshot to the next, as plain data. An output that is absent, and the
// tables of a client that does not run, compare as if they were empty; whether the client runs, and
// every mode, is among the flags.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/view/Snapshot.h"

namespace Agent {

template <class Record>
struct Changed {
  Record before;
  Record after;
};

// Of a sorted list: each part keeps the list's order.
template <class Record>
struct ListChanges {
  std::vector<Record> added{};
  std::vector<Record> gone{};
  std::vector<Changed<Record>> changed{};  // of the same key, and different otherwise

  bool empty() const { return added.empty() && gone.empty() && changed.empty(); }
};

struct FlagChange {
  std::string_view name;  // as in a dump, and "clientRunning"; a literal
  std::optional<bool> before;
  std::optional<bool> after;
};

struct DumpId {
  std::string label;
  double at;  // seconds from the start of the recording
  Origin origin{};
};

struct Diff {
  std::optional<DumpId> since{};  // nullopt for the first dump, of which everything is new
  DumpId now;
  Filter filter{};  // of the later one
  std::vector<FlagChange> flags{};
  ListChanges<Bridging::VlanId> vccImportVlans{};
  ListChanges<Vxlan::VniExt> vnis{};
  ListChanges<Vxlan::ReceivedEntry> received{};  // of the client's host table
  ListChanges<L2Rib::Host> hosts{};              // of the layer-2 RIB
  ListChanges<VlanFloodSetSnapshot> floodSets{};

  // Whether nothing changed.
  bool empty() const;
};

struct CompareOptions {
  bool times = true;  // those of hosts; else hosts that differ in nothing but their times are equal
};

// Takes time in proportion to both snapshots, and room to what changed. `before` is null for the
// first dump.
Diff compare(const Snapshot* before, const Snapshot& after, const CompareOptions& options = {});

}  // namespace Agent
