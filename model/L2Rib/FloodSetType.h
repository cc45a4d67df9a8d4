// Which destinations of a flood set a frame goes to. Any number may come from a peer.
#pragma once

#include <cstdint>
#include <ostream>

namespace L2Rib {

enum class FloodSetType : std::uint32_t { none = 0, sendToAll = 1, sendToAny = 2 };

constexpr std::uint32_t traceValue(FloodSetType value) { return static_cast<std::uint32_t>(value); }

// As its number.
inline std::ostream& operator<<(std::ostream& out, FloodSetType value) {
  return out << std::uint32_t{traceValue(value)};
}

}  // namespace L2Rib
