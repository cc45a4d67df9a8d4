#include "model/Vorn/IpAddr.h"

#include "model/Vorn/IpText.h"

namespace Vorn {

std::optional<IpAddr> IpAddr::parse(std::string_view text) {
  const auto words = Detail::parseAddress<1>(AF_INET, text);
  if (!words) return std::nullopt;
  return IpAddr(words->front());
}

// By hand: addresses are printed by the thousand, into the trace.
std::string IpAddr::stringValue() const {
  constexpr std::uint32_t byte = 0xff;
  std::string text = std::to_string(value_ >> 24);
  for (int shift = 16; shift >= 0; shift -= 8) {
    text += '.';
    text += std::to_string(value_ >> shift & byte);
  }
  return text;
}

}  // namespace Vorn
