#include "agent/journal/Journal.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "agent/journal/JsonFault.h"
#include "agent/journal/Path.h"
#include "agent/journal/Values.h"
#include "framework/Moru/Exception.h"

namespace Agent {

namespace {

double timeOf(const Field& field, double before) {
  if (!field.value) return before;
  const double at = toReal(*field.value, field.name);
  if (at < 0) refuse(field.name, *field.value, "a number of seconds, 0 or more");
  if (at < before)
    refuse(field.name, *field.value, "no less than on the line before, " + std::to_string(before));
  return at;
}

void checkTrue(const Field& field) {
  bool flag = false;
  if (field.value->get(flag) != simdjson::SUCCESS || !flag)
    refuse(field.name, *field.value, "true");
}

Absent absentOf(const Field& field) {
  std::string expected = "an array of inputs, which are";
  for (const std::string_view name : inputNames) expected.append(" ").append(name);
  Absent absent;
  for (const Json each : toArray(*field.value, field.name, expected)) {
    std::string_view name;
    if (each.get(name) != simdjson::SUCCESS) refuse(field.name, each, expected);
    const auto input = std::ranges::find(inputNames, name);
    if (input == inputNames.end()) refuse("the input", name, expected);
    absent.inputs.set(static_cast<std::size_t>(input - inputNames.begin()));
  }
  return absent;
}

// The one action key that is given.
const Field& onlyAction(std::span<const Field> actions) {
  const Field* action = nullptr;
  for (const Field& each : actions) {
    if (!each.value) continue;
    if (action != nullptr)
      throw InputError("two actions, " + std::string(action->name) + " and " +
                       std::string(each.name) + ": expected one");
    action = &each;
  }
  if (action != nullptr) return *action;
  throw InputError("no action: expected one of set, del, dump, start, stop, absent");
}

Action actionOf(std::span<const Field> actions, const Field& value) {
  const Field& action = onlyAction(actions);
  const bool isSet = action.name == "set";
  if (isSet && !value.value) throw InputError("set has no value: expected what to set the path to");
  if (!isSet && value.value)
    throw InputError("value beside " + std::string(action.name) + ": expected it beside set only");
  if (isSet) return setOf(toText(*action.value, action.name), *value.value);
  if (action.name == "del") return delOf(toText(*action.value, action.name));
  if (action.name == "dump") return Dump{std::string(toText(*action.value, action.name))};
  if (action.name == "absent") return absentOf(action);
  checkTrue(action);
  if (action.name == "start") return Start();
  return Stop();
}

}  // namespace

bool isSkipped(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r");
  return first == std::string_view::npos || text[first] == '#';
}

struct Journal::Parser {
  simdjson::dom::parser json;
};

Journal::Journal(std::istream& in, std::string name)
    : lines_(in), parser_(std::make_unique<Parser>()), name_(std::move(name)) {}

Journal::~Journal() = default;

std::string Journal::place() const { return name_ + ':' + std::to_string(number()); }

std::optional<Line> Journal::next() {
  while (const auto text = lines_.next())
    if (!isSkipped(*text)) return parse(*text);
  return std::nullopt;
}

bool Journal::findStart() {
  for (;;) {
    try {
      const auto text = lines_.next();
      if (!text) return false;
      // Nearly all lines are passed over unparsed. A key may be written with escapes.
      const bool mayStart = text->find("start") != std::string_view::npos ||
                            text->find('\\') != std::string_view::npos;
      if (mayStart && !isSkipped(*text) && std::holds_alternative<Start>(parse(*text).action))
        return true;
    } catch (const InputError&) {
    } catch (const Moru::Exception&) {
    }
  }
}

Line Journal::parse(std::string_view text) {
  constexpr bool copyForPadding = false;
  Json json;
  const auto error = parser_->json.parse(text.data(), text.size(), copyForPadding).get(json);
  if (error != simdjson::SUCCESS || !json.is_object()) throw InputError(jsonFault(text));
  const auto fields =
      fieldsOf(json, "line", "at", "set", "del", "dump", "start", "stop", "absent", "value");
  at_ = timeOf(fields.front(), at_);
  const std::span<const Field> actions(fields.begin() + 1, fields.end() - 1);
  return {number(), at_, actionOf(actions, fields.back())};
}

}  // namespace Agent
