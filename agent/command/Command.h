// What a command does once its options have been read.
#pragma once

#include <functional>
#include <ostream>

namespace Agent {

// Returns the exit status.
using Command = std::function<int(std::ostream& out, std::ostream& errors)>;

constexpr const char* exitCodes =
    "Exit status: 0 done; 1 a malformed line, or a file that cannot be read or\n"
    "written; 2 an exception of the data model or of the client, or a damaged trace\n"
    "ring file; 3 a replay that does not come to rest; 64 wrong usage; 77 the kernel\n"
    "cannot be programmed for want of permission; 128+N ended by signal N.";

}  // namespace Agent
