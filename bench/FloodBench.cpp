// Flood sets under load: those of a switch with 4,000 VLANs, with the trace ring on. The bring-up
// of a client over a controller's tables, and the copy of all that an MLAG peer has, beside the
// same sets written into nested standard maps; a controller's restart; the deferred deletion after
// it.
#include <benchmark/benchmark.h>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "Vxlan/VxlanControllerClientSm.h"
#include "bench/Batches.h"
#include "bench/Compare.h"
#include "bench/TraceRing.h"

namespace {

using Moru::create;
using Moru::Ptr;

constexpr std::uint32_t vlans = 4000;
constexpr std::uint32_t vtepsPerSet = 64;
constexpr double dests = 2.0 * vlans * vtepsPerSet;

const Vorn::EthAddr listMac = Vorn::EthAddr::fromValue(0xffffffffffff);
const Vorn::EthAddr pathMac = Vorn::EthAddr::fromValue(0x020000000001);

Vorn::IpAddr vtepOf(std::uint32_t number) { return Vorn::IpAddr(0x0a000002 + number); }
L2Rib::Dest destOf(const Vorn::IpAddr& vtep) {
  return {L2Rib::DestId{}, L2Rib::DestDataVxlan{vtep}};
}

// A switch with a VLAN for each VNI, and a controller with a flood list and a multipath entry in
// each, or an MLAG peer with the same.
class Fabric {
 public:
  Fabric() {
    Bench::ringOn();
    Moru::ActivityFacility::currentIs(facility);
    const Vorn::IntfId intf("Vxlan1");
    const auto vti = create<Vxlan::VtiStatus>(intf);
    vti->controllerClientModeIs(true);
    vtis_->vtiStatusIs(vti);
    const auto map = maps_->vlanVniMapIs(intf);
    for (std::uint32_t vlan = 1; vlan <= vlans; ++vlan) {
      vti->vccImportVlansIs(Bridging::VlanId(vlan));
      map->vniToVlanIs(Vxlan::VniExt(vlan), Bridging::VlanIdOrNone(vlan));
      map->vlanToVspIs(Bridging::VlanId(vlan), Vxlan::VniSourcePair(vlan));
    }
    bumStatus_->bumReplicationModeIs(Vxlan::BumReplicationMode::controller);
    hardware_->bumStatusIs(bumStatus_);
    mlagVxlanStatus_->peerBumStatusIs(bumStatus_);
    mlagVxlanStatus_->peerSourceDirEntryIs(peerSde);
    states_->entityPtrIs("controller", controller_);
  }

  void publish() {
    for (std::uint32_t vlan = 1; vlan <= vlans; ++vlan) {
      const auto status = statuses.emplace_back(create<VxlanController::VniFdbStatusV2>());
      const auto list = lists_.emplace_back(create<VxlanController::MacVtepFloodListV2>());
      for (std::uint32_t number = 0; number < vtepsPerSet; ++number)
        list->vtepIpFloodListIs(vtepOf(number), true);
      status->macVtepFloodListTableIs(listMac, list);
      status->macVtepMultiPathTableIs(pathMac, multiPath(vtepsPerSet));
      dir_->entityPtrIs(std::to_string(vlan), status);
    }
  }

  void publishAtPeer() const {
    for (std::uint32_t vlan = 1; vlan <= vlans; ++vlan)
      for (const Vorn::EthAddr& mac : {listMac, pathMac})
        for (std::uint32_t number = 0; number < vtepsPerSet; ++number)
          peerSde->vlanFloodSetIs(Bridging::VlanId(vlan))
              ->floodSetIs(mac)
              ->destSetIs(destOf(vtepOf(number)), true);
  }

