#include "agent/journal/Codec.h"

#include <array>
#include <charconv>
#include <nlohmann/json.hpp>

#include "agent/base/JsonText.h"

namespace Agent {

void writeQuoted(std::string& out, std::string_view text) {
  const auto isPlain = [](char each) {
    return each >= ' ' && each <= '~' && each != '"' && each != '\\';
  };
  if (std::ranges::all_of(text, isPlain)) {
    out.append("\"").append(text).append("\"");
    return;
  }
  out += jsonText(text);
}

void writeReal(std::string& out, double number) {
  std::array<char, 32> text;
  const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), number);
  out.append(text.data(), end);
}

}  // namespace Agent
