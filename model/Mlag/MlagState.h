// The state of the MLAG pair. Any number may come from its agent; the client knows one.
#pragma once

#include <cstdint>
#include <ostream>

namespace Mlag {

enum class MlagState : std::uint32_t { disabled = 0, active = 4 };

constexpr std::uint32_t traceValue(MlagState value) { return static_cast<std::uint32_t>(value); }

// As its number.
inline std::ostream& operator<<(std::ostream& out, MlagState value) {
  return out << std::uint32_t{traceValue(value)};
}

}  // namespace Mlag
