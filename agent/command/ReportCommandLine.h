// The pages that show what has happened: `vxlan-agent report`, and what `replay --report` writes.
#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>

#include "agent/command/Command.h"
#include "agent/replay/Replay.h"

namespace Agent {

// For one replay, of which it writes the page in the end. Throws at once where `file` can be no
// page.
Watching reportTo(const std::string& file, const std::string& journal);

// Adds `report` to the program, and to `commands` what it does.
void addReport(CLI::App& program, std::map<std::string, Command>& commands);

}  // namespace Agent
