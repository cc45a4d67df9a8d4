#include "agent/trace/TraceStream.h"

#include <utility>

#include "Vxlan/Trace.h"
#include "agent/base/Text.h"

namespace Agent {

std::vector<Moru::TraceFacility*> clientFacilities() {
  return {&Moru::traceFacility, &Ringlog::traceFacility, &Vxlan::traceFacility};
}

TraceStream::TraceStream(std::ostream& out, unsigned mostLevel,
                         std::vector<Moru::TraceFacility*> facilities,
                         std::function<std::string()> timeText)
    : facilities_(std::move(facilities)) {
  Moru::traceSinkIs([&out, timeText = std::move(timeText)](const Moru::TraceMessage& message) {
    out << timeText() << ' ' << message.level << ' ' << printable(message.text) << '\n';
  });
  const Moru::TraceFacility::Levels levels = (2U << mostLevel) - 1;
  for (Moru::TraceFacility* const facility : facilities_)
    facility->streamLevelsIs(levels & Moru::TraceFacility::allLevels);
}

TraceStream::~TraceStream() {
  for (Moru::TraceFacility* const facility : facilities_) facility->streamLevelsIs(0);
  Moru::traceSinkIs(nullptr);
}

}  // namespace Agent
