// A trace statement, described once: what its records do not repeat.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "framework/Ringlog/Value.h"

namespace Ringlog {

inline constexpr unsigned mostLevels = 10;
using Levels = std::uint32_t;  // a bit for each level
inline constexpr Levels allLevels = (1U << mostLevels) - 1;

struct Site {
  struct Item {
    Kind kind = Kind::label;
    std::uint8_t size =
        0;  // of a value in bytes; 0 for a label, and for a text, which tells its own
    std::string label;
  };

  unsigned level = 0;
  std::string facility;
  std::string signature;
  std::vector<Item> items;
};

// The signature of a function as both compilers print it: without the blanks that one of them puts
// before & and *, and with one spelling of a namespace without a name.
std::string normalSignature(std::string_view pretty);

// The message: the signature, then labels and values one after the other. One blank stands before
// the first of them unless that is a label that begins with one. Nothing if the bytes are not those
// of such a record.
std::optional<std::string> render(const Site& site, std::span<const std::byte> record);

// A value of a message.
struct LabelledValue {
  std::string label;  // the literals that stand before it; after the last value, those that end it
  Kind kind = Kind::label;
  std::string text{};  // as in the message; empty behind the last value
};

// The values of such a record, each with its label. Labels behind the last value stand as a last
// one, of kind label; all together are the message behind its signature.
std::vector<LabelledValue> valuesOf(const Site& site, std::span<const std::byte> record);

// The form of a site in the ring file.
std::string serialize(const Site& site);
std::optional<Site> deserialize(std::span<const std::byte> bytes);

}  // namespace Ringlog
