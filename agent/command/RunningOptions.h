// What every command takes that runs a client.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "agent/trace/TraceStream.h"

namespace Agent {

struct RunningOptions {
  std::optional<double> maxProcessTime{};  // seconds
  std::optional<unsigned> traceLevel{};
  bool traceJson = false;
  std::string ringDirectory{};
};

// How to trace, if that is wanted.
std::optional<TraceStreamOptions> traceOptions(const RunningOptions& options);

// The options live as long as the program that they are added to.
void addRunningOptions(CLI::App& command, RunningOptions& options);

}  // namespace Agent
