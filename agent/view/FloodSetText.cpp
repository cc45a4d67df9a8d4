#include "agent/view/FloodSetText.h"

#include "agent/base/Text.h"

namespace Agent {

std::vector<std::string> destTexts(const FloodSetSnapshot& floodSet) {
  std::vector<std::string> texts;
  texts.reserve(floodSet.vteps.size() + floodSet.others.size());
  for (const Vorn::IpGenAddr& vtep : floodSet.vteps) texts.push_back(vtep.stringValue());
  texts.insert(texts.end(), floodSet.others.begin(), floodSet.others.end());
  return texts;
}

std::string destsText(const FloodSetSnapshot& floodSet) {
  std::string text;
  for (const std::string& dest : destTexts(floodSet)) appendTo(text, " ", dest);
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
