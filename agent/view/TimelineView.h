// The timeline of a replay: a line for each turn of the event loop.
#pragma once

#include <cstddef>
#include <optional>
#include <ostream>

namespace Agent {

struct Turn {
  double at = 0;            // seconds from the start of the recording
  std::size_t hosts = 0;    // in the layer-2 RIB
  std::size_t marked = 0;   // of the client's host table, for deletion
  std::size_t deleted = 0;  // hosts that left the layer-2 RIB since the line before
  std::optional<bool> unicastDeferredDeletion{};  // nullopt: the output is absent
  std::optional<bool> bumDeferredDeletion{};
};

// The titles of the columns, once, before the first turn.
void printTimelineHeader(std::ostream& out);

void printTimeline(std::ostream& out, const Turn& turn);

}  // namespace Agent
