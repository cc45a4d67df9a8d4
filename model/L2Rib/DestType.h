// The kind of a host's destination.
#pragma once

#include <cstdint>
#include <ostream>

namespace L2Rib {

enum class DestType : std::uint32_t { none = 0, vtep = 1 };

constexpr std::uint32_t traceValue(DestType value) { return static_cast<std::uint32_t>(value); }

// As its number.
inline std::ostream& operator<<(std::ostream& out, DestType value) {
  return out << std::uint32_t{traceValue(value)};
}

}  // namespace L2Rib
