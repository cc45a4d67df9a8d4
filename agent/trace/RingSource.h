// The rings that a command reads: files, those that stood under their names before, and the
// standard input.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "framework/Ringlog/Reader.h"

namespace Agent {

// The name of the standard input.
inline constexpr const char* standardInput = "-";

// Why a file cannot be read; empty if it can.
std::string whyNotReadable(const std::string& path);

// Never throws: what cannot be read is a problem of the contents.
Ringlog::Contents readRing(const std::string& path);

// The paths, each behind those of its predecessors that are there, the oldest first.
std::vector<std::string> withPredecessors(const std::vector<std::string>& paths);

// A file whose header cannot be read names no process, and says why.
inline bool isRing(const Ringlog::Contents& contents) {
  return contents.process != 0 || contents.problems.empty();
}

// Tells a file from the one that takes its place.
using RingIdentity = std::pair<std::uint64_t, std::uint64_t>;
inline RingIdentity identityOf(const Ringlog::Contents& contents) {
  return {contents.process, contents.opened};
}

}  // namespace Agent
