#include "model/L2Rib/Dest.h"

#include "framework/Moru/Assert.h"
#include "model/Vorn/OneAtATime.h"

namespace L2Rib {

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

std::uint32_t Dest::hash() const noexcept {
  Moru::assertThat(tag_ <= DestTag::other, "U32 L2Rib::Dest::hash() const",
                   [this] { return stringValue(); });
  Vorn::OneAtATime hasher;
  hasher.word(traceValue(id_));
  switch (tag_) {
    case DestTag::intf:
      hasher.word(intf_.hash());
      break;
    case DestTag::vxlan:
      hasher.word(vtepAddr_.hash());
      break;
    case DestTag::mpls:
      hasher.word(intf_.hash());
      hasher.word(number_);
      break;
    case DestTag::tunnel:
      hasher.word(number_);
      break;
    case DestTag::other:
      break;
  }
  return hasher.result();
}

}  // namespace L2Rib
