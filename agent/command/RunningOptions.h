// What every command takes that runs a client.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace Agent {

struct RunningOptions {
  std::optional<double> maxProcessTime{};  // seconds
  std::optional<unsigned> traceLevel{};
  std::string ringDirectory{};
};

// The options live as long as the program that they are added to.
void addRunningOptions(CLI::App& command, RunningOptions& options);

}  // namespace Agent
