// A trace statement, recorded and not, beside formatting its text and calling nothing.
#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "bench/Compare.h"
#include "framework/Moru/Trace.h"
#include "model/Bridging/VlanId.h"
#include "model/Vorn/EthAddr.h"
#include "model/Vorn/IpAddr.h"
#include "model/Vxlan/VniExt.h"

namespace Bench {

inline constinit Moru::TraceFacility traceFacility{"Bench"};

namespace {

struct Values {
  Vorn::EthAddr mac = Vorn::EthAddr::fromValue(0x02005e100001);
  Vxlan::VniExt vni{10010};
  Bridging::VlanId vlan{10};
  Vorn::IpAddr vtep{0x0a000002};
};

void traced(const Values& values) {
  MORU_TRACE(8, " macAddr: ", values.mac, " vni: ", values.vni, " vlan: ", values.vlan,
             " vtepIp: ", values.vtep);
}

void formatted(const Values& values) {
  std::ostringstream text;
  text << __PRETTY_FUNCTION__ << " macAddr: " << values.mac << " vni: " << values.vni
       << " vlan: " << values.vlan << " vtepIp: " << values.vtep;
  benchmark::DoNotOptimize(text.str().data());
}

[[gnu::noinline]] void nothing(const Values& values) { benchmark::DoNotOptimize(&values); }

template <class Call>
auto repeat(int calls, Call call) {
  return [=, values = Values()]() mutable {
    for (int i = 0; i < calls; ++i) {
      benchmark::DoNotOptimize(&values);
      call(values);
    }
  };
}

void intoTheRing(benchmark::State& state) {
  constexpr int calls = 20'000;
  const auto directory =
      std::filesystem::temp_directory_path() / ("trace-bench-" + std::to_string(getpid()));
  std::filesystem::create_directory(directory);
  Ringlog::directoryIs(directory);
  Ringlog::open("bench.rlg", std::vector<std::size_t>(10, 33));
  if (Ringlog::ring() == nullptr) state.SkipWithError(Ringlog::error().c_str());
  compare(state, calls, repeat(calls, traced), repeat(calls, formatted));
  Ringlog::close();
  std::filesystem::remove_all(directory);
}
BENCHMARK(intoTheRing)->UseManualTime();

void off(benchmark::State& state) {
  constexpr int calls = 1'000'000;
  compare(state, calls, repeat(calls, traced), repeat(calls, nothing));
}
BENCHMARK(off)->UseManualTime();

}  // namespace
}  // namespace Bench
