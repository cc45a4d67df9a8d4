// Inputs, children and reactor collections, as a machine uses them.
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Children.h"
#include "framework/Moru/Dir.h"
#include "framework/Moru/HashMap2018.h"
#include "framework/Moru/Input.h"

namespace {

using Moru::create;
using Moru::Name;
using Moru::Ptr;
using testing::ElementsAre;
using testing::IsEmpty;

class Port final : public Moru::EntityOf<Port> {
 public:
  explicit Port(Name name) : name_(std::move(name)) {}
  const Name& fwkKey() const { return name_; }

  using Up = Moru::Attribute<bool, 1>;
  Up up{this};
  Up::Is upIs{up};

  using Vlans = Moru::KeyedAttribute<Moru::HashMap2018, int, Moru::Member, 2>;
  Vlans vlan{this};
  Vlans::Is vlanIs{vlan};
  Vlans::Del vlanDel{vlan};
  Vlans::DelAll vlanDelAll{vlan};

 private:
  Name name_;
};

class Bridge final : public Moru::EntityOf<Bridge> {
 public:
  using Ports = Moru::EntityAttribute<Name, Port, 1>;
  Ports port{this};
  Ports::Is portIs{port};
  Ports::Del portDel{port};
};

class RootSm;

// Counts the objects of a class that are there, also those whose construction fails later.
template <class T>
struct Counted {
  Counted() { ++alive; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;
  ~Counted() { --alive; }
  static inline int alive = 0;
};

// A child that reacts while it is being built, and reaches back into the root.
class PortSm final : public Moru::Machine, Counted<PortSm> {
 public:
  PortSm(Name name, const Ptr<Port const>& watched, RootSm* root);
  const Name& fwkKey() const { return name_; }
  void constructorCheck(const Ptr<Port const>& port, RootSm* root) const {
    Moru::parameterCheck("_root", root_, root);
    Moru::parameterCheck("_port", this->port(), port);
  }
  void doCleanup();

  class MoruPort : public Moru::Reactor<Port::NotifieeConst, PortSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override {
      switch (attribute) {
        case Moru::idOf<&Port::up>:
          machine()->handleUp();
          break;
        case Moru::idOf<&Port::vlan>:
          machine()->vlans.push_back(Moru::keyOf<&Port::vlan>(key));
          machine()->onVlan();
          break;
        default:
          break;
      }
    }
  };

  Moru::Input<MoruPort> port{this};
  Moru::Input<MoruPort>::Is portIs{port};

  void handleUp();

  std::vector<int> vlans;
  std::function<void()> onVlan = [] {};
  using Counted::alive;

 private:
  Name name_;
  RootSm* root_;
};

class RootSm final : public Moru::Machine, Counted<RootSm> {
 public:
  RootSm() { initializedIs(true); }
  ~RootSm() override {
    moruDoZombieReactors(true);
    portSmDelAll();
  }

  class MoruPort : public Moru::Reactor<Port::NotifieeConst, RootSm> {
   public:
    using Reactor::Reactor;
    void handleInitialized() { machine()->log.push_back("watch " + fwkKey().stringValue()); }
    void onAttribute(Moru::AttributeId, const void*) override {
      machine()->log.push_back("change " + fwkKey().stringValue());
    }
    void doCleanup() { machine()->log.push_back("unwatch " + fwkKey().stringValue()); }
  };

  Moru::Reactors<MoruPort> port{this, "Test::RootSm::port"};
  Moru::Reactors<MoruPort>::Is portIs{port};
  Moru::Reactors<MoruPort>::Del portDel{port};

  Moru::Children<Name, PortSm> portSm{this};
  Moru::Children<Name, PortSm>::Is portSmIs{portSm};
  Moru::Children<Name, PortSm>::Del portSmDel{portSm};
  Moru::Children<Name, PortSm>::DelAll portSmDelAll{portSm};

