// Where a MAC is now, and why; or the first gate that it does not pass. What decides is what the
// client decides by: its modes, import list and machines, and its own predicates.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/store/EmbeddedClient.h"
#include "agent/story/Story.h"
#include "agent/view/Filter.h"
#include "model/Vorn/EthAddr.h"

namespace Agent {

// Of a host the gates are, in the order in which they are looked at:
//
//   notAnnounced, noClient, controllerMode, notInstantiated, notMapped, notImported, notFollowed,
//   dataPathLearning, ownVtep; none if it passes all
//
// and of a flood set, behind those up to notFollowed: replicationMode, overridden, mlagCopy, none.
// What is in the RIB though no VNI that is followed announces it is `kept`. A VNI whose maps hold
// no VLAN that can be is `outOfRange`; what passes all gates and is not in the RIB, `unexplained`.
struct Finding {
  std::string_view gate{};  // a literal; "none": it passes
  std::uint32_t vni = 0;    // 0: of none
  std::uint16_t vlan = 0;
  std::string text{};
};

// One for each VNI that announces the MAC, and each VLAN of it; at least one. Nothing is traced
// meanwhile.
std::vector<Finding> verdictOn(const EmbeddedClient& embedded, const Vorn::EthAddr& mac,
                               const StoryScope& scope = {});

// The filter's VLANs and VNIs, each with those that it is mapped to, as the maps stand.
StoryScope scopeOf(const StateStore& store, const Filter& filter);

}  // namespace Agent
