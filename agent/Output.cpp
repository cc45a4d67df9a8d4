#include "agent/Output.h"

#include <utility>

#include "agent/Diff.h"
#include "agent/DiffView.h"
#include "agent/JsonView.h"

namespace Agent {

void Output::dump(Snapshot snapshot) {
  if (options_.format == Format::json)
    dumpJson(snapshot);
  else
    dumpTable(snapshot);
  last_ = std::move(snapshot);
  timelineBegun_ = false;  // its titles are far above by now
  flush();
}

void Output::dumpTable(const Snapshot& snapshot) {
  if (!options_.diff) printTable(out_, snapshot, options_.table);
  if (options_.diff || last_)
    printTable(out_, compare(last_ ? &*last_ : nullptr, snapshot), options_.table);
  out_ << '\n';
}

void Output::dumpJson(const Snapshot& snapshot) {
  if (options_.diff)
    printJson(out_, compare(last_ ? &*last_ : nullptr, snapshot));
  else
    printJson(out_, snapshot);
}

void Output::exception(const std::string& type, std::uint64_t line, const std::string& text) {
  printJsonException(out_, type, line, text);
}

void Output::turn(const Turn& turn) {
  if (options_.format == Format::json) return printJson(out_, turn);
  if (!std::exchange(timelineBegun_, true)) printTimelineHeader(out_);
  printTimeline(out_, turn);
}

}  // namespace Agent
