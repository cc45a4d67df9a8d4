// What the controller publishes for one VNI.
#pragma once

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "model/Vorn/EthAddr.h"
#include "model/VxlanController/MacVtepFloodListV2.h"
#include "model/VxlanController/MacVtepMultiPathV2.h"
#include "model/VxlanController/MacVtepV2.h"

namespace VxlanController {

class VniFdbStatusV2 final : public Moru::EntityOf<VniFdbStatusV2> {
 public:
  // The host table: which VTEP each MAC lives behind.
  using MacVtepTable = Moru::KeyedAttribute<Moru::HashMap2018, Vorn::EthAddr, MacVtepV2, 1>;
  MacVtepTable macVtepTable{this};
  MacVtepTable::Is macVtepTableIs{macVtepTable};
  MacVtepTable::Del macVtepTableDel{macVtepTable};

  // MACs that are reached over any one of several VTEPs.
  using MacVtepMultiPathTable =
      Moru::KeyedAttribute<Moru::HashMap2018, Vorn::EthAddr, MacVtepMultiPathV2, 2>;
  MacVtepMultiPathTable macVtepMultiPathTable{this};
  MacVtepMultiPathTable::Is macVtepMultiPathTableIs{macVtepMultiPathTable};
  MacVtepMultiPathTable::Del macVtepMultiPathTableDel{macVtepMultiPathTable};

  // MACs whose traffic is replicated to every VTEP of a list. A null list means none.
  using MacVtepFloodListTable = Moru::KeyedAttribute<Moru::HashMap2018, Vorn::EthAddr,
                                                     Moru::Ptr<MacVtepFloodListV2 const>, 3>;
  MacVtepFloodListTable macVtepFloodListTable{this};
  MacVtepFloodListTable::Is macVtepFloodListTableIs{macVtepFloodListTable};
  MacVtepFloodListTable::Del macVtepFloodListTableDel{macVtepFloodListTable};
};

}  // namespace VxlanController
