// Turns the controller's flood list of one MAC into flood sets.
//
//   MacVtepFloodListV2 (vtepIpFloodList) ──> MacVtepFloodListTableSm ──> L2Rib::SourceDirEntry
//
// Event source: a change of one VTEP in the list. For every VTI that maps the VNI to a VLAN, the
// VLAN has a flood set of the MAC that sends to all VTEPs of the list. While the MAC has a
// multipath entry, that one's flood set stands in its place, and the machine leaves it alone; so it
// does while the hardware does not replicate in the controller's mode.
//
// The per-VNI machine makes it when the controller publishes a flood list for the MAC. When the
// list goes it has cleanup() called and drops it; when the per-VNI machine itself goes, what was
// written is the root's to remove.
#pragma once

#include "framework/Moru/Children.h"
#include "framework/Moru/Input.h"
#include "model/Bridging/VlanIdOrNone.h"
#include "model/L2Rib/SourceDirEntry.h"
#include "model/VxlanController/MacVtepFloodListV2.h"

namespace Vxlan {

class ZepPerVniFdbStatusSm;

class MacVtepFloodListTableSm final : public Moru::Machine {
 public:
  // The per-VNI machine owns this one and outlives it. The flood list may be null, which is an
  // empty one; without a source directory entry nothing is written.
  MacVtepFloodListTableSm(
      const Vorn::EthAddr& macAddr,
      const Moru::Ptr<VxlanController::MacVtepFloodListV2 const>& macVtepFloodListTable,
      const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde, ZepPerVniFdbStatusSm* zepPerVniFdbStatusSm);
  ~MacVtepFloodListTableSm() override;

  const Vorn::EthAddr& macAddr() const { return macAddr_; }
  const Vorn::EthAddr& fwkKey() const { return macAddr_; }
  const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde() const { return zepSde_; }
  ZepPerVniFdbStatusSm* zepPerVniFdbStatusSm() const { return zepPerVniFdbStatusSm_; }

  // Throws NameInUseException unless the machine was made from these.
  void constructorCheck(
      const Moru::Ptr<VxlanController::MacVtepFloodListV2 const>& macVtepFloodListTable,
      const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde,
      ZepPerVniFdbStatusSm* zepPerVniFdbStatusSm) const;

  class MoruMacVtepFloodListTable
      : public Moru::Reactor<VxlanController::MacVtepFloodListV2::NotifieeConst,
                             MacVtepFloodListTableSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleMacVtepFloodListTable_vtepIpFloodList(Vorn::IpAddr ip);
  };

  Moru::Input<MoruMacVtepFloodListTable> macVtepFloodListTable{this};
  Moru::Input<MoruMacVtepFloodListTable>::Is macVtepFloodListTableIs{macVtepFloodListTable};
  Moru::Input<MoruMacVtepFloodListTable>::Del macVtepFloodListTableDel{macVtepFloodListTable};

  // Brings the flood sets of the MAC in line with the whole list.
  void handleInitialized();

  // Removes the flood sets of the MAC: the list has been withdrawn.
  void cleanup();

  // Brings one VTEP of the flood sets in line with the list, or all that the list has.
  void handleVtepIpFloodList(Vorn::IpAddr ip);
  void handleVtepIpFloodList();

 private:
  // Whether the MAC's flood set belongs to its multipath entry, as it does while there is one.
  bool isMultiPath() const;
  bool isMember(const Vorn::IpAddr& ip) const;
  Moru::Ptr<L2Rib::FloodSet> floodSetOf(const Bridging::VlanIdOrNone& vlan) const;

  const Vorn::EthAddr macAddr_;
  const Moru::Ptr<L2Rib::SourceDirEntry> zepSde_;
  ZepPerVniFdbStatusSm* const zepPerVniFdbStatusSm_;
};

}  // namespace Vxlan
