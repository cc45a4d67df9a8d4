// What is wrong with what was handed in, and what was expected: "unknown path "x": expected ...".
// The text does not name the place; whoever reads the input does, where it is reported.
#pragma once

#include <stdexcept>

namespace Agent {

// An input that does not mean anything, such as a malformed line of a journal. A value that means
// something but that the data model refuses is a Moru::RangeException instead.
class InputError final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Agent
