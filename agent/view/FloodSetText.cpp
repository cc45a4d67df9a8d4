#include "agent/view/FloodSetText.h"

#include "agent/base/Text.h"

namespace Agent {

std::string destText(const L2Rib::Dest& dest) {
  return dest.tag() == L2Rib::DestTag::vxlan ? dest.vxlan().vtepAddr.stringValue()
                                             : dest.stringValue();
}

std::string destsText(const FloodSetSnapshot& floodSet) {
  std::string text;
  for (const L2Rib::Dest& dest : floodSet.dests) appendTo(text, " ", destText(dest));
  return text.empty() ? "none" : text;
}

std::string typeText(L2Rib::FloodSetType type) {
  switch (type) {
    case L2Rib::FloodSetType::none:
      return "none";
    case L2Rib::FloodSetType::sendToAll:
      return "sendToAll";
    case L2Rib::FloodSetType::sendToAny:
      return "sendToAny";
  }
  return "type " + std::to_string(static_cast<std::uint32_t>(type));
}

}  // namespace Agent
