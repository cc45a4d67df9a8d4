// A switch, a controller and a client over them, on a virtual clock: what the tests of the client
// act upon. Words follow the state store: a test says what its writers would do.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Vxlan/VxlanControllerClientSm.h"
#include "framework/Moru/ActivityFacility.h"

namespace Test {

using Bridging::MacVlanPair;
using Bridging::VlanId;
using Moru::create;
using Moru::Ptr;
using Vorn::EthAddr;
using Vorn::IntfId;
using Vorn::IpAddr;
using Vxlan::VniExt;

inline EthAddr mac(std::uint64_t number) { return EthAddr::fromValue(0x020000000000 + number); }
inline IpAddr vtep(std::uint32_t number) { return IpAddr(0x0a000000 + number); }
inline int numberOf(const EthAddr& address) {
  return static_cast<int>(address.value() - mac(0).value());
}
inline std::uint32_t numberOf(const IpAddr& address) { return address.value() - vtep(0).value(); }

// Received hosts, whole but for the time, which is 0.
using Hosts = std::map<MacVlanPair, Vxlan::ReceivedEntry>;

// One that the controller's feed has written.
Hosts::value_type remote(std::uint64_t macNumber, int vlan, const char* intf,
                         std::uint32_t vtepNumber, std::uint32_t moveCount = 0,
                         std::uint8_t kind = 16);

// The flood sets by VLAN and number of the MAC, each as its type and its destinations: "all 2 3",
// "any 4", "7: 2" with the numbers of VTEPs, others in their own words. A VLAN without any stands
// under MAC 0.
using FloodSets = std::map<std::pair<int, int>, std::string>;
using Vteps = std::set<std::uint32_t>;

// Those of one entry. Destinations whose flag is false do not count.
FloodSets floodSetsOf(const L2Rib::SourceDirEntry& sde);

// What one reading of the time moves it on by, in the worlds where it does: exact in binary.
constexpr double tick = 1.0 / 1024;

inline L2Rib::Dest dest(std::uint32_t vtepNumber) {
  return {L2Rib::DestId{}, L2Rib::DestDataVxlan{vtep(vtepNumber)}};
}

// Calls a function at every change of an entity, until it is released.
using OnChange = std::function<void(Moru::AttributeId, const void* key)>;
template <class E>
class Watcher final : public E::NotifieeConst {
 public:
  Watcher(const Ptr<E>& entity, OnChange onChange) : onChange_(std::move(onChange)) {
    this->notifierIs(entity);
    this->hasNotificationActiveIs(true);
  }
  void onAttribute(Moru::AttributeId id, const void* key) override { onChange_(id, key); }

 private:
  const OnChange onChange_;
};

template <class E>
Ptr<Watcher<E>> watch(const Ptr<E>& entity, OnChange onChange) {
  return create<Watcher<E>>(entity, std::move(onChange));
}

// What an exception of the given kind says.
template <class Kind, class Act>
std::string refusal(Act&& act) {
  try {
    act();
  } catch (const Kind& exception) {
    return exception.what();
  }
  return "nothing was refused";
}

class World {
 public:
  // Each reading of the time moves it on by `timePerRead` seconds.
  explicit World(double timePerRead = 0);
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  // --- The client ---

  // Builds a client over the entities, of which a null stands for an input that is absent.
  void start();
  void startAndRest() {
    start();
    rest();
    trace();
  }
  // Destroys it, and checks that it has left nothing attached to any entity.
  void stop();
  void restart() {
    stop();
    start();
  }

  // --- The switch. VTIs are "Vxlan1" and so on; VTEP 1 is the switch's own ---

  Ptr<Vxlan::VtiStatus> addVti(const char* intf, bool controllerClientMode = true,
                               bool datapathLearning = false);
  Ptr<Vxlan::VtiStatus> vti(const char* intf) const {
    return vtiStatusDir->vtiStatus(IntfId(intf));
  }
  // Maps a VLAN to a VNI, both directions, and imports the VLAN. A map that is new is filled before
  // it is added.
  void mapAndImport(const char* intf, int vlan, std::uint32_t vni);
  void map(const char* intf, int vlan, std::uint32_t vni) const;
  void unmap(const char* intf, int vlan) const;

  // --- The controller ---

  Ptr<VxlanController::VniFdbStatusV2> publish(std::uint32_t vni);  // makes the entry if need be
  void unpublish(std::uint32_t vni) const {
    controllerStatusBaseDir->entityPtrDel(std::to_string(vni));
  }
  void host(std::uint32_t vni, std::uint64_t macNumber, std::uint32_t vtepNumber,
            std::uint32_t moveCount = 0, std::uint8_t kind = 16);
  void withdraw(std::uint32_t vni, std::uint64_t macNumber) {
    publish(vni)->macVtepTableDel(mac(macNumber));
  }
  void converging(bool inProgress);
  // A flood list is changed in place, VTEP by VTEP; a multipath entry as a whole.
  void floodList(std::uint32_t vni, std::uint64_t macNumber, const Vteps& vteps);
  Ptr<VxlanController::MacVtepFloodListV2> floodListOf(std::uint32_t vni, std::uint64_t macNumber);
  void multiPath(std::uint32_t vni, std::uint64_t macNumber, const Vteps& vteps);
  void withdrawFloodList(std::uint32_t vni, std::uint64_t macNumber) {
    publish(vni)->macVtepFloodListTableDel(mac(macNumber));
  }
  void withdrawMultiPath(std::uint32_t vni, std::uint64_t macNumber) {
    publish(vni)->macVtepMultiPathTableDel(mac(macNumber));
  }

