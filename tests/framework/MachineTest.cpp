// Inputs, children and reactor collections, as a machine uses them.
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Children.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "framework/Moru/Dir.h"
#include "framework/Moru/Input.h"

namespace {

using Moru::create;
using Moru::Name;
using Moru::Ptr;
using testing::ElementsAre;
using testing::ThrowsMessage;

struct Port final : Moru::EntityOf<Port> {
  explicit Port(Name name) : name(std::move(name)) {}
  const Name& fwkKey() const { return name; }
  const Name name;

  using Up = Moru::Attribute<bool, 1>;
  Up up{this};
  Up::Is upIs{up};

  using Vlans = Moru::KeyedAttribute<Moru::HashMap2018, int, Moru::KeyOnly, 2>;
  Vlans vlan{this};
  Vlans::Is vlanIs{vlan};
  Vlans::Del vlanDel{vlan};
  Vlans::DelAll vlanDelAll{vlan};
};

struct Ports final : Moru::EntityOf<Ports> {
  using All = Moru::EntityAttribute<Name, Port, 1>;
  using Numbers = Moru::KeyedAttribute<Moru::HashMap2018, int, int, 2>;
  All port{this, "Test::Ports::port"};
  All::Is portIs{port};
  All::Del portDel{port};
  All::DelAll portDelAll{port};
  Numbers number{this};
  Numbers::Is numberIs{number};
  Numbers::DelAll numberDelAll{number};
};

struct RootSm;

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
struct PortSm final : Moru::Machine, Counted<PortSm> {
  PortSm(Name name, const Ptr<Port const>& watched, RootSm* root);
  const Name& fwkKey() const { return name_; }
  void constructorCheck(const Ptr<Port const>& port, RootSm* root) const {
    Moru::parameterCheck("_root", root_, root);
    Moru::parameterCheck("_port", this->port(), port);
  }
  void doCleanup();

  struct MoruPort : Moru::Reactor<Port::NotifieeConst, PortSm> {
    using Reactor::Reactor;
    void notifierIs(Ptr<Port const> notifier) override {
      Reactor::notifierIs(std::move(notifier));
      if (this->notifier()) machine()->onBind();
    }
    void onAttribute(Moru::AttributeId attribute, const void* key) override {
      switch (attribute) {
        case Moru::idOf<&Port::up>:
          return forward(&MoruPort::moru_handlePort_up);
        case Moru::idOf<&Port::vlan>:
          return forward(&MoruPort::moru_handlePort_vlan, Moru::keyOf<&Port::vlan>(key));
      }
    }
    void moru_handlePort_up() { machine()->handleUp(); }
    void moru_handlePort_vlan(int vlan) { machine()->onVlan(vlan); }
  };
  Moru::Input<MoruPort> port{this};
  Moru::Input<MoruPort>::Is portIs{port};

  void handleUp();

  std::function<void(int)> onVlan = [](int) {};
  std::function<void()> onBind = [] {};

 private:
  Name name_;
  RootSm* root_;
};

struct RootSm final : Moru::Machine, Counted<RootSm> {
  RootSm() { initializedIs(true); }
  ~RootSm() override {
    moruDoZombieReactors(true);
    portSmDelAll();
  }

  struct MoruPort : Moru::Reactor<Port::NotifieeConst, RootSm> {
    using Reactor::Reactor;
    void handleInitialized() {
      say("watch ");
      machine()->onWatch();
    }
    void onAttribute(Moru::AttributeId, const void*) override { say("change "); }
    void doCleanup() { say("unwatch "); }
    Moru::Children<Name, PortSm> part{this};
    Moru::Children<Name, PortSm>::Is partIs{part};
    void say(const char* what) { machine()->log.push_back(what + fwkKey().stringValue()); }
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
  std::function<void(PortSm&)> onCleanup = [](PortSm&) {};
  std::function<void()> onWatch = [] {};
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

void PortSm::doCleanup() {
  root_->log.push_back("cleanup " + name_.stringValue());
  root_->onCleanup(*this);
}

struct MachineTest : testing::Test {
  ~MachineTest() override {
    root = nullptr;
    EXPECT_EQ(RootSm::alive, 0);
    EXPECT_EQ(PortSm::alive, 0);
    EXPECT_EQ(a->notifiees() + b->notifiees(), 0U) << "a reactor was left behind";
  }
  Ptr<PortSm> child(const Ptr<Port>& port) { return root->portSmIs("a", port, root.get()); }
  std::vector<std::string> log() { return std::exchange(root->log, {}); }

