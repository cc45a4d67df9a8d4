// Asks a running agent, and shows what it answers.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>

#include "agent/base/ExitStatus.h"

namespace Agent {

struct Question {
  std::string control;  // the socket; empty: the only one of the machine
  std::string what;     // hosts, floods, problems, doctor, explain, status or release
  std::string mac;      // hosts, explain: of this one alone; empty: all
  std::optional<std::uint32_t> vlan{};  // explain: in this one alone
  std::optional<std::uint32_t> vni{};
  bool json = false;  // the answer as it comes
};

// Returns `failed` if the doctor has found a difference without a reason, else `done`.
// Throws std::system_error if no agent answers, InputError where it is not clear which, or where
// the agent does not understand.
ExitStatus ask(const Question& question, std::ostream& out);

// Where the sockets of a machine's agents are, NAME.sock each.
inline constexpr const char* controlDirectory = "/run/vxlan-agent";

}  // namespace Agent
