// Prints the trace stream, for as long as it lives: a line per message, "time level message", the
// message beginning with the signature of the function that it comes from.
//
//   Agent::TraceStream trace(std::cerr, 8, {&Vxlan::traceFacility}, timeText);
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "framework/Moru/Trace.h"

namespace Agent {

// Of the client and of what it is written against.
std::vector<Moru::TraceFacility*> clientFacilities();

// There is one at a time: it has the process's trace sink to itself.
class TraceStream {
 public:
  // Turns the levels from 0 to `mostLevel` (at most 9) of the facilities on, and all others off.
  // `timeText` gives what a line begins with. It must not read a virtual time whose readings move
  // it: tracing would change what it shows.
  TraceStream(std::ostream& out, unsigned mostLevel, std::vector<Moru::TraceFacility*> facilities,
              std::function<std::string()> timeText);
  TraceStream(const TraceStream&) = delete;
  TraceStream& operator=(const TraceStream&) = delete;

  // Turns off what the constructor has turned on.
  ~TraceStream();

 private:
  std::vector<Moru::TraceFacility*> facilities_;
};

}  // namespace Agent
