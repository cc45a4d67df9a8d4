// The writer of state journals: the inverse of Journal.h, over the same table of paths and values.
#pragma once

#include <string>

#include "agent/journal/Journal.h"

namespace Agent {

// A line as a journal has it, with its time and its end; read again, it is the same. `at` is in
// seconds from the start of the recording.
std::string lineText(double at, const Action& action);

}  // namespace Agent
