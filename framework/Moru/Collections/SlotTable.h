// What the two large collections share: elements in stable slots, found by the hash of their key.
// Inside the framework only.
#pragma once

#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

#include "framework/Moru/Collections/Prefetch.h"
#include "framework/Moru/Collections/SlotIndex.h"
#include "framework/Moru/Collections/SlotPool.h"

namespace Moru {

struct Nothing {};

// `Beside` is what a collection that is made of this one keeps with each element.
template <class Key, class Value, class Beside = Nothing>
class SlotTable {
 public:
  SlotTable() = default;
  SlotTable(const SlotTable&) = delete;
  SlotTable& operator=(const SlotTable&) = delete;

  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  bool contains(const Key& key) const { return slotOf(key) != none; }

  // Null when there is no such element. The pointer is good until the element is removed.
  Value* find(const Key& key) {
    const Slot slot = slotOf(key);
    return slot != none ? &slots_[slot].value : nullptr;
  }
  const Value* find(const Key& key) const { return const_cast<SlotTable*>(this)->find(key); }

  // A copy, or the default value when there is no such element.
  Value value(const Key& key) const {
    const Value* const present = find(key);
    return present != nullptr ? *present : Value();
  }

  // For who knows ahead which keys come next: has the processor fetch what a lookup of `key` reads,
  // while other work goes on. A lookup reads one thing to find the next: prefetch first, and some
  // work later prefetchElement. Neither changes anything.
  void prefetch(const Key& key) const { index_.prefetch(hashOf(key)); }
  void prefetchElement(const Key& key) const {
    const Slot slot = index_.firstFor(hashOf(key));
    if (slot != none) prefetchLine(&slots_[slot]);
  }

 protected:
  struct Element {
    Key key;
    [[no_unique_address]] Value value;
    [[no_unique_address]] Beside beside{};
  };
  using Slot = SlotIndex::Slot;
  static constexpr Slot none = SlotIndex::none;

  // Whether the end of an element can reach back into the collection, which then must be whole.
  static constexpr bool elementsMayReenter = !std::is_trivially_destructible_v<Element>;

  ~SlotTable() = default;

  const Element& element(Slot slot) const { return slots_[slot]; }
  Element& element(Slot slot) { return slots_[slot]; }
  bool holds(Slot slot, const Key& key) const {
    return slots_.holds(slot) && slots_[slot].key == key;
  }

  void prefetchSlot(Slot slot) const { slots_.prefetch(slot); }

  // The first slot from `slot` on that holds an element, or none.
  Slot next(Slot slot) const { return slots_.next(slot); }

  Slot slotOf(const Key& key) const {
    return index_.find(hashOf(key), [&](Slot slot) { return slots_[slot].key == key; });
  }

  // Adds an element, or gives it another value. The slot of a new one, else none.
  Slot put(const Key& key, Value value) {
    if (Value* const present = find(key)) {
      std::swap(*present, value);  // the one it replaces goes on return
      return none;
    }
    return add(key, std::move(value));
  }

  // Adds an element that is not there, and gives its slot.
  Slot add(const Key& key, Value value) {
    if (index_.isFull()) growIndex();
    const Slot slot = slots_.add(key, std::move(value));
    index_.add(hashOf(key), slot);
    ++size_;
    return slot;
  }

  // Removes an element, whose end comes when everything else is in order.
  void remove(Slot slot) {
    index_.del(hashOf(slots_[slot].key), slot);
    --size_;
    slots_.take(slot);
  }

  // Visits the slot of each element, which may be removed. What is added meanwhile may be visited,
  // but not without end.
  template <class Visit>
  void forEach(Visit visit) {
    const Slot end = slots_.end();
    for (Slot slot = next(0); slot < end; slot = next(slot + 1)) visit(slot);
  }

 private:
  static std::size_t hashOf(const Key& key) { return std::hash<Key>()(key); }

  void growIndex() {
    index_.grow();
    forEach([this](Slot slot) { index_.add(hashOf(slots_[slot].key), slot); });
  }

  SlotPool<Element> slots_;
  SlotIndex index_;
  std::size_t size_ = 0;
};

}  // namespace Moru
