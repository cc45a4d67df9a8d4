// `vxlan-agent explain MAC JOURNAL`: plays a journal, and tells the story of one MAC.
#pragma once

#include <ostream>
#include <string>

#include "agent/base/ExitStatus.h"
#include "agent/view/Filter.h"
#include "model/Vorn/EthAddr.h"

namespace Agent {

struct ExplainOptions {
  Vorn::EthAddr mac{};
  Filter filter{};  // its VLANs and VNIs
  bool json = false;
};

// What the replay ends with; `failed` if the journal says nothing of the MAC.
ExitStatus explainJournal(const std::string& path, const ExplainOptions& options, std::ostream& out,
                          std::ostream& errors);

}  // namespace Agent
