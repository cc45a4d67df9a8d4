// The VNI that a VLAN maps to, and who has configured the mapping.
#pragma once

#include <cstdint>
#include <ostream>

#include "model/Vxlan/VniExt.h"

namespace Vxlan {

enum class VniSource : std::uint8_t { none = 0, configured = 1 };

// The default pair is empty: no mapping.
class VniSourcePair {
 public:
  constexpr VniSourcePair() = default;

  // `vni` is stored as it comes; it is checked when it is asked for.
  explicit constexpr VniSourcePair(std::uint32_t vni, VniSource source = VniSource::configured)
      : vni_(vni), source_(source) {}
  explicit constexpr VniSourcePair(VniExt vni, VniSource source = VniSource::configured)
      : VniSourcePair(vni.value(), source) {}

  // Throws RangeException for 4294967295, which a raw table may hold.
  constexpr VniExt vni() const { return VniExt(vni_); }
  constexpr VniSource source() const { return source_; }

  constexpr bool operator!() const { return *this == VniSourcePair(); }
  constexpr std::size_t hash() const noexcept {
    return std::uint64_t{vni_} << 8 | static_cast<std::uint8_t>(source_);
  }

  friend constexpr bool operator==(const VniSourcePair&, const VniSourcePair&) = default;
  friend std::ostream& operator<<(std::ostream& out, const VniSourcePair& pair) {
    return out << pair.vni_;
  }

 private:
  std::uint32_t vni_ = 0;
  VniSource source_ = VniSource::none;
};

}  // namespace Vxlan
