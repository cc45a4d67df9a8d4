// The status of one VXLAN tunnel interface (VTI).
#pragma once

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "model/Bridging/VlanId.h"
#include "model/Vorn/IntfId.h"
#include "model/Vorn/IpAddr.h"

namespace Vxlan {

class VtiStatus final : public Moru::EntityOf<VtiStatus> {
 public:
  explicit VtiStatus(const Vorn::IntfId& intfId) : intfId_(intfId) {}

  const Vorn::IntfId& intfId() const { return intfId_; }
  const Vorn::IntfId& fwkKey() const { return intfId_; }

  // This VTI takes its remote MAC addresses from the controller.
  using ControllerClientMode = Moru::Attribute<bool, 1>;
  ControllerClientMode controllerClientMode{this};
  ControllerClientMode::Is controllerClientModeIs{controllerClientMode};

  // This VTI learns remote MAC addresses in the data path.
  using DatapathLearning = Moru::Attribute<bool, 2>;
  DatapathLearning datapathLearning{this};
  DatapathLearning::Is datapathLearningIs{datapathLearning};

  // The address of the switch's own VTEP.
  using LocalVtepAddr = Moru::Attribute<Vorn::IpAddr, 3>;
  LocalVtepAddr localVtepAddr{this};
  LocalVtepAddr::Is localVtepAddrIs{localVtepAddr};

  // The address of the virtual-ARP VTEP, which the switch shares with others.
  using VArpVtepAddr = Moru::Attribute<Vorn::IpAddr, 4>;
  VArpVtepAddr vArpVtepAddr{this};
  VArpVtepAddr::Is vArpVtepAddrIs{vArpVtepAddr};

  // The VLANs whose controller information this VTI imports: a set.
  using VccImportVlans =
      Moru::KeyedAttribute<Moru::HashMap2018, Bridging::VlanId, Moru::KeyOnly, 5>;
  VccImportVlans vccImportVlans{this};
  VccImportVlans::Is vccImportVlansIs{vccImportVlans};
  VccImportVlans::Del vccImportVlansDel{vccImportVlans};

 private:
  const Vorn::IntfId intfId_;
};

}  // namespace Vxlan
