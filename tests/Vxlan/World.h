// A switch, a controller and a client over them, on a virtual clock: what the tests of the client
// act upon. Words follow the state store: a test says what its writers would do.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <tuple>
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

// What matters of a received host: VTI, VTEP, move count.
using HostFacts = std::tuple<IntfId, Vorn::IpGenAddr, std::uint32_t>;
using Hosts = std::map<MacVlanPair, HostFacts>;

// Calls a function at every change of an entity, until it is released.
template <class E>
class Watcher final : public E::NotifieeConst {
 public:
  explicit Watcher(const Ptr<E>& entity, std::function<void()> onChange)
      : onChange_(std::move(onChange)) {
    this->notifierIs(entity);
    this->hasNotificationActiveIs(true);
  }
  void onAttribute(Moru::AttributeId, const void*) override { onChange_(); }

 private:
  std::function<void()> onChange_;
};

template <class E>
Ptr<Watcher<E>> watch(const Ptr<E>& entity, std::function<void()> onChange) {
  return create<Watcher<E>>(entity, std::move(onChange));
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
  // Destroys it, and checks that it has left nothing attached to any entity, nor holds any.
  void stop();
  void restart() {
    stop();
    start();
  }

  // --- The switch. VTIs are "Vxlan1" and so on; VTEP 1 is the switch's own ---

  Ptr<Vxlan::VtiStatus> addVti(const char* intf, bool controllerClientMode = true,
                               bool datapathLearning = false);
  Ptr<Vxlan::VtiStatus> vti(const char* intf) const;
  // Maps a VLAN to a VNI, both directions, as the state store writes them, and imports the VLAN.
  void mapAndImport(const char* intf, int vlan, std::uint32_t vni);
  void map(const char* intf, int vlan, std::uint32_t vni) const;
  void unmap(const char* intf, int vlan) const;

  // --- The controller ---

  Ptr<VxlanController::VniFdbStatusV2> publish(std::uint32_t vni);  // makes the entry if need be
  void unpublish(std::uint32_t vni) const;
  void host(std::uint32_t vni, std::uint64_t macNumber, std::uint32_t vtepNumber,
            std::uint32_t moveCount = 0);
  void withdraw(std::uint32_t vni, std::uint64_t macNumber);
  void converging(bool inProgress);

  // --- Time ---

  // Fires what is due, again and again, until no clock is armed.
  void rest() const { facility->runUntil(Moru::Clock::never); }

  // --- What the client has made of it ---

  Hosts received(bool marked = false) const;  // entries of the host table with that mark
  Hosts ribHosts() const;
  std::vector<std::uint32_t> vnis() const;  // that have a machine, ascending

  // Stops the test unless all that must always hold does.
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

  Ptr<Vxlan::VxlanControllerClientSm> client;

  // The references to every entity, and the reactors on it.
  using Liveness = std::map<const void*, std::pair<std::uint32_t, std::size_t>>;

 private:
  Liveness liveness() const;

  Ptr<VxlanController::ZepStateV2> controllerState_;
  Liveness livenessBefore_;
  std::vector<std::string> trace_;
};

// The hosts that the client should have, computed from the inputs alone, and the VNIs that should
// have a machine.
Hosts expectedHosts(const World& world);
std::vector<std::uint32_t> expectedVnis(const World& world);

}  // namespace Test
