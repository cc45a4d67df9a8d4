// Keeps the flood sets of the switch equal to those of its MLAG peer.
//
//   Mlag::VxlanStatus (peerSourceDirEntry) ──┐
//   BumStatus, the peer's and the switch's ──┼──> ZepMlagBumStatusSm ──> L2Rib::SourceDirEntry
//   VlanVniMaps (which VLANs have a VNI) ────┘
//
// Event sources: a change of the peer's flood sets, of one of the two replication modes, of a
// VLAN's mapping. A VLAN is copied while both switches replicate in the controller's mode and the
// VLAN has a VNI, or has had one when it was last copied as a whole. What the peer does not have
// goes when the machine is made, and when the root asks for it (markAndSweep).
//
// The root makes the machine when the pair is active and the client is in controller mode, and
// drops it when one of the two ends. What it has copied stays.
//
// The peer may be a client of the same process that copies from this one: a destination that stands
// already is not written again, so that the two come to rest.
#pragma once

#include "framework/Moru/Children.h"
#include "framework/Moru/Input.h"
#include "model/L2Rib/SourceDirEntry.h"
#include "model/Mlag/VxlanStatus.h"
#include "model/Vxlan/VlanVniMaps.h"
#include "model/Vxlan/VxlanHwStatusDir.h"

namespace Vxlan {

class ZepMlagBumStatusSm final : public Moru::Machine {
 public:
  // Reads the first three, of which the first two must be there: that is asserted. Writes the last;
  // without it nothing is written.
  ZepMlagBumStatusSm(const Moru::Ptr<Mlag::VxlanStatus const>& mlagVxlanStatus,
                     const Moru::Ptr<VxlanHwStatusDir const>& vxlanHwStatusDir,
                     const Moru::Ptr<VlanVniMaps const>& vlanVniMaps,
                     const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde);
  ~ZepMlagBumStatusSm() override;

  // Whether the machine was made from these.
  bool isMadeFrom(const Moru::Ptr<Mlag::VxlanStatus const>& mlagVxlanStatus,
                  const Moru::Ptr<VxlanHwStatusDir const>& vxlanHwStatusDir,
                  const Moru::Ptr<VlanVniMaps const>& vlanVniMaps,
                  const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde) const;

  // Bound for the peer's entities to be read, when the machine is made and no later.
  using MoruMlagVxlanStatus =
      Moru::SilentReactor<Mlag::VxlanStatus::NotifieeConst, ZepMlagBumStatusSm>;

  // So for the switch's BUM status.
  using MoruVxlanHwStatusDir =
      Moru::SilentReactor<VxlanHwStatusDir::NotifieeConst, ZepMlagBumStatusSm>;

  class MoruVlanVniMaps : public Moru::Reactor<VlanVniMaps::NotifieeConst, ZepMlagBumStatusSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleVlanVniMaps_vlanVniMap(Vorn::IntfId intf);
  };

