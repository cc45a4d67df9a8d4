// Parsing and printing of addresses by the system's own functions, for the address types.
#pragma once

#include <arpa/inet.h>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Vorn::Detail {

template <std::size_t Words>
std::optional<std::array<std::uint32_t, Words>> parseAddress(int family, std::string_view text) {
  std::array<std::uint32_t, Words> words{};
  // The function reads up to a null byte: one inside the text would end it early.
  if (text.find('\0') != std::string_view::npos) return std::nullopt;
  if (inet_pton(family, std::string(text).c_str(), words.data()) != 1) return std::nullopt;
  for (std::uint32_t& word : words) word = ntohl(word);
  return words;
}

template <std::size_t Words>
std::string addressText(int family, std::array<std::uint32_t, Words> words) {
  for (std::uint32_t& word : words) word = htonl(word);
  std::array<char, INET6_ADDRSTRLEN> text{};
  return inet_ntop(family, words.data(), text.data(), text.size());
}

}  // namespace Vorn::Detail
