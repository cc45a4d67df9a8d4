#include "agent/Lifecycle.h"

namespace Agent {

void Lifecycle::follow(const Action& action) {
  std::visit([this](const auto& each) { follow(each); }, action);
}

void Lifecycle::follow(const Start&) {
  if (running_) throw JournalError("start while a client runs: expected a stop before it");
  running_ = true;
}

void Lifecycle::follow(const Stop&) {
  if (!running_) throw JournalError("stop while no client runs: expected a start before it");
  running_ = false;
}

void Lifecycle::follow(const Absent& absent) {
  if (running_)
    throw JournalError("absent while a client runs: expected it before a start, or after a stop");
  absent_ |= absent.inputs;
}

}  // namespace Agent
