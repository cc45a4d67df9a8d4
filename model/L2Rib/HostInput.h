// The hosts that one source feeds into the layer-2 RIB: an output of the client.
#pragma once

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "model/Bridging/MacVlanPair.h"
#include "model/L2Rib/Host.h"

namespace L2Rib {

class HostInput final : public Moru::EntityOf<HostInput> {
 public:
  // hostIs(host) writes the host under host.key.
  using Hosts = Moru::KeyedAttribute<Moru::HashMap2018, Bridging::MacVlanPair, Host, 1>;
  Hosts host{this};
  Hosts::Is hostIs{host};
  Hosts::Del hostDel{host};
};

}  // namespace L2Rib
