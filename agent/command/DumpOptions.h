// The options of all that shows dumps: how, and which part of them.
#pragma once

#include <CLI/CLI.hpp>

#include "agent/view/Filter.h"
#include "agent/view/Output.h"

namespace Agent {

// What each of these fills in lives as long as the program that the options are added to.

// --format, --rows and --color, and the filter's.
void addDumpOptions(CLI::App& command, OutputOptions& output);

// --format alone.
void addFormatOption(CLI::App& command, Format& format);

// --vlan, --vni, --vtep and --mac, each as often as is liked.
void addFilterOptions(CLI::App& command, Filter& filter);

// A MAC that stands on the command line without an option.
void addMacArgument(CLI::App& command, Filter& filter);

}  // namespace Agent
