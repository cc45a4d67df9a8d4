// Asks a running agent, and shows what it answers.
#pragma once

#include <ostream>
#include <string>

#include "agent/base/ExitStatus.h"
#include "agent/view/Filter.h"
#include "agent/view/Output.h"
#include "agent/view/Snapshot.h"

namespace Agent {

struct AskOptions {
  std::string control{};  // the socket; empty: the only one of the machine
  std::string what{};     // the question
  OutputOptions output{};
};

// Returns `failed` if the doctor has found a difference without a reason, else `done`.
// Throws std::system_error if no agent answers, InputError where it is not clear which, or where
// the agent does not understand.
ExitStatus ask(const AskOptions& options, std::ostream& out);

// What the agent has made by now, from its socket as above.
Snapshot askForDump(const std::string& control, const Filter& filter);

// The data of the agent's report, for a page. Throws as ask() does, and InputError where the agent
// ends in the middle.
std::string askForReport(const std::string& control);

// Where the sockets of a machine's agents are, NAME.sock each.
inline constexpr const char* controlDirectory = "/run/vxlan-agent";

}  // namespace Agent
