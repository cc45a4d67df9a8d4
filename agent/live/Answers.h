// What the running agent answers to the questions that are put to its control socket: JSON, an
// object a line.
//
//   hosts     {"mac": "02:00:00:00:00:01", "vlan": 10, "vni": 10010, "vtep": "10.0.0.2",
//              "marked": false, "waiting": false}, by VLAN and MAC. "waiting": its withdrawal waits
//              in the gate
//   floods    {"vlan": 10, "vni": 10010, "mac": "ff:ff:ff:ff:ff:ff", "type": 1,
//              "vteps": ["10.0.0.2"]}, by VLAN and MAC; 1 is to all, 2 to any one of them
//   dump      all that it has made, as a line of a replay has it: agent/view/JsonView.h
//   problems  {"since": TIME, "what": PLACE, "value": TEXT, "why": TEXT}, by their places
//   status    one object; see statusOf()
//   report    one object, for a page of the same version: agent/report/DataText.h
//
// TIME is as RFC 3339 has it, in UTC. A VLAN that no VNI is mapped to has the VNI null.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "agent/base/Problems.h"
#include "agent/gate/WithdrawalGate.h"
#include "agent/store/EmbeddedClient.h"
#include "agent/view/Filter.h"
#include "agent/view/Snapshot.h"

namespace Agent {

// Appends the next piece of an answer; false when it has ended. What it tells is of the moment at
// which it was begun.
using Answer = std::function<bool(std::string& out)>;

// `embedded` and `gate` need not outlive the answer.
Answer hostsAnswer(const EmbeddedClient& embedded, const WithdrawalGate& gate,
                   const Filter& filter);
Answer floodsAnswer(const EmbeddedClient& embedded, const Filter& filter);
Answer dumpAnswer(Snapshot snapshot);
Answer problemsAnswer(const Problems& problems);

// One line, or several.
Answer lineAnswer(const nlohmann::ordered_json& object);
Answer linesAnswer(std::vector<nlohmann::ordered_json> objects);

}  // namespace Agent
