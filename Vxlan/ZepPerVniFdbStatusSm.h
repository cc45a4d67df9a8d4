// Turns what the controller publishes for one VNI into received hosts and flood sets.
//
//   VniFdbStatusV2 (macVtepTable) ─┐
//   VtiStatus (vArpVtepAddr) ──────┼──> ZepPerVniFdbStatusSm ──> the root's received host table
//   VtiStatusDir (which VTIs) ─────┘
//
//   VniFdbStatusV2 (macVtepMultiPathTable) ──> ZepPerVniFdbStatusSm ──────┬──> SourceDirEntry
//   VniFdbStatusV2 (macVtepFloodListTable) ──> MacVtepFloodListTableSm, ──┘
//                                              one a MAC
//
// Event sources: a change of one MAC in one of the controller's three tables; a change of a VTI's
// virtual-ARP VTEP address, which makes hosts local or remote. For every VTI that maps the VNI to a
// VLAN, the host table has an entry for each of the controller's hosts, except those behind the
// switch's own VTEP addresses; while data-path learning is on it imports none. In the same VLANs a
// MAC with a multipath entry has a flood set that sends to any one of its VTEPs, and a MAC that has
// a flood list alone has one that sends to all; while the hardware does not replicate in the
// controller's mode, nothing is written there.
//
// The root makes the machine when the VNI is published, mapped and imported, and drops it when it
// no longer is; the entries and flood sets that it wrote are the root's to remove.
#pragma once

#include "Vxlan/MacVtepFloodListTableSm.h"
#include "Vxlan/Walk.h"
#include "framework/Moru/Children.h"
#include "framework/Moru/Input.h"
#include "model/L2Rib/SourceDirEntry.h"
#include "model/Vxlan/ReceivedHostTable.h"
#include "model/Vxlan/VlanVniMaps.h"
#include "model/Vxlan/VtiStatusDir.h"
#include "model/Vxlan/VxlanHwStatusDir.h"
#include "model/VxlanController/VniFdbStatusV2.h"

namespace Vxlan {

class VxlanControllerClientSm;

class ZepPerVniFdbStatusSm final : public Moru::Machine {
 public:
  // The root owns the machine and outlives it. Of the others all but the first may be null.
  ZepPerVniFdbStatusSm(const VniExt& vni,
                       const Moru::Ptr<VxlanController::VniFdbStatusV2 const>& zepVniFdbStatusV2,
                       const Moru::Ptr<VtiStatusDir const>& vtiStatusDir,
                       const Moru::Ptr<VxlanHwStatusDir const>& vxlanHwStatusDir,
                       const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde,
                       VxlanControllerClientSm* vxlanControllerClientSm);
  ~ZepPerVniFdbStatusSm() override;

  const VniExt& vni() const { return vni_; }
  const VniExt& fwkKey() const { return vni_; }
  const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde() const { return zepSde_; }
  VxlanControllerClientSm* vxlanControllerClientSm() const { return vxlanControllerClientSm_; }

  // Throws NameInUseException unless the machine was made from these.
  void constructorCheck(const Moru::Ptr<VxlanController::VniFdbStatusV2 const>& zepVniFdbStatusV2,
                        const Moru::Ptr<VtiStatusDir const>& vtiStatusDir,
                        const Moru::Ptr<VxlanHwStatusDir const>& vxlanHwStatusDir,
                        const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde,
                        VxlanControllerClientSm* vxlanControllerClientSm) const;

  class MoruZepVniFdbStatusV2
      : public Moru::Reactor<VxlanController::VniFdbStatusV2::NotifieeConst, ZepPerVniFdbStatusSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleZepVniFdbStatusV2_macVtepTable(Vorn::EthAddr mac);
    void moru_handleZepVniFdbStatusV2_macVtepMultiPathTable(Vorn::EthAddr mac);
    void moru_handleZepVniFdbStatusV2_macVtepFloodListTable(Vorn::EthAddr mac);
  };

