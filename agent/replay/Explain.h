// `vxlan-agent explain MAC FILE...`: plays a journal, or reads trace rings, and tells the story of
// one MAC.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "agent/base/ExitStatus.h"
#include "agent/view/Filter.h"
#include "model/Vorn/EthAddr.h"

namespace Agent {

struct ExplainOptions {
  Vorn::EthAddr mac{};
  Filter filter{};        // its VLANs and VNIs
  bool previous = false;  // of rings: also those that stood under their names before
  bool json = false;
};

// Of one journal, or of the rings of an agent. Returns what the replay ends with; `failed` if the
// files say nothing of the MAC; `refused` for a damaged ring; `wrongUsage` for several files that
// are not all rings.
ExitStatus explain(const std::vector<std::string>& files, const ExplainOptions& options,
                   std::ostream& out, std::ostream& errors);

}  // namespace Agent