  void start() {
    Vxlan::ClientInputs inputs;
    inputs.vtiStatusDir = vtis_;
    inputs.controllerStatusBaseDir = dir_;
    inputs.zepStateClientView = create<VxlanController::ZepStateClientViewV2>();
    inputs.vxlanHwStatusDir = hardware_;
    inputs.mlagStatus = mlag_;
    inputs.mlagVxlanStatus = mlagVxlanStatus_;
    inputs.zepStateBaseDir = states_;
    inputs.vlanVniMaps = maps_;
    inputs.zepSde = create<L2Rib::SourceDirEntry>();
    inputs.l2RibZepInput = create<L2Rib::HostInput>();
    inputs.zepConvergenceStatus = create<Vxlan::VxlanClientConvergenceStatus>();
    client = Vxlan::vxlanControllerClientSmFactory(inputs);
  }
  void rest() const {
    while (facility->fireDue() != 0) {
    }
  }
  void pair() const { mlag_->mlagStateIs(Mlag::MlagState::active); }
  void converging(bool inProgress) const { controller_->convergenceInProgressIs(inProgress); }

  // The controller is back, without the VTEPs from `left` on, which take no part any more.
  void announce(std::uint32_t left) const {
    for (std::uint32_t vlan = 0; vlan < vlans; ++vlan) {
      for (std::uint32_t number = left; number < vtepsPerSet; ++number)
        lists_[vlan]->vtepIpFloodListDel(vtepOf(number));
      for (std::uint32_t number = 0; number < left; ++number)
        lists_[vlan]->vtepIpFloodListIs(vtepOf(number), true);
      statuses[vlan]->macVtepMultiPathTableIs(pathMac, multiPath(left));
    }
  }

  std::size_t count() const {
    std::size_t count = 0;
    for (const auto& [vlan, vlanFloodSet] : client->zepSde()->vlanFloodSet())
      for (const auto& [mac, floodSet] : vlanFloodSet->floodSet()) count += floodSet->destSets();
    return count;
  }

  Ptr<Moru::ActivityFacility> facility = create<Moru::ActivityFacility>(create<Moru::SteadyTime>());
  Ptr<L2Rib::SourceDirEntry> peerSde = create<L2Rib::SourceDirEntry>();
  std::vector<Ptr<VxlanController::VniFdbStatusV2>> statuses;
  Ptr<Vxlan::VxlanControllerClientSm> client;

 private:
  static VxlanController::MacVtepMultiPathV2 multiPath(std::uint32_t vteps) {
    VxlanController::MacVtepMultiPathV2 entry(pathMac);
    for (std::uint32_t number = 0; number < vteps; ++number) entry.vtepIpList[vtepOf(number)];
    return entry;
  }

  Ptr<Vxlan::VtiStatusDir> vtis_ = create<Vxlan::VtiStatusDir>();
  Ptr<Vxlan::VlanVniMaps> maps_ = create<Vxlan::VlanVniMaps>();
  Ptr<Moru::Dir> dir_ = create<Moru::Dir>();
  Ptr<Moru::Dir> states_ = create<Moru::Dir>();
  Ptr<Vxlan::BumStatus> bumStatus_ = create<Vxlan::BumStatus>();
  Ptr<Vxlan::VxlanHwStatusDir> hardware_ = create<Vxlan::VxlanHwStatusDir>();
  Ptr<Mlag::Status> mlag_ = create<Mlag::Status>();
  Ptr<Mlag::VxlanStatus> mlagVxlanStatus_ = create<Mlag::VxlanStatus>();
  Ptr<VxlanController::ZepStateV2> controller_ = create<VxlanController::ZepStateV2>();
  std::vector<Ptr<VxlanController::MacVtepFloodListV2>> lists_;
};

// The yardstick: the same sets, and nothing else.
class Containers {
 public:
  void bringUp(const Fabric& fabric) {
    for (std::uint32_t vlan = 1; vlan <= vlans; ++vlan) {
      const auto& status = fabric.statuses[vlan - 1];
      for (auto mac = status->macVtepMultiPathTable().begin(); mac; ++mac)
        for (const auto& [vtep, flag] : mac.value().vtepIpList) write(vlan, mac.key(), 2, vtep);
      for (auto mac = status->macVtepFloodListTable().begin(); mac; ++mac)
        for (const auto& [vtep, flag] : mac.value()->vtepIpFloodList())
          write(vlan, mac.key(), 1, vtep);
    }
  }
  void copyPeer(const Fabric& fabric) {
    for (const auto& [vlan, vlanFloodSet] : fabric.peerSde->vlanFloodSet())
      for (const auto& [mac, floodSet] : vlanFloodSet->floodSet())
        for (const auto& [dest, flag] : floodSet->destSet())
          write(vlan.value(), mac, 0, dest.vxlan().vtepAddr.ip4());
  }