  Ptr<Port> a = create<Port>("a");
  Ptr<Port> b = create<Port>("b");
  Ptr<RootSm> root = create<RootSm>();
};

TEST_F(MachineTest, AnInputReplacesItsReactorOnlyForAnotherObject) {
  const auto sm = child(a);
  const Ptr<PortSm::MoruPort> first = sm->port.reactor();
  sm->portIs(a);
  EXPECT_EQ(sm->port.reactor(), first);
  sm->portIs(b);
  EXPECT_TRUE(first->isZombie());
  first->notifierIs(a);
  EXPECT_EQ(first->notifier(), nullptr) << "a zombie stays detached";
  a->upIs(true);
  b->upIs(true);
  EXPECT_THAT(log(), ElementsAre("up a", "done a"));
  sm->portIs(nullptr);
  EXPECT_EQ(sm->port.reactor(), nullptr);
}

TEST_F(MachineTest, AChildIsMadeOnceAndRefusesOtherArguments) {
  const auto sm = child(a);
  EXPECT_EQ(child(a), sm);
  std::ostringstream expected;
  expected
      << "Reinstantiating the pointer interface where constructor parameter attribute _port has"
      << " a different value of " << static_cast<void*>(b.get()) << " than the current value of "
      << static_cast<void*>(a.get()) << " not allowed";
  EXPECT_THAT([&] { child(b); }, ThrowsMessage<Moru::NameInUseException>(expected.str()));
  EXPECT_EQ(root->portSm("a"), sm);
  EXPECT_EQ(root->portSmDel("b"), nullptr);
  EXPECT_EQ(root->portSmDel("a"), sm);
  EXPECT_EQ(sm->fwkType(), typeid(PortSm));
  EXPECT_THAT(log(), ElementsAre("cleanup a"));
  EXPECT_EQ(sm->port.reactor()->notifier(), nullptr);
}

TEST_F(MachineTest, OfAChildThatThrowsInConstructionNothingStaysButOneMadeInAReactionDoes) {
  a->upIs(true);
  root->onUp = [](PortSm&) { throw Moru::RangeException("refused"); };
  EXPECT_THROW(child(a), Moru::RangeException);
  EXPECT_EQ(root->portSm("a"), nullptr);
  EXPECT_EQ(a->notifiees(), 0U);

  Ptr<PortSm> nested;
  root->onUp = [&, calls = 0](PortSm&) mutable {
    if (++calls == 1) nested = child(a);
  };
  log();
  EXPECT_EQ(child(a), nested);
  EXPECT_THAT(log(), ElementsAre("up a", "up a", "done a", "done a", "cleanup a"));
  EXPECT_EQ(a->notifiees(), 1U);
}

TEST_F(MachineTest, AMachineMayBeDroppedByTheReactionThatRunsInIt) {
  child(a);
  root->onUp = [this](PortSm& sm) {
    root->portSmDel("a");
    const Ptr<PortSm> again(&sm);
  };
  a->upIs(true);
  EXPECT_THAT(log(), ElementsAre("up a", "cleanup a", "done a"));
  EXPECT_EQ(PortSm::alive, 0);

  Ptr<PortSm> kept;
  child(b);
  root->onUp = [&](PortSm& sm) {
    root->portSmDel("a");
    kept = Ptr<PortSm>(&sm);  // taken when no other pointer was left
  };
  b->upIs(true);
  EXPECT_EQ(PortSm::alive, 1);
  EXPECT_EQ(kept->references(), 1U);
  kept = nullptr;
  EXPECT_EQ(PortSm::alive, 0);

  root->onUp = [this](PortSm&) { root = nullptr; };  // its owner, and with it all others
  b->upIs(false);
  root->portSmIs("b", b, root.get());
  b->upIs(true);
  EXPECT_EQ(RootSm::alive, 0);
}

TEST_F(MachineTest, DeletingAllEndsWhateverComesMeanwhile) {
  for (const auto& each : {a, b}) root->portSmIs(each->name, each, root.get());
  root->onCleanup = [this](PortSm&) { root->portSmIs("c", a, root.get()); };
  root->portSmDelAll();
  EXPECT_EQ(root->portSm("a"), nullptr);
  EXPECT_EQ(root->portSm("b"), nullptr);
  EXPECT_NE(root->portSm("c"), nullptr) << "what came meanwhile stays";
  root->onCleanup = [](PortSm&) {};
}

TEST_F(MachineTest, ReactorsStayOnTheEntityThatTheyWereMadeFor) {
  root->onWatch = [this] { a->upIs(true); };  // of which a reactor that begins is not told
  for (const auto& each : {a, b, a}) root->portIs(each);
  a->vlanIs(7);
  const auto reactor = root->port("a");
  EXPECT_EQ(root->portDel("a"), reactor);
  EXPECT_EQ(root->portDel("a"), nullptr);
  a->vlanIs(8);
  EXPECT_THAT(log(), ElementsAre("watch a", "watch b", "change a", "unwatch a"));
  const auto otherB = create<Port>("b");
  EXPECT_EQ(root->portIs(otherB), root->port("b"));
  otherB->upIs(true);
  b->upIs(true);
  EXPECT_THAT(log(), ElementsAre("change b"));
  EXPECT_THAT([&] { root->portIs(nullptr); },
              ThrowsMessage<Moru::RangeException>(std::string(
                  "null _port parameter to mutator for Test::RootSm::port not allowed\"")));
}

TEST_F(MachineTest, ReactorsFollowACollection) {
  const auto ports = create<Ports>();
  for (const auto& each : {a, b}) ports->portIs(each);
  root->portIs(create<Port>("gone"));
  root->port.sync(ports->port());
  EXPECT_THAT(log(), ElementsAre("watch gone", "watch a", "watch b", "unwatch gone"));
  root->port.follow(ports->port(), "a");
  ports->portDel("a");
  root->port.follow(ports->port(), "a");
  EXPECT_THAT(log(), ElementsAre("unwatch a"));
  // A reactor that comes into being may take its own entity away.
  ports->portIs(a);
  root->onWatch = [&] { ports->portDel("a"); };
  root->port.follow(ports->port(), "a");
  EXPECT_EQ(root->port("a"), nullptr);
  root->onWatch = [] {};
}

TEST_F(MachineTest, IsTurnedOffAndOnWithItsPartsAndTheirs) {
  const auto reactor = root->portIs(b);
  EXPECT_EQ(reactor->partIs("part", a, root.get())->owner(), reactor.get());
  EXPECT_EQ(child(a)->owner(), root.get());
  log();
  for (const bool active : {false, true}) {
    root->hasNotificationActiveIs(active);
    for (const bool up : {true, false})
      for (const auto& each : {a, b}) each->upIs(up);
    EXPECT_EQ(log().size(), active ? 10U : 0U) << "of the child, the reactor and its part";
  }
  root->moruDoZombieReactors(true);
  EXPECT_EQ(a->notifiees() + b->notifiees(), 0U) << "all are detached";
  root = nullptr;
  EXPECT_EQ(reactor->owner(), nullptr);
}

TEST_F(MachineTest, AnExceptionLeavesTheMutatorAndTheListWhole) {
  for (const char* key : {"1", "2", "3"}) root->portSmIs(key, a, root.get());
  root->portSm("1")->port.reactor()->notifierIs(a);  // again, and still the first
  root->onUp = [](PortSm& sm) {
    if (sm.fwkKey() == "2") throw Moru::RangeException("refused");
  };
  EXPECT_THROW(a->upIs(true), Moru::RangeException);
  EXPECT_THAT(log(), ElementsAre("up 1", "done 1", "up 2"));
  root->onUp = [](PortSm&) {};
  for (const bool up : {true, false}) a->upIs(up);  // no change, and one
  EXPECT_THAT(log(), ElementsAre("up 1", "done 1", "up 2", "done 2", "up 3", "done 3"));
}

TEST_F(MachineTest, AfterAnExceptionInItsBindingAnInputReacts) {
  const auto sm = child(a);
  sm->onBind = [] { throw Moru::RangeException("refused"); };
  EXPECT_THROW(sm->portIs(b), Moru::RangeException);
  EXPECT_EQ(sm->port(), b);
  log();
  b->upIs(true);
  EXPECT_THAT(log(), ElementsAre("up a", "done a"));
}

TEST_F(MachineTest, AReactorWithoutAKeyOrAnOwnerForwardsNothing) {
  auto sm = create<PortSm>("a", a, root.get());
  const auto reactor = sm->port.reactor();
  reactor->onAttribute(Port::Vlans::id, nullptr);  // the whole collection
  sm = nullptr;
  EXPECT_EQ(reactor->owner(), nullptr);
  const int vlan = 1;
  reactor->onAttribute(Port::Up::id, nullptr);
  reactor->onAttribute(Port::Vlans::id, &vlan);
  EXPECT_TRUE(log().empty());
}

TEST_F(MachineTest, CollectionsNotifyEveryKeyThatIsSetAndEveryOneThatWasThere) {
  static_assert(!std::is_invocable_v<const Port::Up::Is&, bool>, "a const entity is read-only");
  const auto sm = child(a);
  std::vector<int> vlans;
  sm->onVlan = [&](int vlan) { vlans.push_back(vlan); };
  for (const int vlan : {3, 1, 3}) a->vlanIs(vlan);  // set again: told again
  a->vlanDel(2);
  a->vlanDel(1);
  a->vlanIs(5);
  a->vlanDelAll();
  EXPECT_THAT(vlans, ElementsAre(3, 1, 3, 1, 5, 3, 5));
}

// Calls back for each key that has gone.
struct PortsWatcher final : Ports::NotifieeConst {
  PortsWatcher(const Ptr<Ports>& ports, std::function<void(int)> gone) : gone(std::move(gone)) {
    notifierIs(ports);
    hasNotificationActiveIs(true);
  }
  void onAttribute(Moru::AttributeId attribute, const void* key) override {
    const Ptr<Ports const> ports = notifier();
    if (attribute == Moru::idOf<&Ports::number>) {
      const int number = *Moru::keyOf<&Ports::number>(key);
      if (!ports->number().contains(number)) gone(number);
    } else {
      const Name& name = *Moru::keyOf<&Ports::port>(key);
      if (!ports->port().contains(name)) gone(std::stoi(name.stringValue()));
    }
  }
  const std::function<void(int)> gone;
};

TEST(Collections, RemovingAllRemovesWhatWasThereAndEndsWhateverIsPutBack) {
  const std::pair<std::function<void(Ports&, int)>, void (*)(Ports&)> kinds[] = {
      {[](Ports& ports, int key) { ports.numberIs(key, key); },
       [](Ports& ports) { ports.numberDelAll(); }},
      {[](Ports& ports, int key) { ports.portIs(create<Port>(std::to_string(key))); },
       [](Ports& ports) { ports.portDelAll(); }}};
  for (const auto& [put, delAll] : kinds) {
    auto ports = create<Ports>();
    for (const int key : {1, 2, 3}) put(*ports, key);
    std::vector<int> gone;
    bool dropping = false;
    Ptr<PortsWatcher> watcher;
    watcher = create<PortsWatcher>(ports, [&, put = put](int key) {
      gone.push_back(key);
      if (dropping) {
        ports = nullptr;  // while its members go: a sanitizer sees if they go without it
        watcher = nullptr;
      } else if (gone.size() < 100) {
        for (const int back : {key, key + 10}) put(*ports, back);
      }
    });
    delAll(*ports);
    EXPECT_THAT(gone, ElementsAre(1, 2, 3));
    EXPECT_EQ(std::max(ports->number().size(), ports->port().size()), 6U);
    dropping = true;
    delAll(*ports);
    EXPECT_THAT(gone, ElementsAre(1, 2, 3, 1)) << "and the first of six";
  }
}

struct MoruDir final : Moru::Dir::NotifieeConst {
  void onAttribute(Moru::AttributeId, const void* key) override {
    const Name& name = *static_cast<const Name*>(key);
    log.push_back(name.stringValue() + (notifier()->entityPtr(name) ? " entity" : "") +
                  (notifier()->entryState(name) ? " state" : ""));
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
  for (const char* name : {"announced", "announced", "absent"}) dir->entryStateIs(name, true);
  for (const char* name : {"whole", "absent"}) dir->entityPtrDel(name);
  EXPECT_THAT(reactor->log, ElementsAre("whole entity state", "announced entity",
                                        "announced entity state", "whole"));
}

}  // namespace
