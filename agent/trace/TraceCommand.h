// `vxlan-agent trace FILE.rlg`: renders the trace ring file of a process that runs, has ended or
// has crashed.
//
// As text, a line of the process, then one per message, in the order of time, with level and
// facility before the message:
//
//   # agent.rlg: process 4711
//   2026-11-21 05:10:11.123456 8 Vxlan void Vxlan::... vni: 10010
//   # 3 messages were dropped: the file had no room for their statements
//   # 43 messages were lost: overwritten before they could be read
//
// As JSON, the same as one object a line; `ns` counts from the beginning of 1970, as a text, for it
// is beyond what all readers of JSON take for a number:
//
//   {"file": "agent.rlg", "process": 4711}
//   {"time": "2026-11-21T05:10:11.123456789Z", "ns": "1795237811123456789", "level": 8,
//    "facility": "Vxlan", "text": "void Vxlan::... vni: 10010"}
//   {"droppedMessages": 3, "reason": "..."}
//   {"lostMessages": 43, "reason": "..."}
//
// Times are in UTC, as logs of several switches are read side by side. A file that is followed is
// read from time to time; what a burst has overwritten meanwhile is lost, and counted.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <ostream>
#include <string>

namespace Agent {

// Called between two readings of a file that is followed: waits a while, and says whether to go on.
using Pause = std::function<bool()>;

// Waits for `interval`, and goes on until `stop` is set, which a signal handler may do.
Pause pauseUntil(const std::atomic<bool>& stop,
                 std::chrono::milliseconds interval = std::chrono::milliseconds(200));

struct TraceOptions {
  std::string file{};
  unsigned mostLevel = 9;  // messages of the levels from 0 to this one
  std::string grep{};      // a regular expression (of RE2) that is found in the message; empty: all
  bool json = false;
  // Set: goes on to print new messages, also of the file that a restarted process puts in the place
  // of this one, until it returns false.
  Pause follow{};
};

// Returns an exit status: failed if the file cannot be read, refused if it is damaged or no ring
// file, wrongUsage if the regular expression is none. What is damaged in a ring file is told on
// `errors`, and the rest printed.
int traceCommand(const TraceOptions& options, std::ostream& out, std::ostream& errors);

}  // namespace Agent
