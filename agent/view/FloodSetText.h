// Parts of a flood set as text.
#pragma once

#include <string>

#include "agent/view/Snapshot.h"

namespace Agent {

// The address of a VTEP, "10.0.0.2"; of another destination what it is, "tunnel 7".
std::string destText(const L2Rib::Dest& dest);

// All of them: "10.0.0.2 10.0.0.3", "none" if there are none.
std::string destsText(const FloodSetSnapshot& floodSet);

// "sendToAll", "sendToAny", "none"; "type 7" for a number without a name.
std::string typeText(L2Rib::FloodSetType type);

}  // namespace Agent
