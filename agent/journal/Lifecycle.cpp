#include "agent/journal/Lifecycle.h"

namespace Agent {

void Lifecycle::follow(const Action& action) {
  if (const auto* start = std::get_if<Start>(&action)) return follow(*start);
  if (const auto* stop = std::get_if<Stop>(&action)) return follow(*stop);
  if (const auto* absent = std::get_if<Absent>(&action)) return follow(*absent);
}

void Lifecycle::follow(const Start&) {
  if (running_) throw InputError("start while a client runs: expected a stop before it");
  running_ = true;
}

void Lifecycle::follow(const Stop&) {
  if (!running_) throw InputError("stop while no client runs: expected a start before it");
  running_ = false;
}

void Lifecycle::follow(const Absent& absent) {
  if (running_)
    throw InputError("absent while a client runs: expected it before a start, or after a stop");
  absent_ |= absent.inputs;
}

}  // namespace Agent
