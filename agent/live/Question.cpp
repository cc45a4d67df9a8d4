#include "agent/live/Question.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "agent/base/InputError.h"
#include "agent/base/JsonText.h"
#include "agent/journal/JsonFault.h"
#include "agent/journal/Values.h"
#include "agent/view/DumpReader.h"
#include "agent/view/JsonView.h"

namespace Agent {

std::string lineOf(const Question& question) {
  nlohmann::ordered_json json{{"question", question.what}};
  json.update(filterJson(question.filter));
  std::string line = jsonText(json) + '\n';
  if (line.size() > Question::longest)
    throw InputError("the filter is too long: expected a question of at most " +
                     std::to_string(Question::longest) + " bytes");
  return line;
}

Question questionOf(const std::string& line) {
  simdjson::dom::parser parser;
  Json json;
  if (parser.parse(line).get(json) != simdjson::SUCCESS || !json.is_object())
    throw InputError(jsonFault(line));
  const auto [what, vlan, vni, vtep, mac] =
      fieldsOf(json, "the question", "question", "vlan", "vni", "vtep", "mac");
  Question question{std::string(given(what, toText).value_or("")),
                    readFilter(vlan, vni, vtep, mac)};
  constexpr std::array filtered{"hosts", "floods", "dump", "explain"};
  if (!question.filter.empty() && std::ranges::find(filtered, question.what) == filtered.end())
    throw InputError("a filter beside \"" + question.what +
                     "\": expected it beside hosts, floods, dump or explain");
  return question;
}

}  // namespace Agent
