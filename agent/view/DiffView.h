// A difference of two dumps as aligned tables, for people to read.
#pragma once

#include <ostream>

#include "agent/view/Diff.h"
#include "agent/view/TableView.h"

namespace Agent {

// A headline with both dumps, and what changed: flags, then hosts and flood sets that came, went,
// moved to another VTEP, or were marked. The headline ends with "nothing changed" if nothing did.
void printTable(std::ostream& out, const Diff& diff, const TableOptions& options);

}  // namespace Agent
