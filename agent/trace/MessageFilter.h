// Which messages are asked for, and those around them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <re2/re2.h>
#include <string>
#include <vector>

#include "agent/trace/TimeBound.h"
#include "framework/Ringlog/Reader.h"
#include "model/Vorn/EthAddr.h"

namespace Agent {

// All that is set must hold.
struct MessageFilterOptions {
  unsigned mostLevel = 9;  // messages of the levels from 0 to this one
  std::string grep{};      // a regular expression (of RE2) that is found in the message; empty: all
  std::optional<Vorn::EthAddr> mac{};
  std::optional<std::uint32_t> vlan{};
  std::optional<std::uint32_t> vni{};
  std::optional<TimeBound> since{};
  std::optional<TimeBound> until{};
};

class MessageFilter {
 public:
  // `options` must outlive it.
  explicit MessageFilter(const MessageFilterOptions& options);

  // Settles what times of a day mean: those of the day of the last message. To be called before the
  // first message is looked at. Returns what is wrong with the options; empty if nothing is.
  std::string begin(std::int64_t lastMessage);

  bool matches(const Ringlog::Message& message) const;

  std::optional<std::int64_t> since() const { return since_; }

 private:
  const MessageFilterOptions& options_;
  RE2 grep_;
  std::optional<std::int64_t> since_;
  std::optional<std::int64_t> until_;
};

// A message of one of several rings.
struct RingMessage {
  const Ringlog::Message* message = nullptr;
  std::size_t ring = 0;
};

// Hands on the messages that match and, of those around them, as many before and after.
class ContextWindow {
 public:
  struct Shown {
    const Ringlog::Message& message;
    std::size_t ring;
    bool isMatch;
    bool beginsGroup;  // messages have been left out before it, behind others that were shown
  };

  ContextWindow(std::size_t around, std::function<void(const Shown&)> show)
      : around_(around), show_(std::move(show)) {}

  // The next message, in the order of time.
  void take(const RingMessage& next, bool isMatch);

 private:
  struct Held {
    Ringlog::Message message;
    std::size_t ring;
  };

  void show(const Ringlog::Message& message, std::size_t ring, bool isMatch);

  const std::size_t around_;
  const std::function<void(const Shown&)> show_;
  std::deque<Held> before_;  // not shown yet
  std::size_t after_ = 0;    // still to be shown
  bool hasShown_ = false;
  bool hasLeftOut_ = false;  // since the last that was shown
};

}  // namespace Agent
