// Parts of a flood set as text.
#pragma once

#include <string>
#include <vector>

#include "agent/view/Snapshot.h"

namespace Agent {

// Its destinations, each on its own: VTEPs, and then what is none.
std::vector<std::string> destTexts(const FloodSetSnapshot& floodSet);

// All of them: "10.0.0.2 10.0.0.3", "none" if there are none.
std::string destsText(const FloodSetSnapshot& floodSet);

// "sendToAll", "sendToAny", "none"; "type 7" for a number without a name.
std::string typeText(L2Rib::FloodSetType type);

}  // namespace Agent
