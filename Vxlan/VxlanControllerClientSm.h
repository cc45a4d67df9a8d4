// The VXLAN controller client: the one machine that the switch's agent makes, and the root of all
// others.
//
//   what the controller publishes            the client                      what it writes
//
//   VniFdbStatusV2, one a VNI ──────> ZepPerVniFdbStatusSm, one a VNI
//                                          ├───────────────────────────────> L2Rib::SourceDirEntry
//                                          │ received host table
//                                          v
//                                     ReceivedHostTableToL2RibHostInputSm ──> L2Rib::HostInput
//   ZepStateV2 ─────────────────────> ZepStateSm ───────────────────────────> ZepStateClientViewV2
//                                          │ the root watches the view
//   what the switch is set to              v
//                                     deferred deletion ────────────────────> ...ConvergenceStatus
//   VlanVniMap, one a VTI ──────────> VtiVlanVniMapSm, one a VTI
//   VtiStatus, one a VTI ───────────> client modes, import VLANs
//   Mlag::VxlanStatus, the peer's ──> ZepMlagBumStatusSm ───────────────────> L2Rib::SourceDirEntry
//
// A per-VNI machine stands while the client is in controller mode, the controller publishes the
// VNI, and a VTI maps the VNI to a VLAN that is imported.
//
// While the controller converges, after a restart of its own, withdrawals are postponed: hosts are
// marked only, VTEPs stay in their flood sets. When it has converged, the clocks are armed, and the
// marked hosts, and what no flood list asks for any more, go in batches that hold the thread for
// maxProcessTime at most.
//
// While the switch is one half of an active MLAG pair, and in controller mode, its flood sets are
// kept equal to the peer's, and the deferred deletion leaves them alone.
//
// The machine is made by vxlanControllerClientSmFactory() and lives until its last pointer goes.
// What it has written into the layer-2 RIB stays there: the next client takes it over.
#pragma once

#include <cstddef>

#include "Vxlan/ClientInputs.h"
#include "Vxlan/FloodDemand.h"
#include "Vxlan/ReceivedHostTableToL2RibHostInputSm.h"
#include "Vxlan/VtiVlanVniMapSm.h"
#include "Vxlan/ZepMlagBumStatusSm.h"
#include "Vxlan/ZepPerVniFdbStatusSm.h"
#include "Vxlan/ZepStateSm.h"
#include "framework/Moru/ActivityFacility.h"
#include "framework/Moru/Children.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "framework/Moru/Input.h"
#include "model/Vxlan/BumStatus.h"
#include "model/Vxlan/ReceivedHostTable.h"

namespace Vxlan {

class VxlanControllerClientSm final : public Moru::Machine {
 public:
  // Throws what the model throws for a value that it refuses; then there is no machine, and what it
  // had made is taken down in the order of the destructor.
  explicit VxlanControllerClientSm(const ClientInputs& inputs);
  ~VxlanControllerClientSm() override;

  // --- Reactors, one a watched input ---

  class MoruVtiStatusDir
      : public Moru::Reactor<VtiStatusDir::NotifieeConst, VxlanControllerClientSm> {
   public:
    using Reactor::Reactor;
    void notifierIs(Moru::Ptr<VtiStatusDir const> dir) override;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleVtiStatusDir_vtiStatus(Vorn::IntfId intf);
  };

  class MoruControllerStatusBaseDir
      : public Moru::Reactor<Moru::Dir::NotifieeConst, VxlanControllerClientSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleControllerStatusBaseDir_entityPtr(Moru::Name name);
  };

