// The client's view of the controller's state: an output of the client.
#pragma once

#include "framework/Moru/Attribute.h"

namespace VxlanController {

class ZepStateClientViewV2 final : public Moru::EntityOf<ZepStateClientViewV2> {
 public:
  // Every write notifies, also of the value that was there: a client that starts outside
  // convergence evaluates it once.
  using ConvergenceInProgress = Moru::Attribute<bool, 1, Moru::Notifies::onWrite>;
  ConvergenceInProgress convergenceInProgress{this};
  ConvergenceInProgress::Is convergenceInProgressIs{convergenceInProgress};
};

}  // namespace VxlanController
