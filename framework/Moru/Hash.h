// Hashing: std::hash for every type that has a member hash(), as the value types do, and the place
// of a hash in a table.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace Moru {

template <class T>
concept HashesItself = requires(const T& value) {
  { value.hash() }
  noexcept->std::convertible_to<std::size_t>;
};

// The top `bits` bits of a hash after multiplicative mixing: the place in a table of 2^bits. Hashes
// may thus be as plain as the value itself.
constexpr std::size_t hashTop(std::size_t hash, unsigned bits) {
  constexpr std::uint64_t goldenRatio = 0x9e3779b97f4a7c15;
  return bits == 0 ? 0 : static_cast<std::size_t>(std::uint64_t{hash} * goldenRatio >> (64 - bits));
}

}  // namespace Moru

template <Moru::HashesItself T>
struct std::hash<T> {
  std::size_t operator()(const T& value) const noexcept { return value.hash(); }
};
