// Compares what the database says, what the client has made of it, and what the kernel has: reads
// all three anew, and tells what differs, with the reason if there is one.
//
//   {"vni": 5001, "mac": "02:00:00:00:00:01", "database": "10.0.0.2", "client": "10.0.0.2",
//    "kernel": null, "reason": "refused: File exists"}, by VNI and MAC
//
// Where a frame goes is a VTEP, "all" or "any" of several, or null. A reason that is null is one
// that the agent does not know. While things move, what is read one after the other does not fit
// together: what has no reason is looked at again before it is told.
#pragma once

#include "agent/gate/WithdrawalGate.h"
#include "agent/kernel/DataPlane.h"
#include "agent/live/Answers.h"
#include "agent/ovsdb/Import.h"
#include "agent/store/EmbeddedClient.h"

namespace Agent {

struct Examined {
  const Ovsdb::Import& database;
  const WithdrawalGate& gate;
  const EmbeddedClient& embedded;
  const Kernel::DataPlane* plane;  // null: nothing is programmed, and the kernel not looked at
};

// All of it must outlive the answer. Throws std::system_error where the kernel cannot be read.
Answer doctorAnswer(const Examined& examined);

}  // namespace Agent
