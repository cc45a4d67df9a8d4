// `vxlan-agent run`, and the commands that ask the agent that it is.
#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>

#include "agent/command/Command.h"

namespace Agent {

// Adds them to the program, and to `commands` what they do.
void addLiveCommands(CLI::App& program, std::map<std::string, Command>& commands);

// Adds --control, the socket of the agent to ask.
void addControlOption(CLI::App& command, std::string& control);

}  // namespace Agent
