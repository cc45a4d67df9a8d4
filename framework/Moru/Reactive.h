// What machines and reactors have in common: each has an owner (a machine at the root has none) and
// parts (inputs, collections of reactors, children), and passes the framework's calls on to them.
//
// While a reaction runs in it, a Reactive and all its owners are in use and stay: a handler may
// drop the very machine that it belongs to, or that machine's owner, and still return through it.
#pragma once

#include <typeinfo>

#include "framework/Moru/PtrInterface.h"

namespace Moru {

class Reactive;

// A member of a machine or reactor that holds reactors or machines of its own. It enters itself
// into the list of its owner's parts, which are served in the order of their declaration.
class Part {
 public:
  Part(const Part&) = delete;
  Part& operator=(const Part&) = delete;

  virtual void hasNotificationActiveIs(bool active) = 0;
  virtual void moruDoZombieReactors(bool zombie) = 0;

 protected:
  explicit Part(Reactive* owner);
  virtual ~Part();

  // Makes the part's owner the owner of a new member.
  void adopt(Reactive& member) const;

  // Detaches a member whose owner is on its way out, and takes the owner from it.
  static void retire(Reactive& member);

 private:
  friend class Reactive;
  Reactive* owner_;
  Part* next_ = nullptr;
};

class Reactive : public PtrInterface {
 public:
  Reactive* owner() const { return owner_; }

  // The type record: that of the machine's or reactor's own class.
  const std::type_info& fwkType() const noexcept { return typeid(*this); }

  // False until the owner, or the machine itself, has run its initialization. Machines and reactors
  // do no work before.
  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }

  // Turns the delivery of notifications on or off, here and in every part.
  virtual void hasNotificationActiveIs(bool active);

  // With true: detaches every reactor, here and in every part, for good. They stay as they are for
  // whoever still holds them, and are never called again.
  virtual void moruDoZombieReactors(bool zombie);

 protected:
  explicit Reactive(Reactive* owner = nullptr) : owner_(owner) {}

 private:
  friend class Part;

  bool inUse() const noexcept override;

  Reactive* owner_;
  Part* parts_ = nullptr;
  bool initialized_ = false;
};

// A state machine: a Reactive that somebody creates, and that reacts through its inputs.
class Machine : public Reactive {
 protected:
  using Reactive::Reactive;
};

}  // namespace Moru
