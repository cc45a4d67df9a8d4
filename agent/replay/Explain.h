// `vxlan-agent explain MAC JOURNAL`: plays a journal, and tells the story of one MAC.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

#include "agent/base/ExitStatus.h"
#include "model/Vorn/EthAddr.h"

namespace Agent {

struct ExplainOptions {
  Vorn::EthAddr mac{};
  std::optional<std::uint16_t> vlan{};  // in this one alone
  std::optional<std::uint32_t> vni{};
  bool json = false;
};

// What the replay ends with; `failed` if the journal says nothing of the MAC.
ExitStatus explainJournal(const std::string& path, const ExplainOptions& options, std::ostream& out,
                          std::ostream& errors);

}  // namespace Agent