  class MoruRemoteBumStatus : public Moru::Reactor<BumStatus::NotifieeConst, ZepMlagBumStatusSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleRemoteBumStatus_bumReplicationMode();
  };

  class MoruLocalBumStatus : public Moru::Reactor<BumStatus::NotifieeConst, ZepMlagBumStatusSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleLocalBumStatus_bumReplicationMode();
  };

  class MoruRemoteSde
      : public Moru::Reactor<L2Rib::SourceDirEntry::NotifieeConst, ZepMlagBumStatusSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleRemoteSde_vlanFloodSet(Bridging::VlanId vlan);
  };

  // One for each VTI.
  class MoruVtiVlanVniMap : public Moru::Reactor<VlanVniMap::NotifieeConst, ZepMlagBumStatusSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleVtiVlanVniMap_vlanToVsp(Bridging::VlanId vlan);
    void handleVlanVniMapUpdate(Bridging::VlanId vlan);
  };

  // Copies the flood sets of one VLAN; one for each that the peer has. It is initialized once the
  // VLAN has been copied as a whole, and until it loses its VNI or copying is found off.
  //
  // The copy is kept by pointer. Where somebody else removes it from the layer-2 RIB, changes of
  // the peer go into what has been removed, until the VLAN is copied as a whole again.
  class MoruVlanFloodSet
      : public Moru::Reactor<L2Rib::VlanFloodSet::NotifieeConst, ZepMlagBumStatusSm> {
   public:
    // Copies the flood set of one MAC; one for each that the peer has in the VLAN.
    class MoruFloodSet : public Moru::Reactor<L2Rib::FloodSet::NotifieeConst, MoruVlanFloodSet> {
     public:
      using Reactor::Reactor;
      void onAttribute(Moru::AttributeId attribute, const void* key) override;
      void moru_handleFloodSet_floodSetType();
      void moru_handleFloodSet_destSet(L2Rib::Dest dest);

      void handleInitialized();
      void handleReplaced();
      void handleFsInit();

      // Copies one destination, or the whole flood set.
      void handleDest(L2Rib::Dest dest);
      void handleDest();
      void handleFloodSetType();

     private:
      Moru::Ptr<L2Rib::FloodSet> localFloodSet_;
    };

    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleVlanFloodSet_floodSet(Vorn::EthAddr mac);

    const Bridging::VlanId& vlanId() const { return notifier()->vlanId(); }
    BumReplicationMode bumRepMode() const { return machine()->bumRepMode(); }

    // The switch's own flood sets of the VLAN; null until they have been copied for the first time.
    const Moru::Ptr<L2Rib::VlanFloodSet>& localVlanFloodSet() const { return localVlanFloodSet_; }

    Moru::Reactors<MoruFloodSet> floodSet{this,
                                          "Vxlan::ZepMlagBumStatusSm::MoruVlanFloodSet::floodSet"};
    Moru::Reactors<MoruFloodSet>::Is floodSetIs{floodSet};
    Moru::Reactors<MoruFloodSet>::Del floodSetDel{floodSet};
    Moru::Reactors<MoruFloodSet>::DelAll floodSetDelAll{floodSet};

    void handleInitialized();
    void handleReplaced();
    void handleVfsInit();

    // Makes or removes the flood set of one MAC, or copies the whole VLAN.
    void handleFloodSet(Vorn::EthAddr mac);
    void handleFloodSet();

    // Whether the changes of this VLAN are copied.
    bool isCopied() const {
      return bumRepMode() == BumReplicationMode::controller && initialized();
    }

   private:
    Moru::Ptr<L2Rib::VlanFloodSet> localVlanFloodSet_;
  };

  // --- Inputs and the output ---

  Moru::Input<MoruMlagVxlanStatus> mlagVxlanStatus{this};
  Moru::Input<MoruMlagVxlanStatus>::Is mlagVxlanStatusIs{mlagVxlanStatus};
  Moru::Input<MoruMlagVxlanStatus>::Del mlagVxlanStatusDel{mlagVxlanStatus};

  Moru::Input<MoruVxlanHwStatusDir> vxlanHwStatusDir{this};
  Moru::Input<MoruVxlanHwStatusDir>::Is vxlanHwStatusDirIs{vxlanHwStatusDir};
  Moru::Input<MoruVxlanHwStatusDir>::Del vxlanHwStatusDirDel{vxlanHwStatusDir};

  Moru::Input<MoruVlanVniMaps> vlanVniMaps{this};
  Moru::Input<MoruVlanVniMaps>::Is vlanVniMapsIs{vlanVniMaps};
  Moru::Input<MoruVlanVniMaps>::Del vlanVniMapsDel{vlanVniMaps};

  Moru::Input<MoruRemoteBumStatus> remoteBumStatus{this};
  Moru::Input<MoruRemoteBumStatus>::Is remoteBumStatusIs{remoteBumStatus};
  Moru::Input<MoruRemoteBumStatus>::Del remoteBumStatusDel{remoteBumStatus};

  Moru::Input<MoruLocalBumStatus> localBumStatus{this};
  Moru::Input<MoruLocalBumStatus>::Is localBumStatusIs{localBumStatus};
  Moru::Input<MoruLocalBumStatus>::Del localBumStatusDel{localBumStatus};

  Moru::Input<MoruRemoteSde> remoteSde{this};
  Moru::Input<MoruRemoteSde>::Is remoteSdeIs{remoteSde};
  Moru::Input<MoruRemoteSde>::Del remoteSdeDel{remoteSde};

  const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde() const { return zepSde_; }

  Moru::Reactors<MoruVtiVlanVniMap> vtiVlanVniMap{this, "Vxlan::ZepMlagBumStatusSm::vtiVlanVniMap"};
  Moru::Reactors<MoruVtiVlanVniMap>::Is vtiVlanVniMapIs{vtiVlanVniMap};
  Moru::Reactors<MoruVtiVlanVniMap>::Del vtiVlanVniMapDel{vtiVlanVniMap};
  Moru::Reactors<MoruVtiVlanVniMap>::DelAll vtiVlanVniMapDelAll{vtiVlanVniMap};

  Moru::Reactors<MoruVlanFloodSet> vlanFloodSet{this, "Vxlan::ZepMlagBumStatusSm::vlanFloodSet"};
  Moru::Reactors<MoruVlanFloodSet>::Is vlanFloodSetIs{vlanFloodSet};
  Moru::Reactors<MoruVlanFloodSet>::Del vlanFloodSetDel{vlanFloodSet};
  Moru::Reactors<MoruVlanFloodSet>::DelAll vlanFloodSetDelAll{vlanFloodSet};

  // The controller's mode while flood sets are copied, else 0.
  BumReplicationMode bumRepMode() const { return bumRepMode_; }
  void bumRepModeIs(BumReplicationMode bumRepMode) { bumRepMode_ = bumRepMode; }

  void handleInitialized();

  // One of the two modes has changed.
  void handleBumReplicationMode();

  // The peer's flood sets of a VLAN have come or gone: removes the switch's own if they have gone.
  void handleVlanFloodSet(Bridging::VlanId vlan);

  // Removes what the switch has in a VLAN and the peer has not, also while nothing is copied.
  void markAndSweep(Bridging::VlanId vlan);

 private:
  void bindPeer();
  bool isMapped(const Bridging::VlanId& vlan) const;

  const Moru::Ptr<L2Rib::SourceDirEntry> zepSde_;
  BumReplicationMode bumRepMode_ = BumReplicationMode::unknown;
};

Moru::Ptr<ZepMlagBumStatusSm> zepMlagBumStatusSmFactory(
    const Moru::Ptr<Mlag::VxlanStatus const>& mlagVxlanStatus,
    const Moru::Ptr<VxlanHwStatusDir const>& vxlanHwStatusDir,
    const Moru::Ptr<VlanVniMaps const>& vlanVniMaps,
    const Moru::Ptr<L2Rib::SourceDirEntry>& zepSde);

}  // namespace Vxlan
