// What a scrape of a running agent takes, and what it costs a host that there are metrics.
//
// Instructions of a scrape, to be divided by its 100 repetitions, of "metrics-bench
// --benchmark_filter=scrape/1000000":
//
//   valgrind --tool=callgrind --callgrind-out-file=/dev/null --toggle-collect='*scraped*' ...
#include <asio/io_context.hpp>
#include <benchmark/benchmark.h>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "agent/live/AgentMetrics.h"

namespace {

using Agent::Set;

constexpr unsigned vnis = 1000;

struct Nobody final : Agent::Ovsdb::SessionListener {
  void inSyncLost(const std::string&) override {}
  void updatesArrived(Agent::Ovsdb::Updates) override {}
  void caughtUp() override {}
};

// Store, client and gate as a running agent has them, without a database and a kernel.
struct World {
  World() {
    embedded.store().apply(Set<Agent::HwBum>{{}, Vxlan::BumReplicationMode::controller});
    Agent::Vti::Value vti;
    vti.controllerClientMode = true;
    embedded.store().apply(Set<Agent::Vti>{{Vorn::IntfId(Agent::vtiName)}, vti});
    embedded.start();
    for (unsigned vni = 1; vni <= vnis; ++vni) {
      gate.vniIs(Vxlan::VniExt(vni), Bridging::VlanId(vni));
      gate.listIs(Vxlan::VniExt(vni), Vorn::EthAddr::fromValue(0xffffffffffff),
                  {L2Rib::FloodSetType::sendToAll, {vtep(1), vtep(2)}});
    }
    gate.commit();
    gate.inSyncIs(true);
  }

  static Vorn::IpAddr vtep(std::uint32_t number) { return Vorn::IpAddr(0x0a000000 + number); }

  void publish(std::size_t hosts, std::uint32_t at) {
    for (std::size_t host = 0; host < hosts; ++host)
      gate.hostIs(Vxlan::VniExt(static_cast<std::uint32_t>(host % vnis + 1)),
                  Vorn::EthAddr::fromValue(0x020000000000 + host / vnis), vtep(at));
    gate.commit();
  }

  Agent::EmbeddedClient embedded{std::nullopt};
  Agent::Problems problems{[](const auto&, const auto&) {}};
  Agent::WithdrawalGate gate{
      {}, [this](const Agent::Change& change) { embedded.store().apply(change); }};
  asio::io_context io;
  Nobody nobody;
  Agent::Ovsdb::Session session{
      io, {.remotes = Agent::Ovsdb::parseRemotes("unix:/nowhere"), .tls = {}}, nobody, problems};
  Agent::Recording recording{{}, {}, problems};
  Agent::Witness witness{
      embedded, {}, [] { return Agent::Witness::Moment(); }, {.event = [](const auto&) {}}};
  Agent::Activity activity;
  std::optional<Agent::Programming> programming;
};

struct WorldWithMetrics : World {
  Agent::AgentMetrics metrics{{.switchName = "tor1",
                               .version = "0",
                               .embedded = embedded,
                               .gate = gate,
                               .session = session,
                               .problems = problems,
                               .recording = recording,
                               .witness = witness,
                               .activity = activity,
                               .programming = programming}};
};

// Not to be inlined: it is what callgrind collects.
[[gnu::noinline]] std::string scraped(const Agent::AgentMetrics& metrics) {
  return metrics.text(Agent::Metrics::Dialect::openMetrics);
}

void scrape(benchmark::State& state) {
  WorldWithMetrics world;
  const auto hosts = static_cast<std::size_t>(state.range(0));
  world.publish(hosts, 1);
  if (world.embedded.store().l2RibZepInput->host().size() != hosts) state.SkipWithError("no hosts");
  for (auto _ : state) benchmark::DoNotOptimize(scraped(world.metrics));
}
BENCHMARK(scrape)->Arg(1000)->Arg(1000000)->Iterations(100)->Unit(benchmark::kMicrosecond);

// Moves of hosts, which write each of them anew.
template <class AnyWorld>
void move(benchmark::State& state) {
  constexpr std::size_t hosts = 100000;
  AnyWorld world;
  world.publish(hosts, 1);
  std::uint32_t at = 1;
  for (auto _ : state) world.publish(hosts, ++at);
  state.SetItemsProcessed(static_cast<std::int64_t>(hosts * state.iterations()));
}
BENCHMARK(move<World>)->Unit(benchmark::kMillisecond);
BENCHMARK(move<WorldWithMetrics>)->Unit(benchmark::kMillisecond);

}  // namespace
