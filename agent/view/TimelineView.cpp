#include "agent/view/TimelineView.h"

#include <array>
#include <cstddef>
#include <iomanip>
#include <string>

#include "agent/base/Text.h"

namespace Agent {

namespace {

// Wide enough for hours and for a million hosts, as lines are printed one by one.
void printCells(std::ostream& out, const std::array<std::string, 6>& cells) {
  constexpr std::array<int, 6> widths{14, 9, 9, 9, 9, 9};
  for (std::size_t i = 0; i < cells.size(); ++i)
    out << (i > 0 ? " " : "") << std::right << std::setw(widths[i]) << cells[i];
  out << '\n';
}

}  // namespace

void printTimelineHeader(std::ostream& out) {
  printCells(out, {"time", "hosts", "marked", "deleted", "unicast", "BUM"});
}

void printTimeline(std::ostream& out, const Turn& turn) {
  printCells(out, {secondsText(turn.at), std::to_string(turn.hosts), std::to_string(turn.marked),
                   std::to_string(turn.deleted), flagText(turn.unicastDeferredDeletion),
                   flagText(turn.bumDeferredDeletion)});
}

}  // namespace Agent
