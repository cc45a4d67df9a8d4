// The trace facility of the client's machines.
//
// What they trace is an interface: who searches a recording relies on the texts, blanks included,
// on the values behind them, and on the method whose signature they carry. A statement therefore
// stands in the handler that it belongs to, and not in what that calls for help: helpers hand back
// what they have found, and predicates trace nothing.
#pragma once

#include "framework/Moru/Trace.h"

namespace Vxlan {

inline constinit Moru::TraceFacility traceFacility{"Vxlan"};

}  // namespace Vxlan
