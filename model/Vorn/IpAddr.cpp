#include "model/Vorn/IpAddr.h"

#include "model/Vorn/IpText.h"

namespace Vorn {

std::optional<IpAddr> IpAddr::parse(std::string_view text) {
  const auto words = Detail::parseAddress<1>(AF_INET, text);
  if (!words) return std::nullopt;
  return IpAddr(words->front());
}

std::string IpAddr::stringValue() const { return Detail::addressText<1>(AF_INET, {value_}); }

}  // namespace Vorn
