// The identifier of a destination. Any number; those that the client builds have the default, 0.
#pragma once

#include <cstdint>
#include <ostream>

namespace L2Rib {

enum class DestId : std::uint32_t {};

constexpr std::uint32_t traceValue(DestId value) { return static_cast<std::uint32_t>(value); }

// As its number.
inline std::ostream& operator<<(std::ostream& out, DestId value) {
  return out << std::uint32_t{traceValue(value)};
}

}  // namespace L2Rib
