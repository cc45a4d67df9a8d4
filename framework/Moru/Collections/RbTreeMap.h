// The ordered table: iteration is in ascending order of the keys, from any key on.
//
//   for (auto it = map.from(key); it; ++it) it.key(), it.value() ...
//
// It is a hash table beside an order (SortedBlocks.h): lookups, and new values for known keys, go
// by the hash and never touch the order.
//
// No element moves while it is there. Elements may come and go, the current one too, while
// iterators are on their way: an iterator keeps a copy of its key, and finds its way from that when
// the blocks have changed. It must not outlive its map.
#pragma once

#include <cstdint>
#include <iterator>
#include <optional>
#include <utility>

#include "framework/Moru/Assert.h"
#include "framework/Moru/Collections/SlotTable.h"
#include "framework/Moru/Collections/SortedBlocks.h"

namespace Moru {

template <class Key, class Value, class Beside = Nothing>
class RbTreeMap : protected SlotTable<Key, Value, Beside> {
  using Table = SlotTable<Key, Value, Beside>;

 protected:
  using typename Table::Slot;

 private:
  using Order = SortedBlocks<Key, Slot>;

 public:
  class Iterator;

  RbTreeMap() = default;
  ~RbTreeMap() {
    if constexpr (Table::elementsMayReenter)
      while (!empty()) delAll();
  }

  using Table::contains;
  using Table::empty;
  using Table::find;
  using Table::prefetchElement;
  using Table::size;
  using Table::value;

  // As in SlotTable, and of the order what an element that comes or goes touches.
  void prefetch(const Key& key) const {
    Table::prefetch(key);
    order_.prefetch(key);
  }

  // Adds an element, or gives it another value. True if the key is new.
  bool is(const Key& key, Value value) { return put(key, std::move(value)) != Table::none; }

  // True if the element was there.
  bool del(const Key& key) {
    const Slot slot = this->slotOf(key);
    if (slot == Table::none) return false;
    remove(slot);
    return true;
  }

  // Removes what is there. What the elements add as they go may stay.
  void delAll() {
    this->forEach([this](Slot slot) { remove(slot); });
  }

  Iterator begin() const { return Iterator(*this, order_.first()); }
  std::default_sentinel_t end() const { return std::default_sentinel; }

  // At the first element whose key is not less than `key`.
  Iterator from(const Key& key) const { return Iterator(*this, order_.notLess(key)); }

 protected:
  // For a table that is made of this one. As in SlotTable.
  Slot put(const Key& key, Value value) {
    const Slot slot = Table::put(key, std::move(value));
    if (slot != Table::none) order_.insert(key, slot);
    return slot;
  }

  void remove(Slot slot) {
    order_.erase(this->element(slot).key);
    Table::remove(slot);
  }

 private:
  Order order_;
};

// Values are read by it, and written by is() or find().
template <class Key, class Value, class Beside>
class RbTreeMap<Key, Value, Beside>::Iterator {
 public:
  struct Entry {
    const Key& key;
    const Value& value;
  };

  Iterator(const RbTreeMap& map, const typename Order::Place& place) : map_(&map) { comeTo(place); }

  // False at the end.
  explicit operator bool() const { return !ended_; }
  friend bool operator==(const Iterator& it, std::default_sentinel_t) { return !it; }

  // The key of the element that the iterator has come to, which may have been removed since.
  const Key& key() const { return key_; }

  // Its value. The element must still be there: that is asserted.
  const Value& value() const {
    constexpr const char* present = "the iterator stands on an element";
    if (version_ == map_->order_.version()) [[likely]] {
      assertThat(!ended_, present);
      return map_->element(map_->order_.payload(place_)).value;
    }
    const Value* const value = map_->find(key_);
    assertThat(value != nullptr, present);
    return *value;
  }

  Entry operator*() const { return {key_, value()}; }

  // The element so many places further on, if it is close at hand: for who wants to look ahead.
  // None otherwise, and when elements have come or gone since the last step.
  std::optional<Entry> ahead(std::size_t count) const {
    const Order& order = map_->order_;
    if (ended_ || version_ != order.version()) return std::nullopt;
    const auto place = order.ahead(place_, count);
    if (order.isEnd(place)) return std::nullopt;
    return Entry{order.key(place), map_->element(order.payload(place)).value};
  }

  Iterator& operator++() {
    if (ended_) return *this;
    const Order& order = map_->order_;
    comeTo(version_ == order.version() ? order.next(place_) : order.greater(key_, place_));
    return *this;
  }

 private:
  void comeTo(const typename Order::Place& place) {
    const Order& order = map_->order_;
    version_ = order.version();
    ended_ = order.isEnd(place);
    if (ended_) return;
    place_ = place;
    key_ = order.key(place);
    // The elements lie in the order of their coming: fetched ahead, they are there when the walk
    // is.
    const auto coming = order.ahead(place, prefetchDistance);
    if (!order.isEnd(coming)) map_->prefetchSlot(order.payload(coming));
  }

  static constexpr std::size_t prefetchDistance = 24;

  const RbTreeMap* map_;
  typename Order::Place place_;
  Key key_{};
  bool ended_ = false;
  std::uint64_t version_ = 0;
};

}  // namespace Moru