  class MoruVtiStatusDir : public Moru::Reactor<VtiStatusDir::NotifieeConst, ZepPerVniFdbStatusSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleVtiStatusDir_vtiStatus(Vorn::IntfId intf);
  };

  // Bound for checkBumStatus() to read.
  using MoruVxlanHwStatusDir =
      Moru::SilentReactor<VxlanHwStatusDir::NotifieeConst, ZepPerVniFdbStatusSm>;

  class MoruVtiStatus : public Moru::Reactor<VtiStatus::NotifieeConst, ZepPerVniFdbStatusSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleVtiStatus_vArpVtepAddr();
  };

  Moru::Input<MoruZepVniFdbStatusV2> zepVniFdbStatusV2{this};
  Moru::Input<MoruZepVniFdbStatusV2>::Is zepVniFdbStatusV2Is{zepVniFdbStatusV2};
  Moru::Input<MoruZepVniFdbStatusV2>::Del zepVniFdbStatusV2Del{zepVniFdbStatusV2};

  Moru::Input<MoruVtiStatusDir> vtiStatusDir{this};
  Moru::Input<MoruVtiStatusDir>::Is vtiStatusDirIs{vtiStatusDir};
  Moru::Input<MoruVtiStatusDir>::Del vtiStatusDirDel{vtiStatusDir};

  Moru::Input<MoruVxlanHwStatusDir> vxlanHwStatusDir{this};
  Moru::Input<MoruVxlanHwStatusDir>::Is vxlanHwStatusDirIs{vxlanHwStatusDir};
  Moru::Input<MoruVxlanHwStatusDir>::Del vxlanHwStatusDirDel{vxlanHwStatusDir};

  Moru::Reactors<MoruVtiStatus> vtiStatus{this, "Vxlan::ZepPerVniFdbStatusSm::vtiStatus"};
  Moru::Reactors<MoruVtiStatus>::Is vtiStatusIs{vtiStatus};
  Moru::Reactors<MoruVtiStatus>::Del vtiStatusDel{vtiStatus};
  Moru::Reactors<MoruVtiStatus>::DelAll vtiStatusDelAll{vtiStatus};

  using MacVtepFloodListTableSms = Moru::Children<Vorn::EthAddr, MacVtepFloodListTableSm>;
  MacVtepFloodListTableSms macVtepFloodListTableSm{this};
  MacVtepFloodListTableSms::Is macVtepFloodListTableSmIs{macVtepFloodListTableSm};
  MacVtepFloodListTableSms::Del macVtepFloodListTableSmDel{macVtepFloodListTableSm};
  MacVtepFloodListTableSms::DelAll macVtepFloodListTableSmDelAll{macVtepFloodListTableSm};

  void handleInitialized();

  // Brings the received entries of one MAC, or of all that the controller has, in line with the
  // controller's host table.
  void handleZepHostTable(Vorn::EthAddr mac);
  void handleZepHostTable();

  void handleVarpVtepAddr();

  // Brings the flood sets of one MAC, or of all that the controller has, in line with the
  // controller's multipath table.
  void handleMacVtepMultiPathTable(Vorn::EthAddr mac);
  void handleMacVtepMultiPathTable();

  // Brings the flood list machine of one MAC, or of all that the controller has, in line with the
  // controller's flood list table.
  void handleMacVtepFloodListTable(Vorn::EthAddr mac);
  void handleMacVtepFloodListTable();

  // Whether flood sets may be written: the hardware replicates in the controller's mode.
  bool checkBumStatus() const;

  // Where the VTIs map the VNI to (Walk.h).
  VlansOfVni vlans() const;

  // What the controller asks for a MAC: the VTEPs of its multipath entry, or else of its flood
  // list. Null or false if it asks for nothing; a multipath entry without VTEPs is none. The
  // pointers are good until the controller changes the entry.
  const VxlanController::MacVtepMultiPathV2* multiPath(const Vorn::EthAddr& mac) const;
  const VxlanController::MacVtepFloodListV2* floodList(const Vorn::EthAddr& mac) const;
  bool isDestAskedFor(const Vorn::EthAddr& mac, const L2Rib::Dest& dest) const;

 private:
  void withdrawHost(const ReceivedHostTable& table, const Bridging::MacVlanPair& key);

  const VniExt vni_;
  const Moru::Ptr<L2Rib::SourceDirEntry> zepSde_;
  VxlanControllerClientSm* const vxlanControllerClientSm_;
};

}  // namespace Vxlan
