// The trace facility of the client's machines.
#pragma once

#include "framework/Moru/Trace.h"

namespace Vxlan {

inline constinit Moru::TraceFacility traceFacility{"Vxlan"};

}  // namespace Vxlan
