// Prints the trace stream, for as long as it lives: a line per message, "time level message", the
// message beginning with the signature of the function that it comes from.
//
//   Agent::TraceStream trace(std::cerr, {8}, {&Vxlan::traceFacility}, moment);
//
// As JSON, an object a line, of a recording and of the time of day:
//
//   {"journal": FILE, "line": 17, "at": 12.0, "level": 8, "facility": "Vxlan", "text": "void ..."}
//   {"time": "2026-11-21T05:10:11.123456789Z", "level": 8, "facility": "Vxlan", "text": "void ..."}
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "framework/Moru/Trace.h"

namespace Agent {

// Of the client and of what it is written against.
std::vector<Moru::TraceFacility*> clientFacilities();

struct TraceStreamOptions {
  unsigned mostLevel = 8;  // messages of the levels from 0 to this one, at most 9
  bool json = false;
};

// When a message comes: in a recording, or by the time of day.
struct TraceMoment {
  std::optional<double> at{};  // seconds from the start of the recording
  std::string journal{};       // with `at`
  std::uint64_t line = 0;
  std::string time{};  // without, as RFC 3339 has it
};

// There is one at a time: it has the process's trace sink to itself.
class TraceStream {
 public:
  // Turns these levels of the facilities on, and all others off. `moment` must not read a virtual
  // time whose readings move it: tracing would change what it shows.
  TraceStream(std::ostream& out, const TraceStreamOptions& options,
              std::vector<Moru::TraceFacility*> facilities, std::function<TraceMoment()> moment);
  TraceStream(const TraceStream&) = delete;
  TraceStream& operator=(const TraceStream&) = delete;

  // Turns off what the constructor has turned on.
  ~TraceStream();

 private:
  std::vector<Moru::TraceFacility*> facilities_;
};

}  // namespace Agent
