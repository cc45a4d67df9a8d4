// The ordered table, with a way from a group of its keys to their elements: one group's are few
// among a million, and are to be found at their own cost.
//
//   for (auto it = map.keysOfGroup(vlan); it; ++it) it.key() ...
//
// visits them in the order of the table. Elements may come and go meanwhile, as with all iterators
// of the collections. A key has a group(), a small number of the type Key::Group (RangedNumber.h).
//
// The elements of a group are linked with each other, the one that came last first, so that they
// come and go at next to no cost; their keys are sorted when somebody asks for them.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <queue>
#include <utility>
#include <vector>

#include "framework/Moru/Collections/RbTreeMap.h"

namespace Moru {

namespace Detail {
struct GroupLinks {
  std::uint32_t next = 0;
  std::uint32_t previous = 0;
};
}  // namespace Detail

template <class Key, class Value>
class GroupedRbTreeMap : RbTreeMap<Key, Value, Detail::GroupLinks> {
  using Table = RbTreeMap<Key, Value, Detail::GroupLinks>;
  using typename Table::Slot;

 public:
  using Group = typename Key::Group;
  using typename Table::Iterator;
  class GroupIterator;

  GroupedRbTreeMap() = default;
  ~GroupedRbTreeMap() {
    if constexpr (Table::elementsMayReenter)
      while (!empty()) delAll();
  }

  using Table::begin;
  using Table::contains;
  using Table::empty;
  using Table::end;
  using Table::find;
  using Table::from;
  using Table::prefetch;
  using Table::prefetchElement;
  using Table::size;
  using Table::value;

  // Adds an element, or gives it another value. True if the key is new.
  bool is(const Key& key, Value value) {
    const Slot slot = this->put(key, std::move(value));
    if (slot == Table::none) return false;
    link(slot);
    return true;
  }

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

  // It must not outlive the map.
  GroupIterator keysOfGroup(const Group& group) const { return {*this, group}; }

 private:
  struct Members {
    Slot first = Table::none;
    std::uint32_t added = 0;  // counts those that have come
  };

  Detail::GroupLinks& links(Slot slot) { return this->element(slot).beside; }
  Members& groupOf(Slot slot) { return groups_[this->element(slot).key.group().value()]; }

  void link(Slot slot) {
    Members& group = groupOf(slot);
    links(slot) = {group.first, Table::none};
    if (group.first != Table::none) links(group.first).previous = slot;
    group.first = slot;
    ++group.added;
  }

  void remove(Slot slot) {
    const Detail::GroupLinks leaving = links(slot);
    (leaving.previous != Table::none ? links(leaving.previous).next : groupOf(slot).first) =
        leaving.next;
    if (leaving.next != Table::none) links(leaving.next).previous = leaving.previous;
    Table::remove(slot);
  }

  std::array<Members, std::size_t{Group::max} + 1> groups_;
};

template <class Key, class Value>
class GroupedRbTreeMap<Key, Value>::GroupIterator {
 public:
  GroupIterator(const GroupedRbTreeMap& map, const Group& group)
      : map_(&map), group_(&map.groups_[group.value()]), added_(group_->added) {
    for (Slot slot = group_->first; slot != Table::none; slot = map.element(slot).beside.next)
      keys_.push_back(map.element(slot).key);
    std::sort(keys_.begin(), keys_.end());
    settle();
  }

  // False at the end.
  explicit operator bool() const { return !ended_; }
  friend bool operator==(const GroupIterator& it, std::default_sentinel_t) { return !it; }

  // The key that the iterator has come to, which may have been removed since.
  const Key& key() const { return key_; }

  // The key so many places further on, as far as that is known; null behind the end.
  const Key* ahead(std::size_t count) const {
    return next_ + count <= keys_.size() ? &keys_[next_ + count - 1] : nullptr;
  }

  GroupIterator& operator++() {
    if (ended_) return *this;
    catchUp();
    settle();
    return *this;
  }

 private:
  // Takes in what has come since the last step: it stands before all else in the group's links. As
  // some of it may have gone again, a few that are known may be met, too.
  void catchUp() {
    std::uint32_t fresh = group_->added - std::exchange(added_, group_->added);
    for (Slot slot = group_->first; fresh != 0 && slot != Table::none; --fresh) {
      const auto& element = map_->element(slot);
      if (key_ < element.key) late_.push(element.key);
      slot = element.beside.next;
    }
  }

  // Comes to the first key of both lists that is still there.
  void settle() {
    do {
      ended_ = next_ == keys_.size() && late_.empty();
      if (ended_) return;
      const bool isLate = next_ == keys_.size() || (!late_.empty() && late_.top() < keys_[next_]);
      key_ = isLate ? late_.top() : keys_[next_++];
      while (!late_.empty() && !(key_ < late_.top())) late_.pop();
    } while (!map_->contains(key_));
  }

  const GroupedRbTreeMap* map_;
  const Members* group_;
  std::uint32_t added_;
  std::vector<Key> keys_;  // what was there at first, sorted
  std::size_t next_ = 0;   // the first of them that has not been visited
  std::priority_queue<Key, std::vector<Key>, std::greater<>> late_;
  Key key_{};
  bool ended_ = false;
};

}  // namespace Moru
