#include "model/Vorn/Ip6Addr.h"

#include "model/Vorn/IpText.h"

namespace Vorn {

std::optional<Ip6Addr> Ip6Addr::parse(std::string_view text) {
  const auto words = Detail::parseAddress<4>(AF_INET6, text);
  if (!words) return std::nullopt;
  return Ip6Addr(*words);
}

std::string Ip6Addr::stringValue() const { return Detail::addressText(AF_INET6, words_); }

}  // namespace Vorn
