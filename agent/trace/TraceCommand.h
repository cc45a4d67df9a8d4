// `vxlan-agent trace FILE.rlg...`: renders the trace ring files of processes that run, have ended
// or have crashed.
//
// As text, two lines of each ring: what has become of its process, and what it holds. Then one per
// message, in the order of time, with level and facility before the method and what it traced:
//
//   # agent.rlg: process 4711, ended well
//   # 812 messages (level 3: 2, level 8: 810) from 2026-11-21 05:10:11.123456 to 2026-11-21
//     05:12:00.500000; 43 others were overwritten, all before 2026-11-21 05:10:12.000000
//   2026-11-21 05:10:11.123456 8 Vxlan ZepStateSm::handleConvergenceInProgress init true
//   # 3 messages were dropped: the file had no room for their statements
//   # 43 messages were lost: overwritten before they could be read
//
// Of several rings, heads and messages bear a number: [1], [2]. With a context, "--" stands where
// messages were left out.
//
// As JSON, the same as one object a line; `ns` counts from the beginning of 1970, as a text, for it
// is beyond what all readers of JSON take for a number. `state` is running, ended, crashed, left
// (others had taken the file away, and the process went on in another), open (not closed, and
// whether its process runs is not known) or unknown (an earlier version, which did not tell);
// `overwritten` is null if it is not known, and `wholeFrom` if nothing was overwritten. Of several
// rings a message has `file`, with a context `match`, with whole signatures `signature`:
//
//   {"file": "agent.rlg", "process": 4711, "state": "ended", "messages": 812,
//    "levels": {"3": 2, "8": 810}, "overwritten": 43, "from": "2026-11-21T05:10:11.123456789Z",
//    "to": "...", "wholeFrom": "..."}
//   {"time": "2026-11-21T05:10:11.123456789Z", "ns": "1795237811123456789", "level": 8,
//    "facility": "Vxlan", "method": "ZepStateSm::handle...", "text": "void Vxlan::ZepStateSm::..."}
//   {"droppedMessages": 3, "reason": "..."}
//   {"lostMessages": 43, "reason": "..."}
//   {"matches": 0, "wholeFrom": "...", "reason": "..."}
//
// Times are in UTC, as logs of several switches are read side by side. A file that is followed is
// read from time to time, sooner the more a reading brought; what a burst has overwritten meanwhile
// is lost, and counted.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "agent/trace/MessageFilter.h"

namespace Agent {

// Called between two readings of a file that is followed: waits for so long, and says whether to go
// on.
using Pause = std::function<bool(std::chrono::milliseconds)>;

// Goes on until `stop` is set, which a signal handler may do.
Pause pauseUntil(const std::atomic<bool>& stop);

struct TraceOptions {
  std::vector<std::string> files{};  // "-" is a ring on the standard input
  bool previous = false;             // also those that stood under the names before, NAME.prev*
  MessageFilterOptions filter{};
  std::optional<std::size_t> last{};  // so many of the messages that match
  std::size_t context = 0;            // so many messages before and after each
  bool full = false;                  // whole signatures
  bool json = false;
  // Set: goes on to print new messages of the one file, also of the file that a restarted process
  // puts in its place, until it returns false.
  Pause follow{};
};

// Returns an exit status: failed if a file cannot be read, refused if it is damaged or no ring
// file, wrongUsage if options do not go together or mean nothing. What is damaged in a ring file is
// told on `errors`, and the rest printed.
int traceCommand(const TraceOptions& options, std::ostream& out, std::ostream& errors);

}  // namespace Agent
