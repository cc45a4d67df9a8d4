// Dumps read back from the JSON that they have been printed as.
#pragma once

#include <optional>
#include <string_view>

#include "agent/journal/Values.h"
#include "agent/view/Filter.h"
#include "agent/view/Snapshot.h"

namespace Agent {

// The snapshot of a dump's line, equal to the one that was printed; "vlanToVni", and what says
// where it is from, may be missing. Throws InputError, which names the place within the dump: a
// value that the data model refuses is one, too.
Snapshot readDump(std::string_view line);

// The same of any line of output; nothing if that is an object other than a dump.
std::optional<Snapshot> readOutput(std::string_view line);

// Whether a line is of what a replay or an agent prints, and not of a journal.
bool isOutput(std::string_view line);

// A filter's kinds, each a value or an array of them, if it is given. Throws InputError.
Filter readFilter(const Field& vlan, const Field& vni, const Field& vtep, const Field& mac);

}  // namespace Agent
