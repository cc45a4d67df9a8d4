// How far the client is with what a convergence left to be deleted: an output of the client.
#pragma once

#include "framework/Moru/Attribute.h"

namespace Vxlan {

class VxlanClientConvergenceStatus final : public Moru::EntityOf<VxlanClientConvergenceStatus> {
 public:
  using Unicast = Moru::Attribute<bool, 1>;
  Unicast unicastDeferredDeletionInProgress{this};
  Unicast::Is unicastDeferredDeletionInProgressIs{unicastDeferredDeletionInProgress};

  using Bum = Moru::Attribute<bool, 2>;
  Bum bumDeferredDeletionInProgress{this};
  Bum::Is bumDeferredDeletionInProgressIs{bumDeferredDeletionInProgress};
};

}  // namespace Vxlan
