// What is wrong with a line of a journal, and what was expected: "unknown path "x": expected ...".
// The text names neither file nor line; Journal::place() does, for whoever reports it.
#pragma once

#include <stdexcept>

namespace Agent {

// A line that does not mean anything. A value that means something but that the data model refuses
// is a Moru::RangeException instead.
class JournalError final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Agent
