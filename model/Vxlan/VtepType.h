// What kind of VTEP an address of the switch belongs to. Any number; the client interprets none.
#pragma once

#include <cstdint>
#include <ostream>

namespace Vxlan {

enum class VtepType : std::uint32_t {};

constexpr std::uint32_t traceValue(VtepType value) { return static_cast<std::uint32_t>(value); }

// As its number.
inline std::ostream& operator<<(std::ostream& out, VtepType value) {
  return out << std::uint32_t{traceValue(value)};
}

}  // namespace Vxlan
