#include "agent/story/StoryView.h"

#include <nlohmann/json.hpp>

#include "agent/base/Text.h"

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

std::string textOf(double at, const StoryTimes& times) {
  return times.text ? times.text(at) : secondsText(at);
}

void addTime(Json& json, double at, const StoryTimes& times) {
  if (times.rfc3339)
    json["time"] = times.rfc3339(at);
  else
    json["at"] = at;
}

std::string padded(const std::string& text, std::size_t width) {
  return std::string(width - std::min(width, text.size()), ' ') + text;
}

Json jsonOf(const StoryLine& line, const StoryTimes& times) {
  const Event& event = line.event;
  Json json;
  addTime(json, event.at, times);
  if (event.line != 0) json["line"] = event.line;
  json["event"] = line.what;
  if (hasMac(event.kind)) json["mac"] = event.mac.stringValue();
  if (event.vni != 0) json["vni"] = event.vni;
  if (event.vlan != 0) json["vlan"] = event.vlan;
  if (event.vti != Vorn::IntfId()) json["vti"] = event.vti.stringValue();
  if (event.vtep != Vorn::IpAddr()) json["vtep"] = event.vtep.stringValue();
  if (line.from) json["from"] = line.from->stringValue();
  if (line.convergence != 0) json["convergence"] = line.convergence;
  if (line.after) json["after"] = *line.after;
  json["text"] = textOf(line);
  return json;
}

Json jsonOf(const Finding& finding, const Explanation& explanation, const StoryTimes& times) {
  Json json{{"verdict", finding.gate}};
  addTime(json, explanation.now, times);
  json["mac"] = explanation.mac.stringValue();
  if (finding.vni != 0) json["vni"] = finding.vni;
  if (finding.vlan != 0) json["vlan"] = finding.vlan;
  json["text"] = finding.text;
  return json;
}

}  // namespace

void print(std::ostream& out, const Explanation& explanation, const StoryTimes& times) {
  std::size_t widest = 0;
  for (const StoryLine& line : explanation.lines)
    widest = std::max(widest, textOf(line.event.at, times).size());
  out << explanation.mac << '\n';
  for (const std::string& remark : explanation.remarks) out << "# " << printable(remark) << '\n';
  for (const StoryLine& line : explanation.lines) {
    out << "  " << padded(textOf(line.event.at, times), widest) << "  ";
    if (line.event.line != 0) out << "line " << line.event.line << "  ";
    out << printable(textOf(line)) << '\n';
  }
  out << "now, at " << textOf(explanation.now, times) << ":\n";
  for (const Finding& finding : explanation.verdict) out << "  " << printable(finding.text) << '\n';
}

std::vector<Json> jsonOf(const Explanation& explanation, const StoryTimes& times) {
  std::vector<Json> all;
  for (const std::string& remark : explanation.remarks) all.push_back({{"remark", remark}});
  for (const StoryLine& line : explanation.lines) all.push_back(jsonOf(line, times));
  for (const Finding& finding : explanation.verdict)
    all.push_back(jsonOf(finding, explanation, times));
  return all;
}

}  // namespace Agent
