// The one-at-a-time hash, over bytes: h = (h + b) * 1025, h ^= h >> 6 for each byte b; at the end
// h ^= h >> 11, h *= 32769. All in 32 bits, from 0.
#pragma once

#include <cstdint>
#include <string_view>

namespace Vorn {

class OneAtATime {
 public:
  constexpr void byte(std::uint8_t byte) {
    hash_ = (hash_ + byte) * 1025;
    hash_ ^= hash_ >> 6;
  }

  // The four bytes of a word, the lowest first whatever the machine's own order.
  constexpr void word(std::uint32_t word) {
    for (int shift = 0; shift < 32; shift += 8) byte(static_cast<std::uint8_t>(word >> shift));
  }

  constexpr void text(std::string_view text) {
    for (const char character : text) byte(static_cast<std::uint8_t>(character));
  }

  constexpr std::uint32_t result() const { return (hash_ ^ hash_ >> 11) * 32769; }

 private:
  std::uint32_t hash_ = 0;
};

}  // namespace Vorn
