// How a switch, this one or its MLAG peer, replicates BUM traffic.
#pragma once

#include "framework/Moru/Attribute.h"
#include "model/Vxlan/BumReplicationMode.h"

namespace Vxlan {

class BumStatus final : public Moru::EntityOf<BumStatus> {
 public:
  using Mode = Moru::Attribute<BumReplicationMode, 1>;
  Mode bumReplicationMode{this};
  Mode::Is bumReplicationModeIs{bumReplicationMode};
};

}  // namespace Vxlan
