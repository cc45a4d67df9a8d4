// The destinations to which the traffic for one MAC is flooded.
#pragma once

#include <cstddef>

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "model/L2Rib/Dest.h"
#include "model/L2Rib/FloodSetType.h"
#include "model/Vorn/EthAddr.h"

namespace L2Rib {

class FloodSet final : public Moru::EntityOf<FloodSet> {
 public:
  explicit FloodSet(const Vorn::EthAddr& macAddr) : macAddr_(macAddr) {}

  const Vorn::EthAddr& macAddr() const { return macAddr_; }
  const Vorn::EthAddr& fwkKey() const { return macAddr_; }

  using Type = Moru::Attribute<FloodSetType, 1>;
  Type floodSetType{this};
  Type::Is floodSetTypeIs{floodSetType};

  // A destination is present when its flag is true.
  using DestSet = Moru::KeyedAttribute<Moru::HashMap2018, Dest, bool, 2>;
  DestSet destSet{this};
  DestSet::Is destSetIs{destSet};
  DestSet::Del destSetDel{destSet};

  std::size_t destSets() const { return destSet().size(); }

 private:
  const Vorn::EthAddr macAddr_;
};

}  // namespace L2Rib
