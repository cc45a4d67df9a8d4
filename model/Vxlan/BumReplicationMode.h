// How broadcast, unknown-unicast and multicast traffic is replicated. Any number may come from the
// hardware; the client knows one, and writes 0 for off.
#pragma once

#include <cstdint>
#include <ostream>

namespace Vxlan {

enum class BumReplicationMode : std::uint32_t { unknown = 0, controller = 3 };

constexpr std::uint32_t traceValue(BumReplicationMode value) {
  return static_cast<std::uint32_t>(value);
}

// As its number.
inline std::ostream& operator<<(std::ostream& out, BumReplicationMode value) {
  return out << std::uint32_t{traceValue(value)};
}

}  // namespace Vxlan
