// A story and its verdict, for people and for programs.
//
//   02:00:00:00:00:01
//   # what was before 2026-11-21 05:10:11.123456 is no longer known
//      3.000000 s  line 12  announced in VNI 10010 behind 10.0.0.2
//   now, at 45.000000 s:
//      VNI 10010: in the RIB: VLAN 10 behind 10.0.0.3
//
// As JSON, an object a line; what a line has not, it leaves out:
//
//   {"remark": "what was before 2026-11-21T05:10:11.123456789Z is no longer known"}
//   {"at": 3.0, "line": 12, "event": "announced", "mac": "02:00:00:00:00:01", "vni": 10010,
//    "vtep": "10.0.0.2", "text": "announced in VNI 10010 behind 10.0.0.2"}
//   {"verdict": "none", "at": 45.0, "mac": "02:00:00:00:00:01", "vni": 10010, "vlan": 10,
//    "text": "VNI 10010: in the RIB: VLAN 10 behind 10.0.0.3"}
//
// and of a move "from", of what a convergence did "convergence", its number, and "after", the
// seconds since it ended. Of what is no recording, "time" (RFC 3339) takes the place of "at".
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "agent/story/Story.h"
#include "agent/story/Verdict.h"

namespace Agent {

// How times are told: of a recording as they are, else as the function says.
struct StoryTimes {
  std::function<std::string(double)> text{};  // for people
  std::function<std::string(double)> rfc3339{};
};

struct Explanation {
  Vorn::EthAddr mac{};
  std::vector<std::string> remarks{};  // what the story may lack: sentences
  std::vector<StoryLine> lines{};
  std::vector<Finding> verdict{};
  double now = 0;  // of the verdict
};

void print(std::ostream& out, const Explanation& explanation, const StoryTimes& times = {});

// An object for each line.
std::vector<nlohmann::ordered_json> jsonOf(const Explanation& explanation,
                                           const StoryTimes& times = {});

}  // namespace Agent
