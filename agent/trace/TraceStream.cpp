#include "agent/trace/TraceStream.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "Vxlan/Trace.h"
#include "agent/base/JsonText.h"
#include "agent/base/Text.h"

namespace Agent {

std::vector<Moru::TraceFacility*> clientFacilities() {
  return {&Moru::traceFacility, &Ringlog::traceFacility, &Vxlan::traceFacility};
}

namespace {

std::string textLine(const TraceMoment& moment, const Moru::TraceMessage& message) {
  return (moment.at ? secondsText(*moment.at) : moment.time) + ' ' + std::to_string(message.level) +
         ' ' + printable(message.text) + '\n';
}

std::string jsonLine(const TraceMoment& moment, const Moru::TraceMessage& message) {
  nlohmann::ordered_json json;
  if (moment.at) {
    json["journal"] = moment.journal;
    json["line"] = moment.line;
    json["at"] = *moment.at;
  } else {
    json["time"] = moment.time;
  }
  json["level"] = message.level;
  json["facility"] = message.facility;
  json["text"] = message.text;
  return jsonText(json) + '\n';
}

}  // namespace

TraceStream::TraceStream(std::ostream& out, const TraceStreamOptions& options,
                         std::vector<Moru::TraceFacility*> facilities,
                         std::function<TraceMoment()> moment)
    : facilities_(std::move(facilities)) {
  const auto lineOf = options.json ? jsonLine : textLine;
  Moru::traceSinkIs([&out, lineOf, moment = std::move(moment)](const Moru::TraceMessage& message) {
    out << lineOf(moment(), message);
  });
  const Moru::TraceFacility::Levels levels = (2U << options.mostLevel) - 1;
  for (Moru::TraceFacility* const facility : facilities_)
    facility->streamLevelsIs(levels & Moru::TraceFacility::allLevels);
}

TraceStream::~TraceStream() {
  for (Moru::TraceFacility* const facility : facilities_) facility->streamLevelsIs(0);
  Moru::traceSinkIs(nullptr);
}

}  // namespace Agent