  std::vector<std::string> log;
  std::function<void(PortSm&)> onUp = [](PortSm&) {};
  using Counted::alive;
};

PortSm::PortSm(Name name, const Ptr<Port const>& watched, RootSm* root)
    : name_(std::move(name)), root_(root) {
  const Ptr<RootSm> taken(root_);
  portIs(watched);
  initializedIs(true);
  if (watched && watched->up()) handleUp();
}

void PortSm::handleUp() {
  root_->log.push_back("up " + name_.stringValue());
  root_->onUp(*this);
  // Whatever that did, this machine and its root are still there.
  root_->log.push_back("done " + name_.stringValue());
}

void PortSm::doCleanup() { root_->log.push_back("cleanup " + name_.stringValue()); }

struct MachineTest : testing::Test {
  ~MachineTest() override {
    root = nullptr;
    EXPECT_EQ(RootSm::alive, 0);
    EXPECT_EQ(PortSm::alive, 0);
    EXPECT_EQ(a->notifiees() + b->notifiees(), 0U) << "a reactor was left behind";
  }
  std::vector<std::string> log() { return std::exchange(root->log, {}); }

  Ptr<Port> a = create<Port>("a");
  Ptr<Port> b = create<Port>("b");
  Ptr<RootSm> root = create<RootSm>();
};

TEST_F(MachineTest, AnInputReplacesItsReactorOnlyForAnotherObject) {
  const auto sm = root->portSmIs("x", a, root.get());
  const Ptr<PortSm::MoruPort> first = sm->port.reactor();
  sm->portIs(a);
  EXPECT_EQ(sm->port.reactor(), first);
  sm->portIs(b);
  EXPECT_NE(sm->port.reactor(), first);
  EXPECT_TRUE(first->isZombie());
  first->notifierIs(a);  // a zombie stays detached
  a->upIs(true);
  EXPECT_THAT(log(), IsEmpty());
  b->upIs(true);
  EXPECT_THAT(log(), ElementsAre("up x", "done x"));
  sm->hasNotificationActiveIs(false);
  b->upIs(false);
  sm->portIs(nullptr);
  EXPECT_EQ(sm->port(), nullptr);
  EXPECT_EQ(sm->port.reactor(), nullptr);
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(MachineTest, AChildIsMadeOnceAndRefusesOtherArguments) {
  const auto sm = root->portSmIs("a", a, root.get());
  EXPECT_EQ(root->portSmIs("a", a, root.get()), sm);
  std::ostringstream expected;
  expected
      << "Reinstantiating the pointer interface where constructor parameter attribute _port has"
      << " a different value of " << static_cast<void*>(b.get()) << " than the current value of "
      << static_cast<void*>(a.get()) << " not allowed";
  try {
    root->portSmIs("a", b, root.get());
    FAIL() << "no exception";
  } catch (const Moru::NameInUseException& error) {
    EXPECT_EQ(error.what(), expected.str());
  }
  EXPECT_EQ(root->portSm("a"), sm);
  EXPECT_EQ(root->portSm("b"), nullptr);
  root->portSmDel("b");
  root->portSmDel("a");
  EXPECT_THAT(log(), ElementsAre("cleanup a"));
  EXPECT_EQ(sm->port.reactor()->notifier(), nullptr);
}

TEST_F(MachineTest, AChildThatThrowsInConstructionIsNotInTheCollection) {
  a->upIs(true);
  root->onUp = [](PortSm&) { throw Moru::RangeException("refused"); };
  EXPECT_THROW(root->portSmIs("a", a, root.get()), Moru::RangeException);
  EXPECT_EQ(root->portSm("a"), nullptr);
  EXPECT_EQ(a->notifiees(), 0U);
}

TEST_F(MachineTest, TheChildThatANestedReactionMadeStays) {
  a->upIs(true);
  Ptr<PortSm> nested;
  int calls = 0;
  root->onUp = [&](PortSm&) {
    if (++calls == 1) nested = root->portSmIs("a", a, root.get());
  };
  EXPECT_EQ(root->portSmIs("a", a, root.get()), nested);
  nested = nullptr;
  EXPECT_EQ(a->notifiees(), 1U);
}

TEST_F(MachineTest, AMachineMayBeDroppedByTheReactionThatRunsInIt) {
  root->portSmIs("a", a, root.get());
  root->onUp = [this](PortSm&) { root->portSmDel("a"); };
  a->upIs(true);
  EXPECT_THAT(log(), ElementsAre("up a", "cleanup a", "done a"));
  EXPECT_EQ(PortSm::alive, 0);

  Ptr<PortSm> kept;
  root->portSmIs("a", b, root.get());
  root->onUp = [&](PortSm& sm) {
    root->portSmDel("a");
    kept = Ptr<PortSm>(&sm);  // taken when no other pointer was left
  };
  b->upIs(true);
  EXPECT_EQ(kept->fwkKey(), Name("a"));
  kept = nullptr;
  EXPECT_EQ(PortSm::alive, 0);

  root->portSmIs("b", b, root.get());
  root->onUp = [this](PortSm&) { root = nullptr; };  // its owner, and with it all others
  b->upIs(false);
  b->upIs(true);
  EXPECT_EQ(RootSm::alive, 0);
}

TEST_F(MachineTest, ChildrenGoWhileTheyAreWalked) {
  for (const char* name : {"a", "b", "c", "d"}) root->portSmIs(name, a, root.get());
  root->onUp = [this](PortSm& sm) {
    root->portSmDel(sm.fwkKey());
    root->portSmDel(sm.fwkKey() == Name("a") ? "c" : "d");
  };
  for (const auto& [name, sm] : root->portSm()) sm->handleUp();
  EXPECT_THAT(log(), ElementsAre("up a", "cleanup a", "cleanup c", "done a",  //
                                 "up b", "cleanup b", "cleanup d", "done b"));
}

TEST_F(MachineTest, ReactorsFollowEntitiesByTheirKey) {
  root->portIs(a);
  root->portIs(b);
  root->portIs(a);
  a->vlanIs(7);
  root->portDel("a");
  a->vlanIs(8);
  EXPECT_THAT(log(), ElementsAre("watch a", "watch b", "change a", "unwatch a"));
  const auto otherB = create<Port>("b");
  root->portIs(otherB);
  b->upIs(true);
  otherB->upIs(true);
  EXPECT_THAT(log(), ElementsAre("change b"));
  try {
    root->portIs(nullptr);
    FAIL() << "no exception";
  } catch (const Moru::RangeException& error) {
    EXPECT_STREQ(error.what(),
                 "null _port parameter to mutator for Test::RootSm::port not allowed\"");
  }
}

TEST_F(MachineTest, CollectionsNotifyEveryKeyThatIsSetAndEveryOneThatWasThere) {
  const auto sm = root->portSmIs("a", a, root.get());
  a->vlanIs(3);
  a->vlanIs(1);
  a->vlanIs(3);  // set again: told again
  a->vlanDel(2);
  a->vlanDel(1);
  a->vlanIs(5);
  a->vlanDelAll();
  EXPECT_THAT(sm->vlans, ElementsAre(3, 1, 3, 1, 5, 3, 5));

  // The last pointer may go while all members do.
  auto dropped = create<Port>("c");
  for (const int vlan : {1, 2, 3}) dropped->vlanIs(vlan);
  sm->portIs(dropped);
  auto& vlanDelAll = dropped->vlanDelAll;
  sm->onVlan = [&] {
    sm->portIs(nullptr);
    dropped = nullptr;
  };
  vlanDelAll();

  const auto bridge = create<Bridge>();
  const auto made = bridge->portIs(Name("p"));
  EXPECT_EQ(bridge->portIs(Name("p")), made);
  bridge->portIs(a);
  EXPECT_EQ(bridge->port("a"), a);
  const Ptr<Bridge const> view = bridge;
  static_assert(std::is_same_v<decltype(view->port("a")), Ptr<Port const>>);
  static_assert(!std::is_invocable_v<const Port::Up::Is&, bool>, "a const entity is read-only");
  bridge->portDel("p");
  EXPECT_EQ(view->port("p"), nullptr);
}

struct MoruDir final : Moru::Dir::NotifieeConst {
  void onAttribute(Moru::AttributeId, const void* key) override {
    const Name& name = *static_cast<const Name*>(key);
    const auto& dir = *notifier();
    log.push_back(name.stringValue() + (dir.entityPtr(name) ? " entity" : "") +
                  (dir.entryState(name) ? " state" : ""));
  }
  std::vector<std::string> log;
};

TEST(Dir, EntryAndEntryStateComeAndGoTogetherOrApart) {
  auto dir = create<Moru::Dir>();
  auto reactor = create<MoruDir>();
  reactor->notifierIs(dir);
  reactor->hasNotificationActiveIs(true);
  dir->entityPtrIs("whole", create<Port>("p"));
  dir->entityPtrIs("announced", create<Port>("p"), false);
  dir->entryStateIs("announced", true);
  dir->entryStateIs("announced", true);  // no change
  dir->entryStateIs("absent", true);     // nothing to change
  dir->entityPtrDel("whole");
  dir->entityPtrDel("absent");
  EXPECT_THAT(reactor->log, ElementsAre("whole entity state", "announced entity",
                                        "announced entity state", "whole"));
}

}  // namespace
