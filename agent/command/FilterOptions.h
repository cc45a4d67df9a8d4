// The options that choose which part of a dump is shown.
#pragma once

#include <CLI/CLI.hpp>

#include "agent/view/Filter.h"

namespace Agent {

// --vlan, --vni, --vtep and --mac, each as often as is liked. The filter lives as long as the
// program that they are added to.
void addFilterOptions(CLI::App& command, Filter& filter);

// A MAC that stands on the command line without an option.
void addMacArgument(CLI::App& command, Filter& filter);

}  // namespace Agent
