// The VTEPs to which the traffic for a MAC is replicated, as the controller says.
#pragma once

#include <cstddef>

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "model/Vorn/IpAddr.h"

namespace VxlanController {

class MacVtepFloodListV2 final : public Moru::EntityOf<MacVtepFloodListV2> {
 public:
  // An address is a member when its flag is true.
  using VtepIpFloodList = Moru::KeyedAttribute<Moru::HashMap2018, Vorn::IpAddr, bool, 1>;
  VtepIpFloodList vtepIpFloodList{this};
  VtepIpFloodList::Is vtepIpFloodListIs{vtepIpFloodList};
  VtepIpFloodList::Del vtepIpFloodListDel{vtepIpFloodList};

  std::size_t vtepIpFloodLists() const { return vtepIpFloodList().size(); }
};

}  // namespace VxlanController
