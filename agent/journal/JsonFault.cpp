#include "agent/journal/JsonFault.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <simdjson.h>

namespace Agent {

namespace {

constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
constexpr const char* oneObject = ": expected one JSON object on the line";

std::string columnText(std::string_view text, std::size_t place) {
  const auto begins = [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; };
  const auto before = std::ranges::count_if(text.substr(0, place), begins);
  return " at column " + std::to_string(before + 1);
}

// The parser's words, without the token that it stumbled over, which may be as long as the line.
std::string reasonOf(std::string_view what) {
  const std::size_t start = what.find(" - ");
  if (start != std::string_view::npos) what.remove_prefix(start + 3);
  const std::size_t token = what.find("; last read: ");
  std::string reason(what.substr(0, token));
  const std::size_t expected = what.rfind("'; expected ");
  if (token != std::string_view::npos && expected != std::string_view::npos)
    reason += what.substr(expected + 1);
  return reason;
}

// Where the grammar is broken, which a second parser tells and the first does not. It keeps
// nothing.
std::optional<std::string> grammarFault(std::string_view text) {
  const auto discard = [](int, nlohmann::json::parse_event_t, nlohmann::json&) { return false; };
  try {
    [[maybe_unused]] const auto nothing = nlohmann::json::parse(text, discard);
  } catch (const nlohmann::json::parse_error& error) {
    const std::size_t place = error.byte > 0 ? error.byte - 1 : 0;
    return "not JSON" + columnText(text, place) + " (" + reasonOf(error.what()) + ')' + oneObject;
  } catch (const nlohmann::json::out_of_range&) {
    return std::nullopt;  // a number, whose grammar is right
  }
  return std::nullopt;
}

std::size_t behindText(std::string_view text, std::size_t quote) {
  std::size_t place = quote + 1;
  while (place < text.size() && text[place] != '"') place += text[place] == '\\' ? 2 : 1;
  return place + 1;
}

// The number that is too large to be read.
std::optional<std::string> numberFault(std::string_view text) {
  simdjson::dom::parser parser;
  std::size_t length = 1;
  for (std::size_t place = 0; place < text.size(); place += length) {
    length = 1;
    if (text[place] == '"') length = behindText(text, place) - place;
    if (text[place] != '-' && (text[place] < '0' || text[place] > '9')) continue;
    length = std::min(text.find_first_not_of("+-.0123456789eE", place), text.size()) - place;
    const std::string number(text.substr(place, length));
    if (parser.parse(number).error() == simdjson::SUCCESS) continue;
    constexpr std::size_t enough = 24;
    return "the number " + number.substr(0, enough) + (length > enough ? "..." : "") +
           columnText(text, place) + " is too large: expected one that fits into 64 bits";
  }
  return std::nullopt;
}

}  // namespace

std::string jsonFault(std::string_view text) {
  if (text.starts_with(byteOrderMark)) return "a byte order mark at column 1: expected none";
  const std::size_t first = std::min(text.find_first_not_of(" \t\r"), text.size() - 1);
  if (text[first] == '[') return "an array" + columnText(text, first) + oneObject;
  if (const auto fault = grammarFault(text)) return *fault;
  if (text[first] != '{') return "no object" + columnText(text, first) + oneObject;
  if (const auto fault = numberFault(text)) return *fault;
  return "nested too deeply: expected at most " + std::to_string(simdjson::DEFAULT_MAX_DEPTH) +
         " levels";
}

}  // namespace Agent
