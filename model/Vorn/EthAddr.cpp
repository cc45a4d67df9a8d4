#include "model/Vorn/EthAddr.h"

#include <charconv>

namespace Vorn {

std::optional<EthAddr> EthAddr::parse(std::string_view text) {
  constexpr int bytes = 6;
  std::uint64_t value = 0;
  for (int i = 0; i < bytes; ++i) {
    const std::string_view field = text.substr(0, text.find(':'));
    if (field.size() > 2) return std::nullopt;
    std::uint8_t byte = 0;
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), byte, 16);
    if (error != std::errc() || end != field.data() + field.size()) return std::nullopt;
    value = value << 8 | byte;
    const bool last = i == bytes - 1;
    if (last != (field.size() == text.size())) return std::nullopt;
    if (!last) text.remove_prefix(field.size() + 1);
  }
  return fromValue(value);
}

std::string EthAddr::stringValue() const {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (int shift = 40; shift >= 0; shift -= 8) {
    if (!text.empty()) text += ':';
    text += digits[value() >> (shift + 4) & 0xf];
    text += digits[value() >> shift & 0xf];
  }
  return text;
}

}  // namespace Vorn
