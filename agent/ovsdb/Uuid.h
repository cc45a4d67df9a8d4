// The name of a row, as the server gives it out.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Agent::Ovsdb {

// Spreads keys of one or two words over all bits.
constexpr std::size_t mixed(std::uint64_t high, std::uint64_t low) {
  std::uint64_t word = (high ^ (low << 32 | low >> 32)) * 0x9e3779b97f4a7c15;
  word = (word ^ word >> 29) * 0xbf58476d1ce4e5b9;
  return word ^ word >> 32;
}

// Ordered as its text is.
struct Uuid {
  std::uint64_t high = 0;
  std::uint64_t low = 0;

  // 32 hexadecimal digits in groups of 8, 4, 4, 4 and 12 with hyphens between them; anything else
  // is nothing.
  static std::optional<Uuid> parse(std::string_view text) {
    constexpr std::size_t length = 36;
    if (text.size() != length) return std::nullopt;
    Uuid uuid;
    for (std::size_t at = 0; at < length; ++at) {
      if (isHyphen(at)) {
        if (text[at] != '-') return std::nullopt;
        continue;
      }
      const int digit = digitOf(text[at]);
      if (digit < 0) return std::nullopt;
      std::uint64_t& half = at < length / 2 ? uuid.high : uuid.low;
      half = half << 4 | static_cast<std::uint64_t>(digit);
    }
    return uuid;
  }

  std::string stringValue() const {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (int digit = 0; digit < 32; ++digit) {
      if (isHyphen(text.size())) text += '-';
      const std::uint64_t half = digit < 16 ? high : low;
      text += digits[half >> (60 - digit % 16 * 4) & 0xf];
    }
    return text;
  }

  constexpr std::size_t hash() const noexcept { return mixed(high, low); }

  friend bool operator==(const Uuid&, const Uuid&) = default;
  friend auto operator<=>(const Uuid&, const Uuid&) = default;

 private:
  static constexpr bool isHyphen(std::size_t at) {
    return at == 8 || at == 13 || at == 18 || at == 23;
  }

  static constexpr int digitOf(char text) {
    if (text >= '0' && text <= '9') return text - '0';
    const char lower = static_cast<char>(text | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
  }
};

}  // namespace Agent::Ovsdb
