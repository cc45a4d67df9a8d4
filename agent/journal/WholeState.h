// The lines that bring a new store, and a new client over it, into the state of others: what a
// recording begins with that begins in the middle.
#pragma once

#include <functional>

#include "agent/journal/Journal.h"
#include "agent/store/EmbeddedClient.h"

namespace Agent {

// Of what a live agent writes: the hardware's replication mode, VTIs, maps, the controller's state
// and its entries. Hosts that are marked for deletion, and destinations that only wait for their
// removal, are announced first and then withdrawn while the controller converges, which makes them
// what they are. The order is the same for the same state.
void writeWholeState(const EmbeddedClient& embedded,
                     const std::function<void(const Action&)>& write);

}  // namespace Agent
