// Delivery of notifications while everything around it changes: what the framework does is compared
// with a plain model that searches where the framework keeps cursors.
#include <array>
#include <gtest/gtest.h>
#include <map>
#include <rapidcheck/gtest.h>
#include <set>
#include <vector>

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Input.h"

namespace {

using Moru::create;
using Moru::Ptr;

constexpr std::size_t cells = 3;
constexpr std::size_t machines = 4;
constexpr std::size_t mostCalls = 200;
constexpr std::size_t deepest = 5;

enum class Op { write, attach, detach, on, off, list, unlist, drop, make, dropCell, makeCell };
constexpr int ops = 11;

struct Action {
  Op op = Op::write;
  std::size_t machine = 0;
  std::size_t cell = 0;
};

using Script = std::vector<Action>;
using Scripts = std::array<std::vector<Script>, machines>;  // per machine, a script for each call

// What the two sides of the comparison share: the log of the calls, each of a machine for a cell,
// by the numbers of their creation; and what a machine does in a call, which has its bounds.
template <class Side>
class Told {
 public:
  explicit Told(const Scripts& scripts) : scripts_(scripts) {}
  std::vector<std::pair<int, int>> log;

 protected:
  void called(int machine, int cell, std::size_t index, std::size_t call) {
    log.emplace_back(machine, cell);
    const auto& mine = scripts_[index];
    if (mine.empty() || log.size() >= mostCalls || depth_ >= deepest) return;
    ++depth_;
    for (const Action& action : mine[call % mine.size()]) static_cast<Side*>(this)->act(action);
    --depth_;
  }

  int cellsMade_ = 0;
  int machinesMade_ = 0;

 private:
  const Scripts& scripts_;
  std::size_t depth_ = 0;
};

// Those that are alive of a class, by the numbers of their creation.
template <class T>
std::set<int> alive;

struct Cell final : Moru::EntityOf<Cell> {
  explicit Cell(int serial) : serial(serial) { alive<Cell>.insert(serial); }
  ~Cell() override { alive<Cell>.erase(serial); }

  using Value = Moru::Attribute<int, 1>;
  Value value{this};
  Value::Is valueIs{value};
  const int serial;
};

class World : public Told<World> {
 public:
  using Told::Told;
  void act(const Action& action);

 private:
  struct Watcher;
  int writes_ = 0;
  std::array<Ptr<Cell>, cells> cell_;
  std::array<Ptr<Watcher>, machines> machine_;
};

struct World::Watcher final : Moru::Machine {
  Watcher(World* world, std::size_t index, int serial)
      : world(world), index(index), serial(serial) {
    alive<Watcher>.insert(serial);
  }
  ~Watcher() override { alive<Watcher>.erase(serial); }

  struct MoruCell : Moru::Reactor<Cell::NotifieeConst, Watcher> {
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId, const void*) override {
      const int watched = notifier()->serial;
      Watcher& mine = *machine();
      const int serial = mine.serial;
      mine.world->called(serial, watched, mine.index, mine.calls++);
      // Whatever that has dropped, what is in use is still there.
      RC_ASSERT(alive<Cell>.contains(watched) && alive<Watcher>.contains(serial));
    }
  };
  Moru::Input<MoruCell> cell{this};
  Moru::Input<MoruCell>::Is cellIs{cell};
  Moru::Input<MoruCell>::Del cellDel{cell};

  World* const world;
  const std::size_t index;
  const int serial;
  std::size_t calls = 0;
};

void World::act(const Action& action) {
  const Op op = action.op;
  Ptr<Cell>& cell = cell_[action.cell];
  Ptr<Watcher>& slot = machine_[action.machine];
  const Ptr<Watcher> machine = slot;
  if (op == Op::write && cell) cell->valueIs(++writes_);
  if (op == Op::dropCell) cell = nullptr;
  if (op == Op::makeCell) cell = create<Cell>(++cellsMade_);
  if (op == Op::make && !machine) {
    slot = create<Watcher>(this, action.machine, ++machinesMade_);
    if (cell) slot->cellIs(cell);
  }
  if (!machine) return;
  if (op == Op::attach && cell) machine->cellIs(cell);
  if (op == Op::detach) machine->cellDel();
  if (op == Op::on || op == Op::off) machine->hasNotificationActiveIs(op == Op::on);
  if ((op == Op::unlist || op == Op::list) && machine->cell())
    machine->cell.reactor()->isRegisteredNotifieeIs(op == Op::list);
  if (op == Op::drop) {
    slot = nullptr;
    machine->moruDoZombieReactors(true);
  }
}

