// The client under load: hosts published, moved and withdrawn from the controller's entity to the
// layer-2 RIB, with the trace ring on, beside the same three records in standard containers without
// any notification or trace; a VLAN removed out of many; the deferred run.
#include <benchmark/benchmark.h>
#include <cstdint>
#include <malloc.h>
#include <map>
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

struct Size {
  std::uint32_t vnis;
  std::uint32_t hostsPerVni;
  double hosts() const { return static_cast<double>(vnis) * hostsPerVni; }
};
constexpr Size million{1000, 1000};
constexpr Size tenThousand{1000, 10};

// Locally administered addresses as they come: in no order.
Vorn::EthAddr macOf(std::uint32_t vni, std::uint32_t host) {
  std::uint64_t number = (std::uint64_t{vni} << 32 | host) * 0x9e3779b97f4a7c15;
  number ^= number >> 29;
  return Vorn::EthAddr::fromValue(std::uint64_t{0x02} << 40 | (number & 0xffffffffff));
}

VxlanController::MacVtepV2 macVtepOf(std::uint32_t vni, std::uint32_t host, std::uint32_t moves) {
  const Vorn::IpAddr vtep(0x0a000002 + (host + moves) % 64);
  return {macOf(vni, host), vtep, moves};
}

Bridging::VlanId vlanOf(std::uint32_t vni) { return Bridging::VlanId(vni); }

// A switch with a VLAN for each VNI, a controller that serves them, and a client.
class Fabric {
 public:
  explicit Fabric(const Size& size) : size_(size) {
    Bench::ringOn();
    Moru::ActivityFacility::currentIs(facility);
    const Vorn::IntfId intf("Vxlan1");
    const auto vti = create<Vxlan::VtiStatus>(intf);
    vti->controllerClientModeIs(true);
    vti->localVtepAddrIs(Vorn::IpAddr(0x0a000001));
    const auto vtis = create<Vxlan::VtiStatusDir>();
    const auto maps = create<Vxlan::VlanVniMaps>();
    const auto dir = create<Moru::Dir>();
    const auto states = create<Moru::Dir>();
    map_ = maps->vlanVniMapIs(intf);
    for (std::uint32_t vni = 1; vni <= size.vnis; ++vni) {
      vti->vccImportVlansIs(vlanOf(vni));
      map_->vniToVlanIs(Vxlan::VniExt(vni), Bridging::VlanIdOrNone(vni));
      map_->vlanToVspIs(vlanOf(vni), Vxlan::VniSourcePair(vni));
      vnis_.push_back(create<VxlanController::VniFdbStatusV2>());
      dir->entityPtrIs(std::to_string(vni), vnis_.back());
    }
    vtis->vtiStatusIs(vti);
    states->entityPtrIs("controller", controller_);
    Vxlan::ClientInputs inputs;
    inputs.vtiStatusDir = vtis;
    inputs.controllerStatusBaseDir = dir;
    inputs.zepStateClientView = create<VxlanController::ZepStateClientViewV2>();
    inputs.vxlanHwStatusDir = create<Vxlan::VxlanHwStatusDir>();
    inputs.mlagStatus = create<Mlag::Status>();
    inputs.mlagVxlanStatus = create<Mlag::VxlanStatus>();
    inputs.zepStateBaseDir = states;
    inputs.vlanVniMaps = maps;
    inputs.zepSde = create<L2Rib::SourceDirEntry>();
    inputs.l2RibZepInput = create<L2Rib::HostInput>();
    inputs.zepConvergenceStatus = create<Vxlan::VxlanClientConvergenceStatus>();
    client = Vxlan::vxlanControllerClientSmFactory(inputs);
    while (facility->fireDue() != 0) {
    }
  }

