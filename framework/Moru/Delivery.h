// The deliveries that are running, nested in one another: inside the framework only.
//
// A delivery stands on the stack of the mutator that notifies. It knows which reactor it is
// calling, and which one comes next; the framework asks the running deliveries before it destroys
// anything, and moves them on when a reactor leaves its list.
#pragma once

#include "framework/Moru/Notifiee.h"

namespace Moru {

class Delivery {
 public:
  // Calls those who are registered with `entity`, of whom there is at least one, in their order, as
  // far as they are active.
  static void toAll(const Entity& entity, AttributeId attribute, const void* key);

  // Calls one reactor, if it is active.
  static void toOne(Notifiee& reactor, AttributeId attribute, const void* key);

  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;
  ~Delivery() = default;

  // `reactor`, still linked, is about to leave its list.
  static void skip(const Notifiee& reactor) noexcept;

  static bool uses(const Entity& entity) noexcept;
  static bool uses(const Reactive& reactive) noexcept;

  // Takes charge of an object that has lost its last reference while it is in use.
  static void condemn(const PtrInterface& object);

 private:
  class Frame;

  explicit Delivery(const Entity* entity) : entity_(entity) {}

  void call(Notifiee& reactor, AttributeId attribute, const void* key);
  static void destroyCondemned() noexcept;

  const Entity* const entity_;  // null for a delivery to one reactor
  Notifiee* next_ = nullptr;
  const Reactive* calling_ = nullptr;
  Delivery* outer_ = nullptr;
};

}  // namespace Moru
