// How fast journals are read, and their changes written to a store that nobody watches.
#include <benchmark/benchmark.h>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "Vxlan/VxlanControllerClientSm.h"
#include "agent/journal/Generate.h"
#include "agent/journal/Journal.h"
#include "agent/store/StateStore.h"

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

// Passes each line of a journal of 250,000 lines, nearly all of them hosts, to `use`. What
// begin(store) returns lives as long as the store is filled.
template <class Begin, class Use>
void readAll(benchmark::State& state, Begin begin, Use use) {
  static const std::string text = generated();
  std::uint64_t lines = 0;
  for (auto _ : state) {
    std::istringstream in(text);
    Agent::Journal journal(in, "generated");
    Agent::StateStore store;
    [[maybe_unused]] const auto begun = begin(store);
    while (const auto line = journal.next()) {
      use(store, *line);
      ++lines;
    }
  }
  state.counters["lines"] =
      benchmark::Counter(static_cast<double>(lines), benchmark::Counter::kIsRate);
}

std::nullptr_t nobody(const Agent::StateStore&) { return nullptr; }

Moru::Ptr<Vxlan::VxlanControllerClientSm> client(const Agent::StateStore& store) {
  return Vxlan::vxlanControllerClientSmFactory(store.inputs());
}

void storeLine(Agent::StateStore& store, const Agent::Line& line) {
  if (const auto* change = std::get_if<Agent::Change>(&line.action)) store.apply(*change);
}

void readLines(benchmark::State& state) {
  readAll(state, nobody,
          [](Agent::StateStore&, const Agent::Line& line) { benchmark::DoNotOptimize(line); });
}
BENCHMARK(readLines)->Unit(benchmark::kMillisecond);

void readAndStoreLines(benchmark::State& state) { readAll(state, nobody, storeLine); }
BENCHMARK(readAndStoreLines)->Unit(benchmark::kMillisecond);

// The whole of a replay, without its dumps.
void replayLines(benchmark::State& state) { readAll(state, client, storeLine); }
BENCHMARK(replayLines)->Unit(benchmark::kMillisecond);

void findStartOfNone(benchmark::State& state) {
  std::string text = generated();
  text.erase(0, text.find("\"start\""));
  text.erase(0, text.find('\n') + 1);
  for (auto _ : state) {
    std::istringstream in(text);
    benchmark::DoNotOptimize(Agent::Journal(in, "generated").findStart());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(findStartOfNone)->Unit(benchmark::kMillisecond);

}  // namespace
