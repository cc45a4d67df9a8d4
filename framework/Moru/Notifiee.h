// Reactors: objects that watch one entity and are called when one of its attributes changes.
//
// A reactor is called while it is attached (notifierIs), registered and active. It may do anything
// in its handler: write any entity, attach and detach reactors, itself included, drop its machine
// or the last pointer to the entity that is notifying. docs/architecture.md has the whole contract.
#pragma once

#include <cstdint>
#include <utility>

#include "framework/Moru/Ptr.h"
#include "framework/Moru/Reactive.h"

namespace Moru {

class Entity;

// Tells the attributes of one entity apart. Any numbers serve; see idOf in Attribute.h.
using AttributeId = std::uint32_t;

class Notifiee : public Reactive {
 public:
  // `attribute` of the notifier has changed; of a keyed collection, the member under `key`, which
  // points to a copy of the key that lives as long as the call (null: the whole collection).
  virtual void onAttribute(AttributeId attribute, const void* key) = 0;

  // Off in a new reactor.
  bool hasNotificationActive() const { return active_; }
  void hasNotificationActiveIs(bool active) override;

  // Attaching registers a reactor; this takes it off its notifier's list, or puts it to the list's
  // end, without changing what it watches.
  bool isRegisteredNotifiee() const { return registeredWith_ != nullptr; }
  void isRegisteredNotifieeIs(bool registered);

  // A zombie has been detached for good; only whoever still holds it keeps it in being.
  bool isZombie() const { return zombie_; }
  void moruDoZombieReactors(bool zombie) override;

 protected:
  explicit Notifiee(Reactive* owner) : Reactive(owner) {}
  ~Notifiee() override;

  // The typed layer below holds the pointer to the entity.
  virtual const Entity* watched() const = 0;
  virtual void watchedDel() = 0;

 private:
  friend class Delivery;
  friend class Entity;

  const Entity* registeredWith_ = nullptr;
  Notifiee* previous_ = nullptr;
  Notifiee* next_ = nullptr;
  std::uint64_t registration_ = 0;  // the place in its notifier's order, see Entity
  bool active_ = false;
  bool zombie_ = false;
};

// A reactor on an `E`, or on an `E const`; entities offer the two as E::Notifiee, E::NotifieeConst.
template <class E>
class NotifieeOf : public Notifiee {
 public:
  using Notifier = E;

  // What the reactor watches; null while it is detached. The reactor keeps it alive.
  const Ptr<E>& notifier() const { return notifier_; }

  // Attaches to another entity, or detaches (null). It is told of changes from then on.
  virtual void notifierIs(Ptr<E> notifier) {
    if (notifier == notifier_ || isZombie()) return;
    isRegisteredNotifieeIs(false);
    notifier_.swap(notifier);
    isRegisteredNotifieeIs(notifier_ != nullptr);
  }

 protected:
  explicit NotifieeOf(Reactive* owner = nullptr) : Notifiee(owner) {}

  // A reactor that goes leaves its notifier's list before it lets go of the notifier.
  ~NotifieeOf() override { isRegisteredNotifieeIs(false); }

  const Entity* watched() const override { return notifier_.get(); }
  void watchedDel() override { notifier_ = nullptr; }

 private:
  Ptr<E> notifier_;
};

// The base of the reactors that a machine nests: class MoruFoo : public Reactor<Foo::NotifieeConst,
// TheMachine>. `machine()` is the owner, a machine or another reactor; null once that has gone.
template <class Base, class Owner>
class Reactor : public Base {
 public:
  using OwnerType = Owner;

  explicit Reactor(Owner* owner) : Base(owner) {}

  Owner* machine() const { return static_cast<Owner*>(this->owner()); }

  // The key of what it watches, under which a collection holds it.
  decltype(auto) fwkKey() const requires requires(const typename Base::Notifier& entity) {
    entity.fwkKey();
  }
  { return this->notifier()->fwkKey(); }

 protected:
  // For onAttribute(): calls the forwarding method of an attribute, of a keyed one with the key.
  // Nothing is called by a reactor that watches nothing, as one does whose owner has gone, nor for
  // a change without a key, which stands for a whole collection.
  template <class Self>
  void forward(void (Self::*handle)()) {
    if (this->notifier()) (static_cast<Self*>(this)->*handle)();
  }
  template <class Self, class Parameter, class Key>
  void forward(void (Self::*handle)(Parameter), const Key* key) {
    if (this->notifier() && key != nullptr) (static_cast<Self*>(this)->*handle)(*key);
  }
};

// A reactor that reacts to nothing: its machine binds the entity for other handlers to read.
template <class Base, class Owner>
class SilentReactor final : public Reactor<Base, Owner> {
 public:
  using Reactor<Base, Owner>::Reactor;
  void onAttribute(AttributeId, const void*) override {}
};

}  // namespace Moru