  // --- The replication modes, and the MLAG peer ---

  void bumModes(Vxlan::BumReplicationMode local, Vxlan::BumReplicationMode peer) const {
    bumStatus->bumReplicationModeIs(local);
    peerBumStatus->bumReplicationModeIs(peer);
  }
  void mlag(bool active) const {
    mlagStatus->mlagStateIs(active ? Mlag::MlagState::active : Mlag::MlagState::disabled);
  }
  Ptr<L2Rib::FloodSet> peerFloodSet(int vlan, std::uint64_t macNumber) const {  // makes it
    return peerSde->vlanFloodSetIs(VlanId(vlan))->floodSetIs(mac(macNumber));
  }

  // --- Time ---

  // Fires what is due, again and again, until no clock is armed.
  void rest() const { facility->runUntil(Moru::Clock::never); }

  // --- What the client has made of it ---

  Hosts received(bool marked = false) const;  // entries of the host table with that mark
  FloodSets floodSets() const { return floodSetsOf(*zepSde); }
  std::vector<std::uint32_t> vnis() const;  // that have a machine, ascending

  // Stops the test unless all that must always hold does: the RIB has a host for each entry of the
  // table, whole; the marks are counted, and a run is to come for them; the client writes no
  // destination whose flag is false.
  void audit() const;

  // The messages of the trace stream of level 8, since the last call.
  std::vector<std::string> trace();
  bool traced(const std::string& text);  // by any message since the last trace()

  Ptr<Moru::VirtualTime> time;
  Ptr<Moru::ActivityFacility> facility;

  Ptr<Vxlan::VtiStatusDir> vtiStatusDir = create<Vxlan::VtiStatusDir>();
  Ptr<Moru::Dir> controllerStatusBaseDir = create<Moru::Dir>();
  Ptr<VxlanController::ZepStateClientViewV2> zepStateClientView =
      create<VxlanController::ZepStateClientViewV2>();
  Ptr<Vxlan::VxlanHwStatusDir> vxlanHwStatusDir = create<Vxlan::VxlanHwStatusDir>();
  Ptr<Mlag::Status> mlagStatus = create<Mlag::Status>();
  Ptr<Mlag::VxlanStatus> mlagVxlanStatus = create<Mlag::VxlanStatus>();
  Ptr<Moru::Dir> zepStateBaseDir = create<Moru::Dir>();
  Ptr<Vxlan::VlanVniMaps> vlanVniMaps = create<Vxlan::VlanVniMaps>();
  Ptr<L2Rib::SourceDirEntry> zepSde = create<L2Rib::SourceDirEntry>();
  Ptr<L2Rib::HostInput> l2RibZepInput = create<L2Rib::HostInput>();
  Ptr<Vxlan::VxlanClientConvergenceStatus> zepConvergenceStatus =
      create<Vxlan::VxlanClientConvergenceStatus>();

  // What two of them point to.
  Ptr<Vxlan::BumStatus> bumStatus = create<Vxlan::BumStatus>();
  Ptr<Vxlan::BumStatus> peerBumStatus = create<Vxlan::BumStatus>();
  Ptr<L2Rib::SourceDirEntry> peerSde = create<L2Rib::SourceDirEntry>();

  Ptr<Vxlan::VxlanControllerClientSm> client;

 private:
  Ptr<VxlanController::ZepStateV2> controllerState_;
  std::vector<Ptr<VxlanController::MacVtepFloodListV2>> floodLists_;  // all that were published
  std::vector<std::string> trace_;
};

// One VTI that maps VLAN 10 to VNI 100, and a client in controller mode, outside convergence, that
// replicates for the controller.
struct Settled {
  explicit Settled(double timePerRead = 0);
  ~Settled() { world.audit(); }
  Settled(const Settled&) = delete;
  Settled& operator=(const Settled&) = delete;
  World world;
};

// Brings a world, new or not, to where VTI 1 maps VLAN 10 to VNI 100 and VLAN 20 to VNI 200, there
// are hosts, and the controller lists MACs 1 and 2, or else, with MLAG, the peer does.
void furnish(World& world, bool mlag);

// What the client should have, computed from the inputs alone: the VNIs that have a machine, the
// hosts, and the flood sets (without MLAG).
struct Expected {
  std::vector<std::uint32_t> vnis;
  Hosts hosts;
  FloodSets floodSets;
};
Expected expectedOf(const World& world);

}  // namespace Test
