// An input of a machine: an entity, and the machine's own reactor on it.
//
//   Moru::Input<MoruZepState> zepState{this};
//   Moru::Input<MoruZepState>::Is zepStateIs{zepState};
//   Moru::Input<MoruZepState>::Del zepStateDel{zepState};
//
// zepState() is the entity, null when the input is absent. zepStateIs(entity) replaces it only when
// the object differs: a new reactor comes into being, active, and the old one is detached and
// released.
#pragma once

#include <utility>

#include "framework/Moru/Attribute.h"
#include "framework/Moru/Notifiee.h"

namespace Moru {

template <class ReactorType>
class Input : Part {
 public:
  using Notifier = typename ReactorType::Notifier;
  using Owner = typename ReactorType::OwnerType;
  using Is = IsMutator<Input>;
  using Del = DelMutator<Input>;

  // Absent at first: the machine's constructor sets its inputs, in their order, when all its
  // members are there to be reacted upon.
  explicit Input(Owner* owner) : Part(owner), machine_(owner) {}

  ~Input() override {
    if (reactor_) retire(*reactor_);
  }

  const Ptr<Notifier>& operator()() const { return entity_; }

  // Null when the input is absent.
  const Ptr<ReactorType>& reactor() const { return reactor_; }

 private:
  friend Is;
  friend Del;

  void set(Ptr<Notifier> entity) {
    if (entity == entity_) return;
    entity_.swap(entity);
    const Ptr<ReactorType> former = std::exchange(reactor_, nullptr);
    if (former) former->moruDoZombieReactors(true);
    if (!entity_) return;
    const auto reactor = create<ReactorType>(machine_);
    reactor_ = reactor;
    // Active first: binding may react, and throw, and what comes after that must reach the machine.
    reactor->hasNotificationActiveIs(true);
    reactor->notifierIs(entity_);
  }

  void del() { set(nullptr); }

  void hasNotificationActiveIs(bool active) override {
    if (const auto reactor = reactor_) reactor->hasNotificationActiveIs(active);
  }

  void moruDoZombieReactors(bool zombie) override {
    if (const auto reactor = reactor_) reactor->moruDoZombieReactors(zombie);
  }

  Owner* const machine_;
  Ptr<Notifier> entity_;
  Ptr<ReactorType> reactor_;
};

}  // namespace Moru