// The same, told without lists, cursors or reference counts.
class Model : public Told<Model> {
 public:
  using Told::Told;

  void act(const Action& action) {
    const Op op = action.op;
    const int cell = cell_[action.cell];
    int& slot = machine_[action.machine];
    if (op == Op::write && cell != 0) write(cell);
    if (op == Op::dropCell) cell_[action.cell] = 0;
    if (op == Op::makeCell) cell_[action.cell] = ++cellsMade_;
    if (slot == 0) {
      if (op != Op::make) return;
      slot = ++machinesMade_;
      watchers_[slot].index = action.machine;
      if (cell != 0) attach(watchers_[slot], cell);
      return;
    }
    Watcher& machine = watchers_.at(slot);
    if (op == Op::attach && cell != 0 && machine.cell != cell) attach(machine, cell);
    if (op == Op::on && machine.cell != 0) machine.active = true;
    if (op == Op::off) machine.active = false;
    if (op == Op::detach || op == Op::drop) machine.cell = machine.registration = 0;
    if (op == Op::unlist) machine.registration = 0;
    if (op == Op::list && machine.cell != 0 && machine.registration == 0)
      machine.registration = ++registrations_;
    if (op == Op::drop) slot = 0;
  }

 private:
  struct Watcher {
    std::size_t index = 0;
    int cell = 0;
    int registration = 0;
    bool active = false;
    std::size_t calls = 0;
  };

  void attach(Watcher& watcher, int cell) {
    watcher.cell = cell;
    watcher.registration = ++registrations_;
    watcher.active = true;
  }

  void write(int cell) {
    const int last = registrations_;
    int reached = 0;
    for (;;) {
      int next = 0;
      for (const auto& [serial, watcher] : watchers_) {
        if (watcher.cell != cell || watcher.registration <= reached || watcher.registration > last)
          continue;
        if (next == 0 || watcher.registration < watchers_.at(next).registration) next = serial;
      }
      if (next == 0) return;
      Watcher& watcher = watchers_.at(next);
      reached = watcher.registration;
      if (!watcher.active) continue;
      called(next, cell, watcher.index, watcher.calls++);
    }
  }

  int registrations_ = 0;
  std::array<int, cells> cell_{};
  std::array<int, machines> machine_{};
  std::map<int, Watcher> watchers_;
};

}  // namespace

namespace rc {
template <>
struct Arbitrary<Action> {
  static Gen<Action> arbitrary() {
    // Half of all actions write, so that there is always something being delivered.
    const auto op = gen::map(gen::inRange(0, 2 * ops),
                             [](int n) { return n < ops ? static_cast<Op>(n) : Op::write; });
    return gen::build<Action>(gen::set(&Action::op, op),
                              gen::set(&Action::machine, gen::inRange<std::size_t>(0, machines)),
                              gen::set(&Action::cell, gen::inRange<std::size_t>(0, cells)));
  }
};
}  // namespace rc

namespace {

RC_GTEST_PROP(Notification, ReachesExactlyWhoIsThereInOrder,
              (const Scripts& scripts, const Script& walk)) {
  {
    World world(scripts);
    Model model(scripts);
    const auto both = [&](const Action& action) {
      world.act(action);
      model.act(action);
    };
    for (std::size_t i = 0; i < cells; ++i) both({Op::makeCell, 0, i});
    for (std::size_t i = 0; i < machines; ++i) both({Op::make, i, i % cells});
    for (const Action& action : walk) both(action);
    for (std::size_t i = 0; i < cells; ++i) both({Op::write, 0, i});
    RC_ASSERT(world.log == model.log);
    RC_CLASSIFY(world.log.size() > 20, "more than 20 calls");
  }
  RC_ASSERT(alive<Cell>.empty());
}

}  // namespace
