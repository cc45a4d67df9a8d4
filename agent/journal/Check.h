// Reads a journal to its end without a client, for whoever writes journals: finds malformed lines,
// values that the data model refuses, and starts, stops and absent inputs that are out of place.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "agent/journal/Journal.h"

namespace Agent {

struct CheckResult {
  std::uint64_t lines = 0;      // those that are good
  std::uint64_t malformed = 0;  // those that a replay would end at
  std::uint64_t refused = 0;    // those with a value that the data model refuses
};

// A line that is not good.
struct Complaint {
  std::uint64_t line = 0;
  bool malformed = false;  // else refused
  std::string text{};      // what is wrong, as the journal has it: not made printable

  friend bool operator==(const Complaint&, const Complaint&) = default;
};

// Reads the journal once. `report` is called for each line that is not good, in order. Throws what
// the journal's stream throws.
using Report = std::function<void(const Complaint&)>;
CheckResult check(Journal& journal, const Report& report);

}  // namespace Agent
