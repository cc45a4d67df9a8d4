// The ordered table of hosts, with a way from a VLAN to its hosts: one VLAN's hosts are few among a
// million, and are to be found at their own cost.
//
//   for (auto host = map.keysOfVlan(vlan); host; ++host) host.key() ...
//
// visits them in the order of the table. Entries may come and go meanwhile, as with all iterators
// of the collections.
//
// The hosts of a VLAN are linked with each other in no order, so that they come and go at next to
// no cost; they are sorted when somebody asks for them.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include "framework/Moru/Collections/RbTreeMap.h"
#include "model/Bridging/MacVlanPair.h"

namespace Vxlan {

namespace Detail {
template <class Value>
struct LinkedInVlan {
  Value value;
  std::uint32_t next = 0;
  std::uint32_t previous = 0;
};
}  // namespace Detail

// The part of a collection of the framework that a table of hosts needs; the keys have a `vlan`.
template <class Key, class Value>
class VlanIndexedMap : Moru::RbTreeMap<Key, Detail::LinkedInVlan<Value>> {
  using Linked = Detail::LinkedInVlan<Value>;
  using Table = Moru::RbTreeMap<Key, Linked>;
  using typename Table::Slot;

 public:
  class ConstIterator;
  class VlanIterator;

  VlanIndexedMap() { first_.fill(Table::none); }

  using Table::contains;
  using Table::empty;
  using Table::prefetch;
  using Table::prefetchElement;
  using Table::size;

  // Null when there is no such element. The pointer is good until the element is removed.
  const Value* find(const Key& key) const {
    const Linked* const present = Table::find(key);
    return present != nullptr ? &present->value : nullptr;
  }

  // A copy, or the default value when there is no such element.
  Value value(const Key& key) const {
    const Value* const present = find(key);
    return present != nullptr ? *present : Value();
  }

  // Adds an element, or gives it another value. True if the key is new.
  bool is(const Key& key, Value value) {
    if (Linked* const present = Table::find(key)) {
      std::swap(present->value, value);  // the one it replaces goes on return
      return false;
    }
    link(Table::add(key, Linked{std::move(value)}));
    return true;
  }

  // True if the element was there.
  bool del(const Key& key) {
    const Slot slot = Table::slotOf(key);
    if (slot == Table::none) return false;
    unlink(slot);
    Table::remove(slot);
    return true;
  }

  ConstIterator begin() const { return ConstIterator(Table::begin()); }
  std::default_sentinel_t end() const { return std::default_sentinel; }

  // At the first element whose key is not less than `key`.
  ConstIterator from(const Key& key) const { return ConstIterator(Table::from(key)); }

  // It must not outlive the map.
  VlanIterator keysOfVlan(const Bridging::VlanId& vlan) const { return {*this, vlan}; }

 private:
  Linked& linked(Slot slot) { return Table::element(slot).value; }
  Slot& firstOf(Slot slot) { return first_[Table::element(slot).key.vlan.value()]; }

  void link(Slot slot) {
    Slot& first = firstOf(slot);
    linked(slot).next = first;
    linked(slot).previous = Table::none;
    if (first != Table::none) linked(first).previous = slot;
    first = slot;
    ++added_;
  }

  void unlink(Slot slot) {
    const Linked& leaving = linked(slot);
    (leaving.previous != Table::none ? linked(leaving.previous).next : firstOf(slot)) =
        leaving.next;
    if (leaving.next != Table::none) linked(leaving.next).previous = leaving.previous;
  }

  std::array<Slot, Bridging::VlanId::max + 1> first_;  // by VLAN
  std::uint64_t added_ = 0;                            // counts the elements that have come
};

template <class Key, class Value>
class VlanIndexedMap<Key, Value>::ConstIterator {
 public:
  struct Entry {
    const Key& key;
    const Value& value;
  };

  explicit ConstIterator(const typename Table::ConstIterator& at) : at_(at) {}

  // As those of the collections.
  explicit operator bool() const { return static_cast<bool>(at_); }
  friend bool operator==(const ConstIterator& it, std::default_sentinel_t) { return !it; }
  const Key& key() const { return at_.key(); }
  const Value& value() const { return at_.value().value; }
  Entry operator*() const { return {key(), value()}; }
  std::optional<Entry> ahead(std::size_t count) const {
    const auto entry = at_.ahead(count);
    if (!entry) return std::nullopt;
    return Entry{entry->key, entry->value.value};
  }
  ConstIterator& operator++() {
    ++at_;
    return *this;
  }

 private:
  typename Table::ConstIterator at_;
};

template <class Key, class Value>
class VlanIndexedMap<Key, Value>::VlanIterator {
 public:
  VlanIterator(const VlanIndexedMap& map, const Bridging::VlanId& vlan) : map_(&map), vlan_(vlan) {
    collect([](const Key&) { return true; });
  }

  // False at the end.
  explicit operator bool() const { return at_ < keys_.size(); }

  // The key that the iterator has come to, which may have been removed since.
  const Key& key() const { return keys_[at_]; }

  // The key so many places further on; null behind the end.
  const Key* ahead(std::size_t count) const {
    return at_ + count < keys_.size() ? &keys_[at_ + count] : nullptr;
  }

  VlanIterator& operator++() {
    if (added_ != map_->added_)
      collect([last = key()](const Key& each) { return each > last; });
    else
      ++at_;
    while (*this && !map_->contains(key())) ++at_;
    return *this;
  }

 private:
  template <class Wanted>
  void collect(Wanted wanted) {
    added_ = map_->added_;
    at_ = 0;
    keys_.clear();
    for (Slot slot = map_->first_[vlan_.value()]; slot != Table::none;) {
      const auto& element = map_->Table::element(slot);
      if (wanted(element.key)) keys_.push_back(element.key);
      slot = element.value.next;
    }
    std::sort(keys_.begin(), keys_.end());
  }

  const VlanIndexedMap* map_;
  Bridging::VlanId vlan_;
  std::vector<Key> keys_;
  std::size_t at_ = 0;
  std::uint64_t added_ = 0;
};

}  // namespace Vxlan
