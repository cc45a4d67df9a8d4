// A story and its verdict, for people and for programs.
//
//   02:00:00:00:00:01
//      3.000000 s  line 12  announced in VNI 10010 behind 10.0.0.2
//   now, at 45.000000 s:
//      VNI 10010: in the RIB: VLAN 10 behind 10.0.0.3
//
// As JSON, an object a line; what a line has not, it leaves out:
//
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
#include <vector>

#include "agent/story/Story.h"
#include "agent/story/Verdict.h"

namespace Agent {

// How times are told: of a recording as they are, else as the function says.
struct StoryTimes {
  std::function<std::string(double)> text{};  // for people
  std::function<std::string(double)> rfc3339{};
};

void printStory(std::ostream& out, const Vorn::EthAddr& mac, const std::vector<StoryLine>& lines,
                const StoryTimes& times = {});
void printVerdict(std::ostream& out, const std::vector<Finding>& findings, double now,
                  const StoryTimes& times = {});

nlohmann::ordered_json jsonOf(const StoryLine& line, const StoryTimes& times = {});
nlohmann::ordered_json jsonOf(const Finding& finding, const Vorn::EthAddr& mac, double now,
                              const StoryTimes& times = {});

}  // namespace Agent
