// What is asked at the control socket: a line of JSON.
//
//   {"question": "hosts", "mac": "02:00:00:00:00:01", "vlan": [10, 20]}
#pragma once

#include <cstddef>
#include <string>

#include "agent/view/Filter.h"

namespace Agent {

struct Question {
  static constexpr std::size_t longest = 4096;  // bytes, with the line's end

  std::string what{};  // hosts, floods, dump, problems, doctor, explain, status, report or release
  Filter filter{};     // of hosts, floods, dump and explain
};

// The line. Throws InputError if that would be too long.
std::string lineOf(const Question& question);

// What a line asks. Throws InputError for what is no such line.
Question questionOf(const std::string& line);

}  // namespace Agent
