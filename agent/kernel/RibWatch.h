// Notes what has changed in the layer-2 RIB, and in what its VLANs stand for, until it is taken.
#pragma once

#include <set>
#include <utility>
#include <vector>

#include "agent/watch/FloodSetsWatch.h"
#include "framework/Moru/Children.h"
#include "framework/Moru/Input.h"
#include "model/Bridging/MacVlanPair.h"
#include "model/L2Rib/HostInput.h"
#include "model/L2Rib/SourceDirEntry.h"
#include "model/Vxlan/VlanVniMaps.h"
#include "model/Vxlan/VtiStatusDir.h"

namespace Agent::Kernel {

// What the data plane is fed from. All of it must be there.
struct Rib {
  Moru::Ptr<L2Rib::HostInput const> hosts;
  Moru::Ptr<L2Rib::SourceDirEntry const> floodSets;
  Moru::Ptr<Vxlan::VlanVniMaps const> vlanVniMaps;
  Moru::Ptr<Vxlan::VtiStatusDir const> vtis;
};

class RibWatch final : public Moru::Machine, private FloodSetsWatch::Listener {
 public:
  // What is there already counts as changed.
  explicit RibWatch(const Rib& rib);
  ~RibWatch() override;

  // Keys of hosts may come several times.
  struct Changes {
    std::vector<Bridging::MacVlanPair> hosts{};
    std::set<std::pair<Bridging::VlanId, Vorn::EthAddr>> floodSets{};
    bool maps = false;  // the VNIs of VLANs
    bool vtis = false;  // the addresses of our VTEP
  };
  const Changes& changes() const { return changes_; }
  Changes take() { return std::exchange(changes_, {}); }

  class MoruHosts : public Moru::Reactor<L2Rib::HostInput::NotifieeConst, RibWatch> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleHosts_host(Bridging::MacVlanPair key);
  };

  class MoruMaps : public Moru::Reactor<Vxlan::VlanVniMaps::NotifieeConst, RibWatch> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleMaps_vlanVniMap(Vorn::IntfId intf);
  };

  class MoruMap : public Moru::Reactor<Vxlan::VlanVniMap::NotifieeConst, RibWatch> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId, const void*) override { machine()->changes_.maps = true; }
    void handleReplaced() {}
  };

  class MoruVtis : public Moru::Reactor<Vxlan::VtiStatusDir::NotifieeConst, RibWatch> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleVtis_vtiStatus(Vorn::IntfId intf);
  };

  class MoruVti : public Moru::Reactor<Vxlan::VtiStatus::NotifieeConst, RibWatch> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId, const void*) override { machine()->changes_.vtis = true; }
    void handleReplaced() {}
  };

 private:
  void floodSetChanged(const Bridging::VlanId& vlan, const Vorn::EthAddr& mac) override {
    changes_.floodSets.emplace(vlan, mac);
  }
  void floodTypeChanged(const Bridging::VlanId& vlan, const Vorn::EthAddr& mac) override {
    changes_.floodSets.emplace(vlan, mac);
  }
  void destChanged(const Bridging::VlanId& vlan, const Vorn::EthAddr& mac,
                   const L2Rib::Dest&) override {
    changes_.floodSets.emplace(vlan, mac);
  }

  Moru::Input<MoruHosts> hosts_{this};
  Moru::Input<MoruHosts>::Is hostsIs_{hosts_};
  Moru::Input<MoruMaps> maps_{this};
  Moru::Input<MoruMaps>::Is mapsIs_{maps_};
  Moru::Input<MoruVtis> vtis_{this};
  Moru::Input<MoruVtis>::Is vtisIs_{vtis_};
  Moru::Reactors<MoruMap> map_{this, "Agent::Kernel::RibWatch::map"};
  Moru::Reactors<MoruVti> vti_{this, "Agent::Kernel::RibWatch::vti"};

  Changes changes_;
  Moru::Ptr<FloodSetsWatch> floodSets_;
};

}  // namespace Agent::Kernel
