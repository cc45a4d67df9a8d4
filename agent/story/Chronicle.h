// What has happened last, of all MACs: the memory of a running agent, of a bounded size.
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <vector>

#include "agent/story/Event.h"

namespace Agent {

class Chronicle {
 public:
  static constexpr std::size_t defaultMost = std::size_t{1} << 20;

  // Keeps so many events, some 56 bytes each, for which it takes memory as they come.
  explicit Chronicle(std::size_t most = defaultMost) : most_(most) {}

  void add(const Event& event);

  // Those of one MAC, and those of none, the oldest first.
  std::vector<Event> of(const Vorn::EthAddr& mac) const;

  // Since when nothing is missing; nullopt: since the beginning.
  std::optional<double> wholeSince() const;

 private:
  const std::size_t most_;
  std::deque<Event> events_;
  bool isWhole_ = true;
};

}  // namespace Agent
