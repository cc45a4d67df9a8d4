#include "agent/view/Output.h"

#include <utility>

#include "agent/view/Diff.h"
#include "agent/view/DiffView.h"
#include "agent/view/JsonView.h"

namespace Agent {

Output::Output(std::ostream& out, const OutputOptions& options, std::string journal)
    : out_(out), options_(options), journal_(options.named ? std::move(journal) : "") {
  if (options_.named && options_.format == Format::table) out_ << "=== " << journal_ << "\n\n";
}

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
    printJson(out_, compare(last_ ? &*last_ : nullptr, snapshot), journal_);
  else
    printJson(out_, snapshot, journal_);
}

void Output::exception(const std::string& type, std::uint64_t line, const std::string& text) {
  printJsonException(out_, type, line, text, journal_);
}

void Output::turn(const Turn& turn) {
  if (options_.format == Format::json) return printJson(out_, turn, journal_);
  if (!std::exchange(timelineBegun_, true)) printTimelineHeader(out_);
  printTimeline(out_, turn);
}

}  // namespace Agent
