// Where the kernel sends frames to.
#pragma once

#include <algorithm>
#include <compare>
#include <cstdint>
#include <vector>

#include "model/Vorn/IpAddr.h"

namespace Agent::Kernel {

// The identifier of a nexthop object that is a group; 0: none.
using GroupId = std::uint32_t;

// Of frames to a unicast MAC: to one VTEP, to any one of a group, or not at all.
struct Route {
  Vorn::IpAddr vtep{};
  GroupId group = 0;

  bool isNone() const { return *this == Route(); }
  // A VTEP cannot take the place of a group in an entry, nor the other way round.
  bool isOtherKind(const Route& other) const { return (group == 0) != (other.group == 0); }
  friend auto operator<=>(const Route&, const Route&) = default;
};

// Of frames that are flooded: to all of these VTEPs, to any one of a group, or not at all.
struct FloodRoute {
  std::vector<Vorn::IpAddr> vteps{};  // ascending
  GroupId group = 0;

  bool isNone() const { return vteps.empty() && group == 0; }
  bool has(const Vorn::IpAddr& vtep) const { return std::ranges::binary_search(vteps, vtep); }
  bool has(const Route& route) const {
    return route.group != 0 ? group == route.group : has(route.vtep);
  }
  friend bool operator==(const FloodRoute&, const FloodRoute&) = default;
};

}  // namespace Agent::Kernel
