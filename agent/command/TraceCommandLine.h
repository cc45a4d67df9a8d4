// `vxlan-agent trace`.
#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>

#include "agent/command/Command.h"

namespace Agent {

// Adds it to the program, and to `commands` what it does.
void addTrace(CLI::App& program, std::map<std::string, Command>& commands);

}  // namespace Agent
