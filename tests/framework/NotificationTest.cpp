// Delivery of notifications while everything around it changes: what the framework does is compared
// with a plain model that searches where the framework keeps cursors.
#include <array>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <rapidcheck/gtest.h>
#include <vector>

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Exception.h"
#include "framework/Moru/Input.h"

namespace {

using Moru::create;
using Moru::Ptr;

constexpr std::size_t cells = 3;
constexpr std::size_t machines = 4;
constexpr std::size_t mostCalls = 200;
constexpr std::size_t deepest = 5;

enum class Op {
  write,
  attach,
  detach,
  activate,
  deactivate,
  unregister,
  reregister,
  dropMachine,
  newMachine,
  dropCell,
  newCell
};
constexpr int ops = 11;

struct Action {
  Op op = Op::write;
  std::size_t machine = 0;
  std::size_t cell = 0;
};

using Script = std::vector<Action>;
using Scripts = std::array<std::vector<Script>, machines>;  // per machine, a script for each call

// A call that was delivered: to which machine, for which cell; both by the number of their
// creation.
using Call = std::pair<int, int>;

struct Bounds {
  std::size_t calls = 0;
  std::size_t depth = 0;
};

// Runs the scripts of the machines on any world that can carry out a single action.
template <class World>
void runScript(World& world, const Scripts& scripts, std::size_t machine, std::size_t call,
               Bounds& bounds) {
  const auto& mine = scripts[machine];
  if (mine.empty() || bounds.calls >= mostCalls || bounds.depth >= deepest) return;
  ++bounds.depth;
  for (const Action& action : mine[call % mine.size()]) world.act(action);
  --bounds.depth;
}

class Cell final : public Moru::EntityOf<Cell> {
 public:
  explicit Cell(int serial) : serial(serial) { ++alive; }
  ~Cell() override { --alive; }

  using Value = Moru::Attribute<int, 1>;
  Value value{this};
  Value::Is valueIs{value};

  const int serial;
  static inline int alive = 0;
};

class World {
 public:
  explicit World(const Scripts& scripts) : scripts_(scripts) {}

  void act(const Action& action);

  std::vector<Call> log;

 private:
  class Watcher;

  Scripts scripts_;
  Bounds bounds_;
  int cellsMade_ = 0;
  int machinesMade_ = 0;
  int writes_ = 0;
  std::array<Ptr<Cell>, cells> cell_;
  std::array<Ptr<Watcher>, machines> machine_;
};

class World::Watcher final : public Moru::Machine {
 public:
  Watcher(World* world, std::size_t index, int serial)
      : world_(world), index_(index), serial_(serial) {
    ++alive;
  }
  ~Watcher() override { --alive; }

  class MoruCell : public Moru::Reactor<Cell::NotifieeConst, Watcher> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void*) override {
      if (attribute != Moru::idOf<&Cell::value>) return;
      const Cell& cell = *notifier();
      const int serial = cell.serial;
      machine()->handleCell(serial);
      // Whatever that has dropped, what is in use is still there.
      RC_ASSERT(cell.serial == serial);
    }
  };

  Moru::Input<MoruCell> cell{this};
  Moru::Input<MoruCell>::Is cellIs{cell};
  Moru::Input<MoruCell>::Del cellDel{cell};

  static inline int alive = 0;

 private:
  void handleCell(int cellSerial) {
    world_->log.emplace_back(serial_, cellSerial);
    ++world_->bounds_.calls;
    runScript(*world_, world_->scripts_, index_, calls_++, world_->bounds_);
    // The machine may have been dropped meanwhile, and must still be there.
    RC_ASSERT(alive > 0 && world_ != nullptr);
  }

  World* world_;
  std::size_t index_;
  int serial_;
  std::size_t calls_ = 0;
};

