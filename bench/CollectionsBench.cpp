// The collections at a million entries, beside those of the standard library.
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <malloc.h>
#include <map>
#include <numeric>
#include <optional>
#include <random>
#include <unordered_map>
#include <vector>

#include "bench/Compare.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "framework/Moru/Collections/RbTreeMap.h"
#include "model/Bridging/MacVlanPair.h"
#include "model/Vxlan/ReceivedEntry.h"

namespace {

constexpr std::size_t entries = 1'000'000;
constexpr std::size_t vlans = 4'000;

struct Value24 {
  std::uint64_t words[3];
};
static_assert(sizeof(Vxlan::ReceivedEntry) == 56);

Vorn::EthAddr macOf(std::uint64_t random) { return Vorn::EthAddr::fromValue(random); }

Bridging::MacVlanPair pairOf(std::uint64_t random) {
  return {macOf(random), Bridging::VlanId(static_cast<std::int64_t>(1 + (random >> 48) % vlans))};
}

// Different keys in no order, and the same keys in another one.
template <class Key>
struct Keys {
  explicit Keys(Key (*make)(std::uint64_t)) {
    std::mt19937_64 random(1);
    for (std::size_t i = 0; i < entries; ++i) inserted.push_back(make(random()));
    lookedUp = inserted;
    std::shuffle(lookedUp.begin(), lookedUp.end(), random);
  }

  std::vector<Key> inserted;
  std::vector<Key> lookedUp;
};

template <class Value>
std::uint64_t weight(const Value& value) {
  return reinterpret_cast<const unsigned char&>(value);
}

// Looks all keys up, one after the other: where the next key is depends on what was found, as for a
// handler that acts on what it has found. With Overlapped it does not, and the processor works on
// several at once.
template <bool Overlapped, class Key, class Find>
std::uint64_t lookUpAll(const std::vector<Key>& keys, Find find) {
  std::uint64_t sum = 0;
  std::uint64_t found = 0;  // the values are 0
  for (std::size_t i = 0; i < keys.size(); ++i) {
    found = weight(find(keys[Overlapped ? i : i + found]));
    sum += found;
  }
  return sum;
}

// What is measured, for our collections and for those of the standard library.
template <class Key, class Value, class Map>
struct Ours {
  void insert(const std::vector<Key>& keys) {
    for (const Key& key : keys) map.is(key, Value());
  }
  const Value& find(const Key& key) { return *map.find(key); }
  std::uint64_t walk() {
    std::uint64_t sum = 0;
    for (const auto& [key, value] : map) sum += weight(key) + weight(value);
    return sum;
  }

  Map map;
};

template <class Key, class Value, class Map>
struct Standard {
  void insert(const std::vector<Key>& keys) {
    for (const Key& key : keys) map.insert_or_assign(key, Value());
  }
  const Value& find(const Key& key) { return map.find(key)->second; }
  std::uint64_t walk() {
    std::uint64_t sum = 0;
    for (const auto& [key, value] : map) sum += weight(key) + weight(value);
    return sum;
  }

  Map map;
};

std::size_t allocated() {
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

template <class Side, class Key>
double bytesPerEntry(const std::vector<Key>& keys) {
  const std::size_t before = allocated();
  Side side;
  side.insert(keys);
  return static_cast<double>(allocated() - before) / static_cast<double>(keys.size());
}

enum class Work { insert, find, findOverlapped, walk };

template <class OursSide, class StandardSide, class Key>
void run(benchmark::State& state, const Keys<Key>& keys, Work work) {
  std::optional<OursSide> ours(std::in_place);
  std::optional<StandardSide> standard(std::in_place);
  if (work != Work::insert) {
    ours->insert(keys.inserted);
    standard->insert(keys.inserted);
  }
  const auto once = [&](auto& side) {
    switch (work) {
      case Work::insert:
        side.emplace();
        side->insert(keys.inserted);
        break;
      case Work::find:
        benchmark::DoNotOptimize(lookUpAll<false>(
            keys.lookedUp, [&](const Key& key) -> auto& { return side->find(key); }));
        break;
      case Work::findOverlapped:
        benchmark::DoNotOptimize(lookUpAll<true>(
            keys.lookedUp, [&](const Key& key) -> auto& { return side->find(key); }));
        break;
      case Work::walk:
        benchmark::DoNotOptimize(side->walk());
        break;
    }
  };
  // What the last round left is released outside the measured time.
  const auto prepare = [&] {
    if (work == Work::insert) {
      ours.reset();
      standard.reset();
    }
  };
  Bench::compare(
      state, entries, [&] { once(ours); }, [&] { once(standard); }, prepare);
  if (work == Work::insert) {
    prepare();
    state.counters["bytes"] = bytesPerEntry<OursSide>(keys.inserted);
    state.counters["yardstick_bytes"] = bytesPerEntry<StandardSide>(keys.inserted);
  }
}

void hashMap2018(benchmark::State& state, Work work) {
  using Key = Vorn::EthAddr;
  static const Keys<Key> keys(&macOf);
  run<Ours<Key, Value24, Moru::HashMap2018<Key, Value24>>,
      Standard<Key, Value24, std::unordered_map<Key, Value24>>>(state, keys, work);
}
BENCHMARK_CAPTURE(hashMap2018, insert, Work::insert)->UseManualTime();
BENCHMARK_CAPTURE(hashMap2018, find, Work::find)->UseManualTime();
BENCHMARK_CAPTURE(hashMap2018, findOverlapped, Work::findOverlapped)->UseManualTime();
BENCHMARK_CAPTURE(hashMap2018, walk, Work::walk)->UseManualTime();

void rbTreeMap(benchmark::State& state, Work work) {
  using Key = Bridging::MacVlanPair;
  using Value = Vxlan::ReceivedEntry;
  static const Keys<Key> keys(&pairOf);
  run<Ours<Key, Value, Moru::RbTreeMap<Key, Value>>, Standard<Key, Value, std::map<Key, Value>>>(
      state, keys, work);
}
BENCHMARK_CAPTURE(rbTreeMap, insert, Work::insert)->UseManualTime();
BENCHMARK_CAPTURE(rbTreeMap, find, Work::find)->UseManualTime();
BENCHMARK_CAPTURE(rbTreeMap, findOverlapped, Work::findOverlapped)->UseManualTime();
BENCHMARK_CAPTURE(rbTreeMap, walk, Work::walk)->UseManualTime();

}  // namespace