 private:
  struct Set {
    std::uint32_t type = 0;
    std::unordered_map<L2Rib::Dest, bool> dests;
  };
  void write(std::uint32_t vlan, const Vorn::EthAddr& mac, std::uint32_t type,
             const Vorn::IpAddr& vtep) {
    Set& set = sets_[Bridging::VlanId(vlan)][mac];
    set.type = type;
    set.dests[destOf(vtep)] = true;
  }

  std::unordered_map<Bridging::VlanId, std::unordered_map<Vorn::EthAddr, Set>> sets_;
};

void check(benchmark::State& state, const Fabric& fabric, double wanted) {
  if (static_cast<double>(fabric.count()) != wanted) state.SkipWithError("not all is there");
}

void bringUp(benchmark::State& state) {
  std::unique_ptr<Fabric> fabric;
  std::unique_ptr<Containers> containers;
  Bench::compare(
      state, dests, [&] { fabric->start(); }, [&] { containers->bringUp(*fabric); },
      [&] {
        fabric = std::make_unique<Fabric>();
        containers = std::make_unique<Containers>();
        fabric->publish();
      });
  check(state, *fabric, dests);
}

void peerCopy(benchmark::State& state) {
  std::unique_ptr<Fabric> fabric;
  std::unique_ptr<Containers> containers;
  Bench::compare(
      state, dests, [&] { fabric->pair(); }, [&] { containers->copyPeer(*fabric); },
      [&] {
        fabric = std::make_unique<Fabric>();
        containers = std::make_unique<Containers>();
        fabric->publishAtPeer();
        fabric->start();
        fabric->rest();
      });
  check(state, *fabric, dests);
}

// A restart that loses a third of the VTEPs: all that the controller says then, and the deferred
// deletion that follows.
void restart(benchmark::State& state) {
  constexpr std::uint32_t left = vtepsPerSet - vtepsPerSet / 3;
  std::vector<double> announcements;
  for (auto _ : state) {
    Fabric fabric;
    fabric.publish();
    fabric.start();
    fabric.rest();
    fabric.converging(true);
    announcements.push_back(Bench::secondsOf([&] { fabric.announce(left); }));
    fabric.converging(false);
    const Bench::Batches run = Bench::runBatches([&] {
      fabric.facility->fireDue();
      return fabric.client->zepConvergenceStatus()->bumDeferredDeletionInProgress();
    });
    check(state, fabric, 2.0 * vlans * left);
    state.SetIterationTime(run.seconds);
    auto& longest = state.counters["longest_ms"];
    longest = std::max(longest.value, 1e3 * run.longest);
    state.counters["overrun_us"] = 1e3 * (longest.value - 1e3 * fabric.client->maxProcessTime());
    state.counters["batches"] += run.count;
    state.counters["preempted"] += run.preempted;
    state.counters["dests_per_us"] = dests / run.seconds / 1e6;
  }
  state.counters["announce_ms"] = 1e3 * Bench::median(announcements);
}

BENCHMARK(bringUp)->UseManualTime()->Iterations(7)->Unit(benchmark::kMillisecond);
BENCHMARK(peerCopy)->UseManualTime()->Iterations(7)->Unit(benchmark::kMillisecond);
BENCHMARK(restart)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

}  // namespace
