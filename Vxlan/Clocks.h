// The time, and the clocks of the machines.
#pragma once

#include "framework/Moru/ActivityFacility.h"

namespace Vxlan {

// The current time, in seconds of the activity facility. Each call is a reading.
inline double now() { return Moru::ActivityFacility::current()->now(); }

// Has a clock fire at a time, or never; nothing where the machine has lost its clock.
template <class ClockInput>
void arm(const ClockInput& clock, double time) {
  if (const auto& reactor = clock.reactor()) reactor->timeMinIs(time);
}

}  // namespace Vxlan