void World::act(const Action& action) {
  Ptr<Cell>& cell = cell_[action.cell];
  Ptr<Watcher>& slot = machine_[action.machine];
  const Ptr<Watcher> machine = slot;
  switch (action.op) {
    case Op::write:
      if (cell) cell->valueIs(++writes_);
      break;
    case Op::attach:
      if (machine && cell) machine->cellIs(cell);
      break;
    case Op::detach:
      if (machine) machine->cellDel();
      break;
    case Op::activate:
    case Op::deactivate:
      if (machine) machine->hasNotificationActiveIs(action.op == Op::activate);
      break;
    case Op::unregister:
    case Op::reregister:
      if (machine && machine->cell())
        machine->cell.reactor()->isRegisteredNotifieeIs(action.op == Op::reregister);
      break;
    case Op::dropMachine:
      slot = nullptr;
      if (machine) machine->moruDoZombieReactors(true);
      break;
    case Op::newMachine:
      if (!machine) {
        slot = create<Watcher>(this, action.machine, ++machinesMade_);
        if (cell) slot->cellIs(cell);
      }
      break;
    case Op::dropCell:
      cell = nullptr;
      break;
    case Op::newCell:
      cell = create<Cell>(++cellsMade_);
      break;
  }
}

// The same, told without lists, cursors or reference counts.
class Model {
 public:
  explicit Model(const Scripts& scripts) : scripts_(scripts) {}

  void act(const Action& action) {
    const int cell = cell_[action.cell];
    int& slot = machine_[action.machine];
    Watcher* const machine = slot != 0 ? &watchers_.at(slot) : nullptr;
    switch (action.op) {
      case Op::write:
        if (cell != 0) write(cell);
        break;
      case Op::attach:
        if (machine != nullptr && cell != 0 && machine->cell != cell) attach(*machine, cell);
        break;
      case Op::detach:
        if (machine != nullptr) machine->cell = machine->registration = 0;
        break;
      case Op::activate:
      case Op::deactivate:
        if (machine != nullptr && machine->cell != 0) machine->active = action.op == Op::activate;
        break;
      case Op::unregister:
        if (machine != nullptr) machine->registration = 0;
        break;
      case Op::reregister:
        if (machine != nullptr && machine->cell != 0 && machine->registration == 0)
          machine->registration = ++registrations_;
        break;
      case Op::dropMachine:
        if (machine != nullptr) machine->cell = machine->registration = 0;
        slot = 0;
        break;
      case Op::newMachine:
        if (machine == nullptr) {
          slot = ++machinesMade_;
          Watcher& made = watchers_[slot];
          made.index = action.machine;
          if (cell != 0) attach(made, cell);
        }
        break;
      case Op::dropCell:
        cell_[action.cell] = 0;
        break;
      case Op::newCell:
        cell_[action.cell] = ++cellsMade_;
        break;
    }
  }

  std::vector<Call> log;

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
      log.emplace_back(next, cell);
      ++bounds_.calls;
      runScript(*this, scripts_, watcher.index, watcher.calls++, bounds_);
    }
  }

  Scripts scripts_;
  Bounds bounds_;
  int cellsMade_ = 0;
  int machinesMade_ = 0;
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
    auto both = [&](const Action& action) {
      world.act(action);
      model.act(action);
    };
    for (std::size_t i = 0; i < cells; ++i) both({Op::newCell, 0, i});
    for (std::size_t i = 0; i < machines; ++i) both({Op::newMachine, i, i % cells});
    for (const Action& action : walk) both(action);
    for (std::size_t i = 0; i < cells; ++i) both({Op::write, 0, i});
    RC_ASSERT(world.log == model.log);
    RC_CLASSIFY(world.log.size() > 20, "more than 20 calls");
  }
  RC_ASSERT(Cell::alive == 0);
}

class Throwing final : public Cell::NotifieeConst {
 public:
  void onAttribute(Moru::AttributeId, const void*) override {
    ++calls;
    if (throws) throw Moru::RangeException("refused");
  }
  int calls = 0;
  bool throws = false;
};

TEST(Notification, AnExceptionLeavesTheMutatorAndTheListWhole) {
  auto cell = create<Cell>(0);
  std::array<Ptr<Throwing>, 3> reactors;
  for (auto& reactor : reactors) {
    reactor = create<Throwing>();
    reactor->notifierIs(cell);
    reactor->hasNotificationActiveIs(true);
  }
  reactors[1]->throws = true;
  EXPECT_THROW(cell->valueIs(1), Moru::RangeException);
  EXPECT_EQ(cell->value(), 1);
  EXPECT_EQ(reactors[2]->calls, 0);
  reactors[1]->throws = false;
  cell->valueIs(1);  // no change
  cell->valueIs(2);
  EXPECT_EQ(reactors[0]->calls, 2);
  EXPECT_EQ(reactors[2]->calls, 1);
  EXPECT_EQ(cell->notifiees(), 3U);
}

}  // namespace
