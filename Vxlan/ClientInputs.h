// What a client is built over: the entities of the switch, of the controller and of the layer-2
// RIB, by name. Filled member by member they cannot be mixed up, as eleven arguments in a row can.
//
//   Vxlan::ClientInputs inputs;
//   inputs.vtiStatusDir = vtiStatusDir;
//   ...
//   auto client = Vxlan::vxlanControllerClientSmFactory(inputs);
#pragma once

#include "framework/Moru/Dir.h"
#include "framework/Moru/Ptr.h"
#include "model/L2Rib/HostInput.h"
#include "model/L2Rib/SourceDirEntry.h"
#include "model/Mlag/Status.h"
#include "model/Mlag/VxlanStatus.h"
#include "model/Vxlan/VlanVniMaps.h"
#include "model/Vxlan/VtiStatusDir.h"
#include "model/Vxlan/VxlanClientConvergenceStatus.h"
#include "model/Vxlan/VxlanHwStatusDir.h"
#include "model/VxlanController/ZepStateClientViewV2.h"

namespace Vxlan {

// Any of them may be null, which means that it is absent: an empty table to read, nothing to write
// to. The client only reads those that are const.
struct ClientInputs {
  Moru::Ptr<VtiStatusDir const> vtiStatusDir;
  Moru::Ptr<Moru::Dir const> controllerStatusBaseDir;  // VniFdbStatusV2 by VNI in decimal
  Moru::Ptr<VxlanController::ZepStateClientViewV2> zepStateClientView;
  Moru::Ptr<VxlanHwStatusDir const> vxlanHwStatusDir;
  Moru::Ptr<Mlag::Status const> mlagStatus;
  Moru::Ptr<Mlag::VxlanStatus const> mlagVxlanStatus;
  Moru::Ptr<Moru::Dir const> zepStateBaseDir;  // ZepStateV2, at most one
  Moru::Ptr<VlanVniMaps const> vlanVniMaps;
  Moru::Ptr<L2Rib::SourceDirEntry> zepSde;
  Moru::Ptr<L2Rib::HostInput> l2RibZepInput;
  Moru::Ptr<VxlanClientConvergenceStatus> zepConvergenceStatus;
};

}  // namespace Vxlan
