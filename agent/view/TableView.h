// Dumps as aligned tables, for people to read: a summary first, then flood sets and hosts.
#pragma once

#include <cstddef>
#include <limits>
#include <ostream>
#include <string>

#include "agent/view/Snapshot.h"

namespace Agent {

struct TableOptions {
  static constexpr std::size_t all = std::numeric_limits<std::size_t>::max();

  std::size_t mostRows = 20;  // of each table; what is left out is counted: "... 980 more"
  bool colours = false;       // the terminal's: hosts that are marked, what came, went or changed
};

// For the end of a headline: ", filtered: VLAN 10", or nothing.
std::string filterText(const Filter& filter);

// Hosts of the layer-2 RIB and of the client's host table stand in one table, which remarks on
// those that are marked for deletion, are in one of the two only, or are behind different VTEPs.
// The VNIs of VLANs are shown if the snapshot has them.
void printTable(std::ostream& out, const Snapshot& snapshot, const TableOptions& options);

}  // namespace Agent
