// Tells of every change of the flood sets in the layer-2 RIB.
#pragma once

#include "framework/Moru/Children.h"
#include "framework/Moru/Input.h"
#include "model/Bridging/VlanId.h"
#include "model/L2Rib/Dest.h"
#include "model/L2Rib/SourceDirEntry.h"
#include "model/Vorn/EthAddr.h"

namespace Agent {

class FloodSetsWatch final : public Moru::Machine {
 public:
  class Listener {
   public:
    // It came, went, or is another one.
    virtual void floodSetChanged(const Bridging::VlanId& vlan, const Vorn::EthAddr& mac) = 0;
    virtual void floodTypeChanged(const Bridging::VlanId& vlan, const Vorn::EthAddr& mac) = 0;
    virtual void destChanged(const Bridging::VlanId& vlan, const Vorn::EthAddr& mac,
                             const L2Rib::Dest& dest) = 0;

   protected:
    ~Listener() = default;
  };

  // Tells at once of all flood sets that there are. `listener` must outlive this object.
  FloodSetsWatch(const Moru::Ptr<L2Rib::SourceDirEntry const>& floodSets, Listener& listener);
  ~FloodSetsWatch() override;

  class MoruFloodSets : public Moru::Reactor<L2Rib::SourceDirEntry::NotifieeConst, FloodSetsWatch> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleFloodSets_vlanFloodSet(Bridging::VlanId vlan);
  };

  // One for each VLAN that has flood sets.
  class MoruVlanFloodSet
      : public Moru::Reactor<L2Rib::VlanFloodSet::NotifieeConst, FloodSetsWatch> {
   public:
    class MoruFloodSet : public Moru::Reactor<L2Rib::FloodSet::NotifieeConst, MoruVlanFloodSet> {
     public:
      using Reactor::Reactor;
      void onAttribute(Moru::AttributeId attribute, const void* key) override;
      void handleReplaced() { machine()->tellChanged(fwkKey()); }
    };

    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleVlanFloodSet_floodSet(Vorn::EthAddr mac);

    Moru::Reactors<MoruFloodSet> floodSet{this, "Agent::FloodSetsWatch::floodSet"};

    void handleInitialized();
    void handleReplaced();
    void tellChanged(const Vorn::EthAddr& mac) { machine()->listener_.floodSetChanged(vlan_, mac); }
    void tellAllChanged();
    void tellType(const Vorn::EthAddr& mac) { machine()->listener_.floodTypeChanged(vlan_, mac); }
    void tellDest(const Vorn::EthAddr& mac, const L2Rib::Dest& dest) {
      machine()->listener_.destChanged(vlan_, mac, dest);
    }

   private:
    Bridging::VlanId vlan_;
  };

 private:
  Listener& listener_;
  Moru::Input<MoruFloodSets> floodSets_{this};
  Moru::Input<MoruFloodSets>::Is floodSetsIs_{floodSets_};
  Moru::Reactors<MoruVlanFloodSet> vlanFloodSet_{this, "Agent::FloodSetsWatch::vlanFloodSet"};
};

}  // namespace Agent
