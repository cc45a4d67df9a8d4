// The inputs that a client is built from, by the names of its constructor's arguments. A journal
// may have some of them handed over as null.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Agent {

enum class Input : std::uint8_t {
  vtiStatusDir,
  controllerStatusBaseDir,
  zepStateClientView,
  vxlanHwStatusDir,
  mlagStatus,
  mlagVxlanStatus,
  zepStateBaseDir,
  vlanVniMaps,
  zepSde,
  l2RibZepInput,
  zepConvergenceStatus,
};

// In the order of the enumeration.
inline constexpr std::array<std::string_view, 11> inputNames{
    "vtiStatusDir", "controllerStatusBaseDir", "zepStateClientView",  "vxlanHwStatusDir",
    "mlagStatus",   "mlagVxlanStatus",         "zepStateBaseDir",     "vlanVniMaps",
    "zepSde",       "l2RibZepInput",           "zepConvergenceStatus"};

// A bit for each input.
using InputSet = std::bitset<inputNames.size()>;

constexpr std::size_t bitOf(Input input) { return static_cast<std::size_t>(input); }

}  // namespace Agent
