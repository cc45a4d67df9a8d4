#include "model/L2Rib/Dest.h"

#include <cstdlib>

#include "framework/Moru/Assert.h"

namespace L2Rib {

Dest::Dest(DestId id, DestTag tag) {
  switch (tag) {
    case DestTag::intf:
      *this = Dest(id, Vorn::IntfId());
      break;
    case DestTag::vxlan:
      *this = Dest(id, DestDataVxlan());
      break;
    case DestTag::mpls:
      *this = Dest(id, DestDataMpls());
      break;
    case DestTag::tunnel:
      *this = Dest(id, DestDataTunnel());
      break;
    default:
      id_ = id;
      tag_ = tag;
      hash_ = hashOf(id);
      break;
  }
}

Vorn::IntfId Dest::intf() const {
  Moru::assertThat(tag_ == DestTag::intf, "tag() == DestTag::intf");
  return intf_;
}

DestDataVxlan Dest::vxlan() const {
  Moru::assertThat(tag_ == DestTag::vxlan, "tag() == DestTag::vxlan");
  return {vtepAddr_};
}

DestDataMpls Dest::mpls() const {
  Moru::assertThat(tag_ == DestTag::mpls, "tag() == DestTag::mpls");
  return {intf_, number_};
}

DestDataTunnel Dest::tunnel() const {
  Moru::assertThat(tag_ == DestTag::tunnel, "tag() == DestTag::tunnel");
  return {number_};
}

std::string Dest::stringValue() const {
  switch (tag_) {
    case DestTag::intf:
      return "intf " + intf_.stringValue();
    case DestTag::vxlan:
      return "vxlan " + vtepAddr_.stringValue();
    case DestTag::mpls:
      return "mpls " + intf_.stringValue() + " label " + std::to_string(number_);
    case DestTag::tunnel:
      return "tunnel " + std::to_string(number_);
    default:
      return "tag " + std::to_string(static_cast<unsigned>(tag_));
  }
}

void Dest::refuseTag() const noexcept {
  Moru::assertThat(false, "U32 L2Rib::Dest::hash() const", [this] { return stringValue(); });
  std::abort();
}

}  // namespace L2Rib
