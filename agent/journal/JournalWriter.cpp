#include "agent/journal/JournalWriter.h"

#include <string_view>
#include <variant>

#include "agent/journal/Codec.h"
#include "agent/journal/Path.h"

namespace Agent {

namespace {

void writeKey(std::string& out, std::string_view key) {
  writeQuoted(out, key);
  out += ':';
}

void write(std::string& out, const Change& change) {
  std::string value;
  const bool isSet = writeValue(value, change);
  writeKey(out, isSet ? "set" : "del");
  writeQuoted(out, pathOf(change));
  if (!isSet) return;
  out += ',';
  writeKey(out, "value");
  out += value;
}

void write(std::string& out, const Dump& dump) {
  writeKey(out, "dump");
  writeQuoted(out, dump.label);
}

void write(std::string& out, const Start&) { out += "\"start\":true"; }

void write(std::string& out, const Stop&) { out += "\"stop\":true"; }

void write(std::string& out, const Absent& absent) {
  writeKey(out, "absent");
  std::vector<std::string_view> names;
  for (std::size_t i = 0; i < inputNames.size(); ++i)
    if (absent.inputs.test(i)) names.push_back(inputNames.at(i));
  writeEach(
      out, '[', names, [&out](std::string_view name) { writeQuoted(out, name); }, ']');
}

}  // namespace

std::string lineText(double at, const Action& action) {
  std::string line = "{\"at\":";
  writeReal(line, at);
  line += ',';
  std::visit([&line](const auto& each) { write(line, each); }, action);
  line += "}\n";
  return line;
}

}  // namespace Agent
