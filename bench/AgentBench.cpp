// How fast journals are read, and their changes written to a store that nobody watches.
#include <benchmark/benchmark.h>
#include <cstdint>
#include <sstream>
#include <string>

#include "Vxlan/VxlanControllerClientSm.h"
#include "agent/Generate.h"
#include "agent/Journal.h"
#include "agent/StateStore.h"

namespace {

std::string generated() {
  Agent::GenerateOptions options;
  options.vnis = 100;
  options.hostsPerVni = 2000;
  options.moves = 20000;
  std::ostringstream out;
  Agent::generate(options, out);
  return out.str();
}

// Passes each line of a journal of 250,000 lines, nearly all of them hosts, to `use`.
template <class Use>
void readAll(benchmark::State& state, Use use) {
  static const std::string text = generated();
  std::uint64_t lines = 0;
  for (auto _ : state) {
    std::istringstream in(text);
    Agent::Journal journal(in, "generated");
    Agent::StateStore store;
    while (const auto line = journal.next()) {
      use(store, *line);
      ++lines;
    }
  }
  state.counters["lines"] =
      benchmark::Counter(static_cast<double>(lines), benchmark::Counter::kIsRate);
}

void readLines(benchmark::State& state) {
  readAll(state,
          [](Agent::StateStore&, const Agent::Line& line) { benchmark::DoNotOptimize(line); });
}
BENCHMARK(readLines)->Unit(benchmark::kMillisecond);

void readAndStoreLines(benchmark::State& state) {
  readAll(state, [](Agent::StateStore& store, const Agent::Line& line) {
    if (const auto* change = std::get_if<Agent::Change>(&line.action)) store.apply(*change);
  });
}
BENCHMARK(readAndStoreLines)->Unit(benchmark::kMillisecond);

// The whole of a replay, without its dumps.
void replayLines(benchmark::State& state) {
  static const std::string text = generated();
  std::uint64_t lines = 0;
  for (auto _ : state) {
    std::istringstream in(text);
    Agent::Journal journal(in, "generated");
    Agent::StateStore store;
    const auto client = Vxlan::vxlanControllerClientSmFactory(
        store.vtiStatusDir, store.controllerStatusBaseDir, store.zepStateClientView,
        store.vxlanHwStatusDir, store.mlagStatus, store.mlagVxlanStatus, store.zepStateBaseDir,
        store.vlanVniMaps, store.zepSde, store.l2RibZepInput, store.zepConvergenceStatus);
    while (const auto line = journal.next()) {
      if (const auto* change = std::get_if<Agent::Change>(&line->action)) store.apply(*change);
      ++lines;
    }
  }
  state.counters["lines"] =
      benchmark::Counter(static_cast<double>(lines), benchmark::Counter::kIsRate);
}
BENCHMARK(replayLines)->Unit(benchmark::kMillisecond);

void findStartOfNone(benchmark::State& state) {
  const std::string text = generated();
  for (auto _ : state) {
    std::istringstream in(text);
    benchmark::DoNotOptimize(Agent::Journal(in, "generated").findStart());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(findStartOfNone)->Unit(benchmark::kMillisecond);

}  // namespace