  void publish(std::uint32_t moves = 0) {
    for (std::uint32_t vni = 1; vni <= size_.vnis; ++vni)
      for (std::uint32_t host = 0; host < size_.hostsPerVni; ++host)
        vnis_[vni - 1]->macVtepTableIs(macOf(vni, host), macVtepOf(vni, host, moves));
  }
  // Every host, or every second.
  void withdraw(std::uint32_t step = 1) {
    for (std::uint32_t vni = 1; vni <= size_.vnis; ++vni)
      for (std::uint32_t host = 0; host < size_.hostsPerVni; host += step)
        vnis_[vni - 1]->macVtepTableDel(macOf(vni, host));
  }
  void removeVlan(std::uint32_t vni) {
    map_->vniToVlanDel(Vxlan::VniExt(vni));
    map_->vlanToVspDel(vlanOf(vni));
  }
  void converging(bool inProgress) { controller_->convergenceInProgressIs(inProgress); }

  Ptr<Moru::ActivityFacility> facility = create<Moru::ActivityFacility>(create<Moru::SteadyTime>());
  Ptr<Vxlan::VxlanControllerClientSm> client;

 private:
  const Size size_;
  Ptr<Vxlan::VlanVniMap> map_;
  std::vector<Ptr<VxlanController::VniFdbStatusV2>> vnis_;
  Ptr<VxlanController::ZepStateV2> controller_ = create<VxlanController::ZepStateV2>();
};

// The yardstick: the same three records, and nothing else.
class Containers {
 public:
  explicit Containers(const Size& size) : size_(size), published_(size.vnis) {}

  void publish(std::uint32_t moves = 0) {
    for (std::uint32_t vni = 1; vni <= size_.vnis; ++vni)
      for (std::uint32_t host = 0; host < size_.hostsPerVni; ++host) write(vni, host, moves);
  }
  void withdraw() {
    for (std::uint32_t vni = 1; vni <= size_.vnis; ++vni)
      for (std::uint32_t host = 0; host < size_.hostsPerVni; ++host) {
        const Bridging::MacVlanPair key{macOf(vni, host), vlanOf(vni)};
        published_[vni - 1].erase(key.mac);
        received.erase(key);
        rib_.erase(key);
      }
  }

  std::map<Bridging::MacVlanPair, Vxlan::ReceivedEntry> received;

 private:
  void write(std::uint32_t vni, std::uint32_t host, std::uint32_t moves) {
    const VxlanController::MacVtepV2 macVtep = macVtepOf(vni, host, moves);
    published_[vni - 1][macVtep.macAddr] = macVtep;
    Vxlan::ReceivedEntry entry;
    entry.key = {macVtep.macAddr, vlanOf(vni)};
    entry.vtepAddr = macVtep.vtepIp;
    entry.moveCount = moves;
    received[entry.key] = entry;
    L2Rib::Host ribHost;
    ribHost.key = entry.key;
    ribHost.dest = L2Rib::CiDest(L2Rib::DestType::vtep);
    ribHost.dest.vtepAddrIs(0, entry.vtepAddr);
    ribHost.moveCount = moves;
    rib_[entry.key] = ribHost;
  }

  const Size size_;
  std::vector<std::unordered_map<Vorn::EthAddr, VxlanController::MacVtepV2>> published_;
  std::unordered_map<Bridging::MacVlanPair, L2Rib::Host> rib_;
};

double allocated() {
  const auto info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
}

// Publishes on fresh tables; moves and withdraws on full ones.
enum class Deed { publish, move, withdraw };

template <class Tables>
void doIt(Tables& tables, Deed deed) {
  if (deed == Deed::withdraw)
    tables.withdraw();
  else
    tables.publish(deed == Deed::move ? 1 : 0);
}

template <Deed deed>
void hosts(benchmark::State& state) {
  std::unique_ptr<Fabric> fabric;
  std::unique_ptr<Containers> containers;
  Bench::compare(
      state, million.hosts(), [&] { doIt(*fabric, deed); }, [&] { doIt(*containers, deed); },
      [&] {
        // Neither is to find the heap as the other has left it.
        fabric.reset();
        containers.reset();
        malloc_trim(0);
        fabric = std::make_unique<Fabric>(million);
        containers = std::make_unique<Containers>(million);
        if (deed == Deed::publish) return;
        fabric->publish();
        containers->publish();
      });
}

void bytesPerHost(benchmark::State& state) {
  Fabric fabric(million);
  Containers containers(million);
  for (auto _ : state) {
    const double before = allocated();
    fabric.publish();
    const double between = allocated();
    containers.publish();
    const double after = allocated();
    state.SetIterationTime(1);
    state.counters["bytes"] = (between - before) / million.hosts();
    state.counters["yardstick_bytes"] = (after - between) / million.hosts();
    state.counters["ratio"] = (between - before) / (after - between);
  }
}

