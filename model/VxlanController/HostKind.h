// What kind of host the controller says it is. Any number; the client copies it.
#pragma once

#include <cstdint>
#include <ostream>

namespace VxlanController {

enum class HostKind : std::uint8_t { standard = 16 };

constexpr std::uint8_t traceValue(HostKind value) { return static_cast<std::uint8_t>(value); }

// As its number.
inline std::ostream& operator<<(std::ostream& out, HostKind value) {
  return out << std::uint32_t{traceValue(value)};
}

}  // namespace VxlanController
