// The hash table for values, from none to millions: stable slots under an open-addressing index.
//
//   for (auto [key, value] : map) ...
//   for (auto it = map.begin(); it; ++it) it.key(), it.value() ...
//
// No element moves while it is there. Elements may come and go, the current one too, while
// iterators are on their way: an iterator is a slot and a copy of its key. Iteration is in the
// order of the slots: that of insertion, but for elements that have taken the place of removed
// ones. An iterator must not outlive its map.
#pragma once

#include <cstddef>
#include <iterator>
#include <utility>

#include "framework/Moru/Assert.h"
#include "framework/Moru/Collections/SlotTable.h"

namespace Moru {

template <class Key, class Value>
class HashMap2018 : SlotTable<Key, Value> {
  using Table = SlotTable<Key, Value>;
  using typename Table::Slot;

 public:
  class Iterator;

  HashMap2018() = default;
  ~HashMap2018() {
    if constexpr (Table::elementsMayReenter)
      while (!empty()) delAll();
  }

  using Table::contains;
  using Table::empty;
  using Table::find;
  using Table::prefetch;
  using Table::prefetchElement;
  using Table::size;
  using Table::value;

  // Adds an element, or gives it another value. True if the key is new.
  bool is(const Key& key, Value value) { return this->put(key, std::move(value)) != Table::none; }

  // True if the element was there.
  bool del(const Key& key) {
    const Slot slot = this->slotOf(key);
    if (slot == Table::none) return false;
    this->remove(slot);
    return true;
  }

  // Removes what is there. What the elements add as they go may stay.
  void delAll() {
    this->forEach([this](Slot slot) { this->remove(slot); });
  }

  Iterator begin() const { return Iterator(*this); }
  std::default_sentinel_t end() const { return std::default_sentinel; }
};

// Values are read by it, and written by is() or find().
template <class Key, class Value>
class HashMap2018<Key, Value>::Iterator {
 public:
  struct Entry {
    const Key& key;
    const Value& value;
  };

  explicit Iterator(const HashMap2018& map) : map_(&map) { settle(0); }

  // False at the end.
  explicit operator bool() const { return slot_ != Table::none; }
  friend bool operator==(const Iterator& it, std::default_sentinel_t) { return !it; }

  // The key of the element that the iterator has come to, which may have been removed since.
  const Key& key() const { return key_; }

  // Its value. The element must still be there: that is asserted.
  const Value& value() const {
    assertThat(map_->holds(slot_, key_), "the iterator stands on an element");
    return map_->element(slot_).value;
  }

  Entry operator*() const { return {key_, value()}; }

  Iterator& operator++() {
    if (*this) settle(slot_ + 1);
    return *this;
  }

 private:
  void settle(Slot slot) {
    slot_ = map_->next(slot);
    if (slot_ != Table::none) key_ = map_->element(slot_).key;
  }

  const HashMap2018* map_;
  Slot slot_ = Table::none;
  Key key_{};
};

}  // namespace Moru