  class MoruZepStateClientView
      : public Moru::Reactor<VxlanController::ZepStateClientViewV2::Notifiee,
                             VxlanControllerClientSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleZepStateClientView_convergenceInProgress();
  };

  // Bound for its BUM status to be read.
  using MoruVxlanHwStatusDir =
      Moru::SilentReactor<VxlanHwStatusDir::NotifieeConst, VxlanControllerClientSm>;

  class MoruMlagStatus
      : public Moru::Reactor<Mlag::Status::NotifieeConst, VxlanControllerClientSm> {
   public:
    using Reactor::Reactor;
    void notifierIs(Moru::Ptr<Mlag::Status const> status) override;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleMlagStatus_mlagState();
  };

  class MoruZepStateBaseDir
      : public Moru::Reactor<Moru::Dir::NotifieeConst, VxlanControllerClientSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleZepStateBaseDir_entityPtr(Moru::Name name);
  };

  class MoruVlanVniMaps
      : public Moru::Reactor<VlanVniMaps::NotifieeConst, VxlanControllerClientSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleVlanVniMaps_vlanVniMap(Vorn::IntfId intf);
  };

  class MoruLocalBumStatus
      : public Moru::Reactor<BumStatus::NotifieeConst, VxlanControllerClientSm> {
   public:
    using Reactor::Reactor;
    void notifierIs(Moru::Ptr<BumStatus const> status) override;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleLocalBumStatus_bumReplicationMode();
  };

  class MoruUnicastDeferredDeleteClock
      : public Moru::Reactor<Moru::Clock::NotifieeConst, VxlanControllerClientSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleUnicastDeferredDeleteClock_timeMin();
  };

  class MoruBumDeferredDeleteClock
      : public Moru::Reactor<Moru::Clock::NotifieeConst, VxlanControllerClientSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleBumDeferredDeleteClock_timeMin();
  };

  // One for each VTI. Making one evaluates the modes and the import VLANs anew.
  class MoruVtiStatus : public Moru::Reactor<VtiStatus::NotifieeConst, VxlanControllerClientSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void handleInitialized();
    void doCleanup();
    void moru_handleVtiStatus_controllerClientMode();
    void moru_handleVtiStatus_datapathLearning();
    void moru_handleVtiStatus_vccImportVlans(Bridging::VlanId vlan);
  };

  // --- Inputs and outputs, in the order of ClientInputs ---

  Moru::Input<MoruVtiStatusDir> vtiStatusDir{this};
  Moru::Input<MoruVtiStatusDir>::Is vtiStatusDirIs{vtiStatusDir};
  Moru::Input<MoruVtiStatusDir>::Del vtiStatusDirDel{vtiStatusDir};

  Moru::Input<MoruControllerStatusBaseDir> controllerStatusBaseDir{this};
  Moru::Input<MoruControllerStatusBaseDir>::Is controllerStatusBaseDirIs{controllerStatusBaseDir};
  Moru::Input<MoruControllerStatusBaseDir>::Del controllerStatusBaseDirDel{controllerStatusBaseDir};

  Moru::Input<MoruZepStateClientView> zepStateClientView{this};
  Moru::Input<MoruZepStateClientView>::Is zepStateClientViewIs{zepStateClientView};
  Moru::Input<MoruZepStateClientView>::Del zepStateClientViewDel{zepStateClientView};

  Moru::Input<MoruVxlanHwStatusDir> vxlanHwStatusDir{this};
  Moru::Input<MoruVxlanHwStatusDir>::Is vxlanHwStatusDirIs{vxlanHwStatusDir};
  Moru::Input<MoruVxlanHwStatusDir>::Del vxlanHwStatusDirDel{vxlanHwStatusDir};

  Moru::Input<MoruMlagStatus> mlagStatus{this};
  Moru::Input<MoruMlagStatus>::Is mlagStatusIs{mlagStatus};
  Moru::Input<MoruMlagStatus>::Del mlagStatusDel{mlagStatus};

  const Moru::Ptr<Mlag::VxlanStatus const>& mlagVxlanStatus() const { return mlagVxlanStatus_; }

  Moru::Input<MoruZepStateBaseDir> zepStateBaseDir{this};
  Moru::Input<MoruZepStateBaseDir>::Is zepStateBaseDirIs{zepStateBaseDir};
  Moru::Input<MoruZepStateBaseDir>::Del zepStateBaseDirDel{zepStateBaseDir};

  Moru::Input<MoruVlanVniMaps> vlanVniMaps{this};
  Moru::Input<MoruVlanVniMaps>::Is vlanVniMapsIs{vlanVniMaps};
  Moru::Input<MoruVlanVniMaps>::Del vlanVniMapsDel{vlanVniMaps};

  const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde() const { return zepSde_; }
  const Moru::Ptr<L2Rib::HostInput>& l2RibZepInput() const { return l2RibZepInput_; }
  const Moru::Ptr<VxlanClientConvergenceStatus>& zepConvergenceStatus() const {
    return zepConvergenceStatus_;
  }

  // --- Inputs that the machine makes for itself ---

  Moru::Input<MoruLocalBumStatus> localBumStatus{this};
  Moru::Input<MoruLocalBumStatus>::Is localBumStatusIs{localBumStatus};
  Moru::Input<MoruLocalBumStatus>::Del localBumStatusDel{localBumStatus};

  Moru::Input<MoruUnicastDeferredDeleteClock> unicastDeferredDeleteClock{this};
  Moru::Input<MoruUnicastDeferredDeleteClock>::Is unicastDeferredDeleteClockIs{
      unicastDeferredDeleteClock};
  Moru::Input<MoruUnicastDeferredDeleteClock>::Del unicastDeferredDeleteClockDel{
      unicastDeferredDeleteClock};

  Moru::Input<MoruBumDeferredDeleteClock> bumDeferredDeleteClock{this};
  Moru::Input<MoruBumDeferredDeleteClock>::Is bumDeferredDeleteClockIs{bumDeferredDeleteClock};
  Moru::Input<MoruBumDeferredDeleteClock>::Del bumDeferredDeleteClockDel{bumDeferredDeleteClock};

  Moru::Reactors<MoruVtiStatus> vtiStatus{this, "Vxlan::VxlanControllerClientSm::vtiStatus"};
  Moru::Reactors<MoruVtiStatus>::Is vtiStatusIs{vtiStatus};
  Moru::Reactors<MoruVtiStatus>::Del vtiStatusDel{vtiStatus};
  Moru::Reactors<MoruVtiStatus>::DelAll vtiStatusDelAll{vtiStatus};

  // --- Children ---

  Moru::Child<ZepStateSm> zepStateSm{this};
  Moru::Child<ZepStateSm>::Is zepStateSmIs{zepStateSm};
  Moru::Child<ZepStateSm>::Del zepStateSmDel{zepStateSm};

  using MirrorSm = ReceivedHostTableToL2RibHostInputSm;
  Moru::Child<MirrorSm> receivedHostTableToL2RibHostInputSm{this};
  Moru::Child<MirrorSm>::Is receivedHostTableToL2RibHostInputSmIs{
      receivedHostTableToL2RibHostInputSm};
  Moru::Child<MirrorSm>::Del receivedHostTableToL2RibHostInputSmDel{
      receivedHostTableToL2RibHostInputSm};

  using ZepPerVniFdbStatusSms = Moru::Children<VniExt, ZepPerVniFdbStatusSm>;
  ZepPerVniFdbStatusSms zepPerVniFdbStatusSm{this};
  ZepPerVniFdbStatusSms::Is zepPerVniFdbStatusSmIs{zepPerVniFdbStatusSm};
  ZepPerVniFdbStatusSms::Del zepPerVniFdbStatusSmDel{zepPerVniFdbStatusSm};
  ZepPerVniFdbStatusSms::DelAll zepPerVniFdbStatusSmDelAll{zepPerVniFdbStatusSm};

  // Null unless MLAG is active and the client is in controller mode. Asked for with other inputs
  // than it was made from, it is replaced.
  Moru::Child<ZepMlagBumStatusSm> zepMlagBumStatusSm{this};
  Moru::Child<ZepMlagBumStatusSm>::Is zepMlagBumStatusSmIs{zepMlagBumStatusSm};
  Moru::Child<ZepMlagBumStatusSm>::Del zepMlagBumStatusSmDel{zepMlagBumStatusSm};

  // vlanVniMapSmIs(intf, map, root) is what makes a VtiVlanVniMapSm; there is no other factory.
  using VlanVniMapSms = Moru::Children<Vorn::IntfId, VtiVlanVniMapSm>;
  VlanVniMapSms vlanVniMapSm{this};
  VlanVniMapSms::Is vlanVniMapSmIs{vlanVniMapSm};
  VlanVniMapSms::Del vlanVniMapSmDel{vlanVniMapSm};
  VlanVniMapSms::DelAll vlanVniMapSmDelAll{vlanVniMapSm};

  void handleInitialized();

  // --- Client modes: the controller mode is on when any VTI's is, data-path learning when all are

  bool vxlanControllerClientMode() const { return vxlanControllerClientMode_; }
  void vxlanControllerClientModeIs(bool mode) { vxlanControllerClientMode_ = mode; }
  bool datapathLearningMode() const { return datapathLearningMode_; }
  void datapathLearningModeIs(bool mode) { datapathLearningMode_ = mode; }

  // Folds one mode from the VTIs.
  void cacheControllerClientMode();
  void cacheDatapathLearningMode();

  void handleControllerClientMode();
  void handleDatapathLearningMode();

  // Brings the controller-facing machines in line with the modes as they stand.
  void updateControllerClientMode();

  // --- VLAN-VNI maps ---

  // Brings the machine of one VTI, or of all, in line with the maps.
  void handleVlanVniMapVti(Vorn::IntfId intf);
  void handleVlanVniMapVti();

  // --- Import VLANs: the union of what the VTIs import ---

  using ImportVlans = Moru::HashMap2018<Bridging::VlanId, Moru::KeyOnly>;
  const ImportVlans& vccImportVlans() const { return vccImportVlans_; }
  void vccImportVlansIs(Bridging::VlanId vlan);
  void vccImportVlansDel(Bridging::VlanId vlan);
  void vccImportVlansDelAll();

  // Computes the membership of all VLANs, or of one, anew.
  void updateAggregateImportVlans();
  void updateAggregateImportVlans(Bridging::VlanId vlan);

  // A VLAN has entered the union or left it.
  void handleVccImportVlans(Bridging::VlanId vlan);

  // --- Controller state and convergence ---

  // Brings the convergence machine in line with one entry of the state directory, or with all.
  void handleZepStateBaseDir(Moru::Name name);
  void handleZepStateBaseDir();

  // The client view has been written.
  void handleConvergenceInProgress();

  // What the client view says; false without one.
  bool convergenceInProgress() const;

  // --- Controller VNIs ---

  // Brings a VNI's machine in line with its entry of the status directory, or all with all. Throws
  // RangeException for a name that is no VNI; a new entry of VNI 0 is a fatal assertion.
  void handleControllerVniBaseDir(Moru::Name name);
  void handleControllerVniBaseDir();

  // A VNI has become mapped or imported.
  void vxlanControllerScanVniStatus(VniExt vni);

  // Removes what the machine of one VNI has put into the switch; of all VNIs, with the machines.
  void cleanupZepPerVniFdbStatusSm(VniExt vni, bool deferIfConverging);
  void cleanupZepPerVniFdbStatusSm();

  // --- Flood sets ---

  // Makes or drops the machine that copies the MLAG peer's flood sets. Without an MLAG status there
  // is no MLAG while the controller mode is off; with the mode on that is a fatal assertion.
  void handleMlagState();

  // Brings the flood sets back when the hardware has come to replicate in the controller's mode,
  // and removes them all when it has left it.
  void handleBumReplicationMode();

  // Removes the flood sets of one VLAN, or of all.
  void deleteBumVtepListTable(Bridging::VlanId vlan);
  void deleteBumVtepListTable();

  // --- Received hosts ---

  // The hosts that the controller has reported; null until the machine is initialized.
  const Moru::Ptr<ReceivedHostTable>& hostTable() const { return hostTable_; }

  // Gives the table of that name, making a new one if the machine holds another, or none.
  const Moru::Ptr<ReceivedHostTable>& hostTableIs(const Moru::Name& name);
  void hostTableDel();

  // Whether an address is one of the switch's own VTEPs, or of its MLAG peer's.
  bool isVtepIpMine(VniExt vni, Vorn::IpAddr vtepIp, Vorn::IntfId vtiIntfId) const;

  // Which of them it is, for a VTI of that status.
  enum class OwnVtep : std::uint8_t { none, local, vArp, mlag };
  OwnVtep ownVtep(const Vorn::IpAddr& vtepIp, const VtiStatus& status) const;

  // Marks one entry for deferred deletion, unless it is marked or absent.
  void deferDeleteReceivedTableEntry(Bridging::MacVlanPair key);

  // Removes one entry.
  void deleteReceivedTableEntry(Bridging::MacVlanPair key);

  // Removes or marks all entries of one VLAN, in the order of the table.
  void deleteRemoteMacFromController(Bridging::VlanId vlan, bool deferDel);

  // --- Deferred deletion (DeferredDeletion.cpp) ---
  //
  // What is stale after a convergence goes in batches, of hosts and of flood sets alike. Each of
  // the two is in one of three states, which its flag in the convergence status and its clock show:
  //
  //   state    flag   clock  entered by                         left by
  //   idle     false  never  a run that is done, or has         the end of a convergence
  //                          nothing to do
  //   pending  true   armed  the end of a convergence, or a     the clock, which runs a batch
  //                          batch whose time is spent
  //   paused   false  never  a batch that finds the controller  the end of that convergence
  //                          converging again

  // How long one run may take before it yields, in seconds; 0.01 at first.
  double maxProcessTime() const { return maxProcessTime_; }
  void maxProcessTimeIs(double maxProcessTime) { maxProcessTime_ = maxProcessTime; }

  // The entry that the next run begins with. The default pair, the smallest key, is none.
  const Bridging::MacVlanPair& unicastDeferredDeleteBookmark() const {
    return unicastDeferredDeleteBookmark_;
  }
  void unicastDeferredDeleteBookmarkIs(const Bridging::MacVlanPair& bookmark) {
    unicastDeferredDeleteBookmark_ = bookmark;
  }

  // The VLAN that the next run of the flood sets' deletion begins with, if it is valid.
  const Bridging::VlanId& bumDeferredDeleteBookmark() const { return bumDeferredDeleteBookmark_; }
  void bumDeferredDeleteBookmarkIs(const Bridging::VlanId& vlan) {
    bumDeferredDeleteBookmark_ = vlan;
  }
  bool bumDeferredDeleteBookmarkValid() const { return bumDeferredDeleteBookmarkValid_; }
  void bumDeferredDeleteBookmarkValidIs(bool valid) { bumDeferredDeleteBookmarkValid_ = valid; }

  // One batch of either.
  void processUnicastDeferredDeletes();
  void processBumDeferredDeletes();

 private:
  // The constructor goes on from this one: what it throws is then followed by the destructor.
  VxlanControllerClientSm() = default;

  // --- VTI status ---
  bool isImportedByAnyVti(Bridging::VlanId vlan) const;

  // --- Controller state and convergence ---
  void unicastDeferredDeletionInProgressIs(bool inProgress);
  void bumDeferredDeletionInProgressIs(bool inProgress);

  // --- Flood sets ---
  Mlag::MlagState mlagState() const;  // disabled without an MLAG status
  bool isMlagBumWanted() const;
  BumReplicationMode localBumReplicationMode() const;  // unknown without a BUM status

  // --- Deferred deletion ---

  // The flood sets' run goes round the VLAN numbers once, in as many batches as it takes: which
  // flood sets come and go meanwhile makes no difference to where it is. Without VLANs left there
  // is no run.
  struct BumRun {
    Bridging::VlanId bookmark;  // that it has set itself
    unsigned vlansLeft = 0;     // how many numbers it has not come to
    std::size_t deleted = 0;
  };

  void endUnicastDeferredDeletes();
  bool ownsFloodSets() const;
  Bridging::VlanId beginBumBatch();
  void bookmarkBumRun(Bridging::VlanId vlan);
  void endBumDeferredDeletes();
  FloodDemand floodDemandOf(Bridging::VlanId vlan) const;

  static constexpr double defaultMaxProcessTime = 0.01;

  Moru::Ptr<Mlag::VxlanStatus const> mlagVxlanStatus_;
  Moru::Ptr<L2Rib::SourceDirEntry> zepSde_;
  Moru::Ptr<L2Rib::HostInput> l2RibZepInput_;
  Moru::Ptr<VxlanClientConvergenceStatus> zepConvergenceStatus_;

  bool vxlanControllerClientMode_ = false;
  bool datapathLearningMode_ = true;
  double maxProcessTime_ = defaultMaxProcessTime;
  Bridging::MacVlanPair unicastDeferredDeleteBookmark_;
  Bridging::VlanId bumDeferredDeleteBookmark_;
  bool bumDeferredDeleteBookmarkValid_ = false;
  BumRun bumRun_;
  ImportVlans vccImportVlans_;
  Moru::Ptr<ReceivedHostTable> hostTable_;
};

Moru::Ptr<VxlanControllerClientSm> vxlanControllerClientSmFactory(const ClientInputs& inputs);

// The same, with the members of ClientInputs one by one and in their order.
Moru::Ptr<VxlanControllerClientSm> vxlanControllerClientSmFactory(
    const Moru::Ptr<VtiStatusDir const>& vtiStatusDir,
    const Moru::Ptr<Moru::Dir const>& controllerStatusBaseDir,
    const Moru::Ptr<VxlanController::ZepStateClientViewV2>& zepStateClientView,
    const Moru::Ptr<VxlanHwStatusDir const>& vxlanHwStatusDir,
    const Moru::Ptr<Mlag::Status const>& mlagStatus,
    const Moru::Ptr<Mlag::VxlanStatus const>& mlagVxlanStatus,
    const Moru::Ptr<Moru::Dir const>& zepStateBaseDir,
    const Moru::Ptr<VlanVniMaps const>& vlanVniMaps, const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde,
    const Moru::Ptr<L2Rib::HostInput>& l2RibZepInput,
    const Moru::Ptr<VxlanClientConvergenceStatus>& zepConvergenceStatus);

}  // namespace Vxlan
