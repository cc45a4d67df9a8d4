// The story of one MAC: its events, and what they mean one after the other. That it is announced
// behind another VTEP than before is a move; that it is written without its mark, a return.
//
//   for (const StoryLine& line : storyOf(events, scope)) out << textOf(line);
#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "agent/story/Event.h"

namespace Agent {

// What to tell of: the VLANs and VNIs; nullopt is all of them. What is of neither is told.
struct StoryScope {
  bool has(const Event& event) const {
    if (event.vlan != 0) return !vlans || vlans->contains(event.vlan);
    return event.vni == 0 || !vnis || vnis->contains(event.vni);
  }

  std::optional<std::set<std::uint16_t>> vlans{};
  std::optional<std::set<std::uint32_t>> vnis{};
};

struct StoryLine {
  Event event{};
  std::string_view what{};             // a word for programs to read, a literal: "moved"
  std::optional<Vorn::IpAddr> from{};  // the VTEP before
  unsigned convergence = 0;            // the one that it is of, counted from 1; 0: none
  std::optional<double> after{};       // seconds since that has ended
};

// `events` are those of one MAC, and of no MAC, the oldest first. Of the latter those are told that
// concern it: convergences and clients, and its VNIs and VLANs, from its own first event on. What
// was written again as it stood is told of the host table, and not of the RIB.
std::vector<StoryLine> storyOf(std::vector<Event> events, const StoryScope& scope = {});

// What happened, without time and line: "moved in VLAN 10 from 10.0.0.2 to 10.0.0.3".
std::string textOf(const StoryLine& line);

}  // namespace Agent
