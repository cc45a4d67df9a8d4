#include "agent/trace/Subjects.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>

namespace Agent {

namespace {

using Ringlog::Kind;
using Ringlog::LabelledValue;

// What the client says before a VLAN or a VNI without calling it one.
constexpr std::array<std::string_view, 9> vlanLabels = {
    "handling vtep ",   "handleVlanVniMapUpdate", "handleVlanFloodSet",
    "handleVfsInit",    "handleFloodSet",         "handleDest",
    "vlanfloodSet of ", "floodSet of ",           " localmap: "};
constexpr std::array<std::string_view, 1> vniLabels = {"Create zepPerVniFdbStatusSm for "};
// Whose texts are names of entries, which are VNIs.
constexpr std::string_view vniNamesMethod = "::handleControllerVniBaseDir(";

bool isLetter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }

// "vlanid" of " vlanId: " and of "vlan_id=".
std::string lastWord(std::string_view label) {
  while (!label.empty() && !isLetter(label.back())) label.remove_suffix(1);
  std::string word;
  for (; !label.empty() && (isLetter(label.back()) || label.back() == '_'); label.remove_suffix(1))
    if (label.back() != '_')
      word += static_cast<char>(std::tolower(static_cast<unsigned char>(label.back())));
  std::ranges::reverse(word);
  return word;
}

bool isNumber(const LabelledValue& value) {
  return value.kind == Kind::unsignedNumber || value.kind == Kind::signedNumber;
}

bool isCalled(const LabelledValue& value, std::string_view name) {
  const std::string word = lastWord(value.label);
  return word == name || word == std::string(name) + "id";
}

template <class Is>
bool anyValue(const Ringlog::Message& message, Is is) {
  return std::ranges::any_of(message.values(), is);
}

// Within a text, and not within a longer address.
bool hasWord(std::string_view text, std::string_view mac) {
  const auto isInside = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == ':';
  };
  for (auto at = text.find(mac); at != std::string_view::npos; at = text.find(mac, at + 1)) {
    const std::string_view rest = text.substr(at + mac.size());
    // The colon of a sentence may follow, one of an address may not.
    const bool goesOn = !rest.empty() && isInside(rest[0]) &&
                        (rest[0] != ':' || (rest.size() > 1 && isInside(rest[1])));
    if ((at == 0 || !isInside(text[at - 1])) && !goesOn) return true;
  }
  return false;
}

std::optional<std::uint32_t> leadingNumber(std::string_view text) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() ? std::optional(number) : std::nullopt;
}

}  // namespace

bool tellsOfMac(const Ringlog::Message& message, const Vorn::EthAddr& mac) {
  const std::string text = mac.stringValue();
  return anyValue(message, [&](const LabelledValue& value) {
    if (value.kind == Kind::eth) return value.text == text;
    if (value.kind == Kind::macVlan) return value.text.starts_with(text + ' ');
    return value.kind == Kind::text && hasWord(value.text, text);
  });
}

bool tellsOfVlan(const Ringlog::Message& message, std::uint32_t vlan) {
  const std::string text = std::to_string(vlan);
  return anyValue(message, [&](const LabelledValue& value) {
    if (value.kind == Kind::macVlan) return value.text.ends_with(" vlan " + text);
    return isNumber(value) && value.text == text &&
           (isCalled(value, "vlan") ||
            std::ranges::find(vlanLabels, value.label) != vlanLabels.end());
  });
}

bool tellsOfVni(const Ringlog::Message& message, std::uint32_t vni) {
  const std::string text = std::to_string(vni);
  const bool hasNames = message.site->signature.find(vniNamesMethod) != std::string::npos;
  return anyValue(message, [&](const LabelledValue& value) {
    if (hasNames && value.kind == Kind::text) return leadingNumber(value.text) == vni;
    return isNumber(value) && value.text == text &&
           (isCalled(value, "vni") || std::ranges::find(vniLabels, value.label) != vniLabels.end());
  });
}

}  // namespace Agent