// ns per host of a million beside those of ten thousand.
void growth(benchmark::State& state) {
  constexpr int repetitions = 20;
  std::unique_ptr<Fabric> large;
  std::vector<std::unique_ptr<Fabric>> small(repetitions);
  std::vector<double> ratios;
  for (auto _ : state) {
    large = std::make_unique<Fabric>(million);
    for (auto& each : small) each = std::make_unique<Fabric>(tenThousand);
    const double ofLarge = Bench::secondsOf([&] { large->publish(); }) / million.hosts();
    const double ofSmall = Bench::secondsOf([&] {
                             for (auto& each : small) each->publish();
                           }) /
                           tenThousand.hosts() / repetitions;
    ratios.push_back(ofLarge / ofSmall);
    state.SetIterationTime(ofLarge);
  }
  state.counters["ratio"] = Bench::median(ratios);
}

// VLANs of 250 hosts out of a million hosts, beside the same out of ten thousand.
void removeVlan(benchmark::State& state) {
  constexpr std::uint32_t vlans = 10;
  std::unique_ptr<Fabric> large;
  std::unique_ptr<Fabric> small;
  const auto remove = [](Fabric& fabric) {
    for (std::uint32_t vlan = 1; vlan <= vlans; ++vlan) fabric.removeVlan(vlan);
  };
  Bench::compare(
      state, vlans, [&] { remove(*large); }, [&] { remove(*small); },
      [&] {
        large.reset();
        small.reset();
        malloc_trim(0);
        large = std::make_unique<Fabric>(Size{4000, 250});
        small = std::make_unique<Fabric>(Size{40, 250});
        large->publish();
        small->publish();
      });
}

// A bare walk over a std::map in the same batches, with the same readings of the clock.
Bench::Batches walkMap(std::map<Bridging::MacVlanPair, Vxlan::ReceivedEntry>& received,
                       double budget) {
  auto entry = received.begin();
  auto& facility = *Moru::ActivityFacility::current();
  return Bench::runBatches([&] {
    const double deadline = facility.now() + budget;
    while (entry != received.end()) {
      if (facility.now() >= deadline) return true;
      entry = entry->second.markedForDel ? received.erase(entry) : std::next(entry);
    }
    return false;
  });
}

void deferredRun(benchmark::State& state) {
  std::vector<double> ratios;
  for (auto _ : state) {
    Fabric fabric(million);
    Containers containers(million);
    fabric.publish();
    containers.publish();
    fabric.converging(true);
    fabric.withdraw(2);
    fabric.converging(false);
    for (const auto& [key, entry] : fabric.client->hostTable()->receivedEntry())
      containers.received[key].markedForDel = entry.markedForDel;
    const Bench::Batches run = Bench::runBatches([&] {
      fabric.facility->fireDue();
      return fabric.client->zepConvergenceStatus()->unicastDeferredDeletionInProgress();
    });
    const Bench::Batches walk = walkMap(containers.received, fabric.client->maxProcessTime());
    ratios.push_back(walk.seconds / run.seconds);
    state.SetIterationTime(run.seconds);
    state.counters["longest_ms"] = std::max(state.counters["longest_ms"].value, 1e3 * run.longest);
    state.counters["batches"] += run.count;
    state.counters["preempted"] += run.preempted;
    state.counters["entries_per_us"] = million.hosts() / run.seconds / 1e6;
    state.counters["yardstick_per_us"] = million.hosts() / walk.seconds / 1e6;
  }
  state.counters["speed_ratio"] = Bench::median(ratios);
}

BENCHMARK(hosts<Deed::publish>)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(hosts<Deed::move>)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(hosts<Deed::withdraw>)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(bytesPerHost)->UseManualTime()->Iterations(1);
BENCHMARK(growth)->UseManualTime()->Iterations(3);
BENCHMARK(removeVlan)->UseManualTime()->Iterations(5)->Unit(benchmark::kMicrosecond);
BENCHMARK(deferredRun)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

}  // namespace
