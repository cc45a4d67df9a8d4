// Entities: objects with attributes that tell their reactors of every change.
//
//   class Counter final : public Moru::EntityOf<Counter> {
//    public:
//     using Count = Moru::Attribute<std::uint32_t, 1>;
//     Count count{this};
//     Count::Is countIs{count};
//   };
//
// counter->count() reads, counter->countIs(7) writes and notifies. Attribute.h has the attribute
// kinds: values, keyed collections of values, keyed collections of entities.
#pragma once

#include <cstdint>

#include "framework/Moru/Delivery.h"
#include "framework/Moru/Notifiee.h"

namespace Moru {

class Entity : public PtrInterface {
 public:
  // The number of reactors on the entity's list, active or not.
  std::size_t notifiees() const;

 protected:
  Entity() = default;

  // Tells every registered and active reactor, in the order in which they registered, and returns
  // when all have been told. Nothing of the entity may be touched after it returns: a handler may
  // have dropped the last pointer to it. What a handler throws passes through.
  void notify(AttributeId attribute, const void* key = nullptr) const {
    if (first_ != nullptr) Delivery::toAll(*this, attribute, key);
  }

 private:
  friend class AttributeBase;
  friend class Delivery;
  friend class Notifiee;

  bool inUse() const noexcept override;
  void notifieeIs(Notifiee& reactor) const;
  void notifieeDel(Notifiee& reactor) const;

  // The list links through the reactors themselves: telling them allocates and copies nothing.
  mutable Notifiee* first_ = nullptr;
  mutable Notifiee* last_ = nullptr;
  mutable std::uint64_t registrations_ = 0;
};

// The base of each entity class E: gives it its reactor bases.
template <class E>
class EntityOf : public Entity {
 public:
  using NotifieeConst = NotifieeOf<E const>;
  using Notifiee = NotifieeOf<E>;
};

}  // namespace Moru
