// What the MLAG agent tells of the peer's VXLAN.
#pragma once

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "model/L2Rib/SourceDirEntry.h"
#include "model/Vorn/IpAddr.h"
#include "model/Vxlan/BumStatus.h"
#include "model/Vxlan/VtepType.h"

namespace Mlag {

class VxlanStatus final : public Moru::EntityOf<VxlanStatus> {
 public:
  // The peer's BUM status; null while it has none.
  using PeerBumStatus = Moru::Attribute<Moru::Ptr<Vxlan::BumStatus const>, 1>;
  PeerBumStatus peerBumStatus{this};
  PeerBumStatus::Is peerBumStatusIs{peerBumStatus};

  // The peer's flood sets; null while it has none.
  using PeerSourceDirEntry = Moru::Attribute<Moru::Ptr<L2Rib::SourceDirEntry const>, 2>;
  PeerSourceDirEntry peerSourceDirEntry{this};
  PeerSourceDirEntry::Is peerSourceDirEntryIs{peerSourceDirEntry};

  // The addresses of the pair's VTEPs, all of which are the switch's own to the client.
  using VtepTypeAddr = Moru::KeyedAttribute<Moru::HashMap2018, Vxlan::VtepType, Vorn::IpAddr, 3>;
  VtepTypeAddr vtepTypeAddr{this};
  VtepTypeAddr::Is vtepTypeAddrIs{vtepTypeAddr};
  VtepTypeAddr::Del vtepTypeAddrDel{vtepTypeAddr};
};

}  // namespace Mlag
