// How a recording ends: what the client has made of all of it.
#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "agent/view/Snapshot.h"

namespace Agent {

// Of a journal, played on a store of its own, or of saved output of a replay or an agent, whose
// last dump it is; "-" is the standard input. With `keepGoing` exceptions are told on `errors`, and
// what follows is played. Nothing if the replay has failed, which is told.
// Throws InputError for output that is none, and what a file throws that cannot be read.
std::optional<Snapshot> endState(const std::string& path, bool keepGoing, std::ostream& errors);

}  // namespace Agent
