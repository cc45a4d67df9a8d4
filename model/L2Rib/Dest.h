// A destination of a flood set: an identifier, and what its tag says.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "framework/Moru/Hash.h"
#include "model/L2Rib/DestId.h"
#include "model/Vorn/IntfId.h"
#include "model/Vorn/IpGenAddr.h"
#include "model/Vorn/OneAtATime.h"

namespace L2Rib {

enum class DestTag : std::uint8_t { intf = 0, vxlan = 1, mpls = 2, tunnel = 3, other = 4 };

struct DestDataVxlan {
  Vorn::IpGenAddr vtepAddr;
  friend bool operator==(const DestDataVxlan&, const DestDataVxlan&) = default;
};

struct DestDataMpls {
  Vorn::IntfId intf;
  std::uint32_t label = 0;
  friend bool operator==(const DestDataMpls&, const DestDataMpls&) = default;
};

struct DestDataTunnel {
  std::uint32_t tunnel = 0;
  friend bool operator==(const DestDataTunnel&, const DestDataTunnel&) = default;
};

class Dest {
 public:
  Dest() = default;
  Dest(DestId id, const Vorn::IntfId& intf)
      : id_(id), tag_(DestTag::intf), intf_(intf), hash_(hashOf(id, intf.hash())) {}
  Dest(DestId id, const DestDataVxlan& vxlan)
      : id_(id),
        tag_(DestTag::vxlan),
        vtepAddr_(vxlan.vtepAddr),
        hash_(hashOf(id, vxlan.vtepAddr.hash())) {}
  Dest(DestId id, const DestDataMpls& mpls)
      : id_(id),
        tag_(DestTag::mpls),
        intf_(mpls.intf),
        number_(mpls.label),
        hash_(hashOf(id, mpls.intf.hash(), mpls.label)) {}
  Dest(DestId id, const DestDataTunnel& tunnel)
      : id_(id), tag_(DestTag::tunnel), number_(tunnel.tunnel), hash_(hashOf(id, tunnel.tunnel)) {}

  // A destination without a payload, of a tag that may come from anywhere.
  Dest(DestId id, DestTag tag);

  DestId id() const { return id_; }
  DestTag tag() const { return tag_; }

  // The payload; each is only there for its own tag, which is asserted.
  Vorn::IntfId intf() const;
  DestDataVxlan vxlan() const;
  DestDataMpls mpls() const;
  DestDataTunnel tunnel() const;

  // "vxlan 10.0.0.2", and so on by the tag.
  std::string stringValue() const;

  // The one-at-a-time hash (model/Vorn/OneAtATime.h) of the identifier, then of the payload: of an
  // interface and of an address the word that is its own hash, of a label or a tunnel the word
  // itself. A tag above 4 is a fatal assertion.
  // Computed once: destinations are looked up more often than they are made.
  std::uint32_t hash() const noexcept {
    if (tag_ > DestTag::other) [[unlikely]]
      refuseTag();
    return hash_;
  }

  friend bool operator==(const Dest&, const Dest&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Dest& dest) {
    return out << dest.stringValue();
  }

 private:
  template <class... Words>
  static constexpr std::uint32_t hashOf(DestId id, Words... words) {
    Vorn::OneAtATime hasher;
    hasher.word(traceValue(id));
    (hasher.word(words), ...);
    return hasher.result();
  }
  [[noreturn]] void refuseTag() const noexcept;

  DestId id_{};
  DestTag tag_ = DestTag::other;
  Vorn::IntfId intf_;
  Vorn::IpGenAddr vtepAddr_;
  std::uint32_t number_ = 0;
  std::uint32_t hash_ = 0;
};

}  // namespace L2Rib
