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

}  // namespace

void printStory(std::ostream& out, const Vorn::EthAddr& mac, const std::vector<StoryLine>& lines,
                const StoryTimes& times) {
  std::size_t widest = 0;
  for (const StoryLine& line : lines)
    widest = std::max(widest, textOf(line.event.at, times).size());
  out << mac << '\n';
  for (const StoryLine& line : lines) {
    out << "  " << padded(textOf(line.event.at, times), widest) << "  ";
    if (line.event.line != 0) out << "line " << line.event.line << "  ";
    out << printable(textOf(line)) << '\n';
  }
}

void printVerdict(std::ostream& out, const std::vector<Finding>& findings, double now,
                  const StoryTimes& times) {
  out << "now, at " << textOf(now, times) << ":\n";
  for (const Finding& finding : findings) out << "  " << printable(finding.text) << '\n';
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

Json jsonOf(const Finding& finding, const Vorn::EthAddr& mac, double now, const StoryTimes& times) {
  Json json{{"verdict", finding.gate}};
  addTime(json, now, times);
  json["mac"] = mac.stringValue();
  if (finding.vni != 0) json["vni"] = finding.vni;
  if (finding.vlan != 0) json["vlan"] = finding.vlan;
  json["text"] = finding.text;
  return json;
}

}  // namespace Agent
