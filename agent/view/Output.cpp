#include "agent/view/Output.h"

#include <utility>

#include "agent/view/Diff.h"
#include "agent/view/DiffView.h"
#include "agent/view/JsonView.h"

namespace Agent {

Output::Output(std::ostream& out, const OutputOptions& options, const std::string& journal)
    : out_(out), options_(options) {
  if (options_.named && options_.format == Format::table) out_ << "=== " << journal << "\n\n";
}

void Output::dump(Snapshot snapshot) {
  filterBy(options_.filter, snapshot);
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

void Output::exception(const std::string& type, const std::string& text, const Origin& origin) {
  printJsonException(out_, type, text, origin);
}

void Output::turn(const Turn& turn, const Origin& origin) {
  if (options_.format == Format::json) return printJson(out_, turn, origin);
  if (!std::exchange(timelineBegun_, true)) printTimelineHeader(out_);
  printTimeline(out_, turn);
}

}  // namespace Agent
