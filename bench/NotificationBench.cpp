// Telling 1, 2 and 8 reactors of a change, beside a loop of virtual calls over a vector.
#include <benchmark/benchmark.h>
#include <cstdint>
#include <memory>
#include <vector>

#include "bench/Compare.h"
#include "framework/Moru/Attribute.h"
#include "framework/Moru/Input.h"

namespace {

class Counter final : public Moru::EntityOf<Counter> {
 public:
  using Value = Moru::Attribute<std::uint32_t, 1, Moru::Notifies::onWrite>;
  Value value{this};
  Value::Is valueIs{value};
};

class Watcher final : public Moru::Machine {
 public:
  class MoruCounter : public Moru::Reactor<Counter::NotifieeConst, Watcher> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void*) override {
      switch (attribute) {
        case Moru::idOf<&Counter::value>:
          machine()->handleValue();
          break;
        default:
          break;
      }
    }
  };

  Moru::Input<MoruCounter> counter{this};
  Moru::Input<MoruCounter>::Is counterIs{counter};

  void handleValue() { sum += counter()->value(); }

  std::uint64_t sum = 0;
};

// The yardstick's reactors hand the change to a machine of their own, as those above do. There are
// two classes of them, so that the calls stay virtual: of one the compiler would guess and inline
// it.
struct PlainMachine {
  void handleValue() { sum += (*counter)->value(); }

  const Moru::Ptr<Counter>* counter;
  std::uint64_t sum = 0;
};

class Listener {
 public:
  virtual ~Listener() = default;
  virtual void onAttribute(Moru::AttributeId attribute, const void* key) = 0;
};

template <int>
class MachineListener final : public Listener {
 public:
  explicit MachineListener(PlainMachine& machine) : machine_(machine) {}
  void onAttribute(Moru::AttributeId attribute, const void*) override {
    switch (attribute) {
      case Moru::idOf<&Counter::value>:
        machine_.handleValue();
        break;
      default:
        break;
    }
  }

 private:
  PlainMachine& machine_;
};

void notification(benchmark::State& state) {
  constexpr std::uint32_t writes = 100'000;
  const auto reactors = static_cast<std::size_t>(state.range(0));
  auto watched = Moru::create<Counter>();
  auto unwatched = Moru::create<Counter>();
  std::vector<Moru::Ptr<Watcher>> watchers;
  std::vector<PlainMachine> plain(reactors, PlainMachine{&unwatched});
  std::vector<std::unique_ptr<Listener>> listeners;
  for (std::size_t i = 0; i < reactors; ++i) {
    watchers.push_back(Moru::create<Watcher>());
    watchers.back()->counterIs(watched);
    if (reactors % 3 == 0)
      listeners.push_back(std::make_unique<MachineListener<1>>(plain[i]));
    else
      listeners.push_back(std::make_unique<MachineListener<2>>(plain[i]));
  }
  Bench::compare(
      state, writes,
      [&] {
        for (std::uint32_t i = 0; i < writes; ++i) watched->valueIs(i);
      },
      [&] {
        for (std::uint32_t i = 0; i < writes; ++i) {
          unwatched->valueIs(i);
          for (const auto& listener : listeners)
            listener->onAttribute(Moru::idOf<&Counter::value>, nullptr);
        }
      });
  for (std::size_t i = 0; i < reactors; ++i)
    if (watchers[i]->sum == 0 || plain[i].sum == 0) state.SkipWithError("a reactor was not called");
}
BENCHMARK(notification)->ArgName("reactors")->Arg(1)->Arg(2)->Arg(8)->UseManualTime();

}  // namespace
