// Prints what is new in a ring file each time that it is read, and in the files that take its
// place.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "agent/trace/RingSource.h"
#include "agent/trace/TraceCommand.h"
#include "agent/trace/TracePrinter.h"

namespace Agent {

class Follower {
 public:
  // Handed the messages that are new, and each reading.
  struct Sinks {
    std::function<void(const std::vector<RingMessage>&)> messages;
    std::function<void(const Ringlog::Contents&)> reading;
  };

  Follower(std::string path, TracePrinter& printer, Sinks sinks)
      : path_(std::move(path)), printer_(printer), sinks_(std::move(sinks)) {}

  void print(const Ringlog::Contents& contents);

  // Reads the file once more. One that is not there, or not yet complete, is on its way.
  void printNews();

  // How long it may take until the next reading, by how much of the file this one found new: an
  // eighth of a level is to be new each time, so that a burst eight times as heavy still fits.
  std::chrono::milliseconds pause() const { return pause_; }

 private:
  void printFormer(const RingIdentity& newest);
  void begin(const Ringlog::Contents& contents);
  void settlePause(const Ringlog::Contents& contents);

  const std::string path_;
  TracePrinter& printer_;
  const Sinks sinks_;
  std::optional<RingIdentity> identity_;
  std::optional<Ringlog::Message> last_;
  std::uint64_t dropped_ = 0;
  std::array<std::uint64_t, Ringlog::mostLevels> written_{};  // bytes, at the last reading
  std::chrono::milliseconds pause_{};
};

}  // namespace Agent
