// The controller's own state, as it publishes it.
#pragma once

#include "framework/Moru/Attribute.h"

namespace VxlanController {

class ZepStateV2 final : public Moru::EntityOf<ZepStateV2> {
 public:
  // The controller has restarted or reconnected, and is sending its state again.
  using ConvergenceInProgress = Moru::Attribute<bool, 1>;
  ConvergenceInProgress convergenceInProgress{this};
  ConvergenceInProgress::Is convergenceInProgressIs{convergenceInProgress};
};

}  // namespace VxlanController
