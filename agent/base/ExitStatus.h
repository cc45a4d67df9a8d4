// How the program ends.
#pragma once

namespace Agent {

enum ExitStatus : int {
  done = 0,
  failed = 1,    // a malformed line, a file that cannot be read or written, what the doctor found
  refused = 2,   // an exception of the data model or of the client, a damaged trace ring file
  restless = 3,  // a replay that does not come to rest
  wrongUsage = 64,
  notPermitted = 77,  // the kernel cannot be programmed
  signalled = 128,    // and the signal's number added
};

}  // namespace Agent
