#include "model/Vorn/IpGenAddr.h"

namespace Vorn {

std::optional<IpGenAddr> IpGenAddr::parse(std::string_view text) {
  if (const auto address = IpAddr::parse(text)) return IpGenAddr(*address);
  if (const auto address = Ip6Addr::parse(text)) return IpGenAddr(*address);
  return std::nullopt;
}

std::string IpGenAddr::stringValue() const {
  return isIp6_ ? ip6().stringValue() : ip4().stringValue();
}

}  // namespace Vorn
