// The ordered table of hosts, with an index that leads from a VLAN to its hosts: one VLAN's hosts
// are few among a million, and are to be found at their own cost.
//
//   for (auto host = map.keysOfVlan(vlan); host; ++host) host.key() ...
//
// visits them in the order of the table. Entries may come and go meanwhile, as with all iterators
// of the collections.
#pragma once

#include <cstdint>

#include "framework/Moru/Attribute.h"
#include "framework/Moru/RbTreeMap.h"
#include "framework/Moru/SortedBlocks.h"
#include "model/Bridging/MacVlanPair.h"

namespace Vxlan {

// The keys by VLAN, then MAC.
struct VlanFirst {
  constexpr bool operator()(const Bridging::MacVlanPair& left,
                            const Bridging::MacVlanPair& right) const {
    return value(left) < value(right);
  }

 private:
  static constexpr std::uint64_t value(const Bridging::MacVlanPair& pair) {
    return std::uint64_t{pair.vlan.value()} << 48 | pair.mac.value();
  }
};

template <class Key, class Value>
class VlanIndexedMap : Moru::RbTreeMap<Key, Value> {
  using Table = Moru::RbTreeMap<Key, Value>;
  using Index = Moru::SortedBlocks<Key, Moru::Member, VlanFirst>;

 public:
  using Table::begin;
  using Table::contains;
  using Table::empty;
  using Table::end;
  using Table::find;
  using Table::from;
  using Table::size;
  using Table::value;

  bool is(const Key& key, Value value) {
    if (!Table::is(key, std::move(value))) return false;
    index_.insert(key, {});
    return true;
  }

  bool del(const Key& key) {
    if (!Table::del(key)) return false;
    index_.erase(key);
    return true;
  }

  class VlanIterator {
   public:
    VlanIterator(const Index& index, const Bridging::VlanId& vlan)
        : index_(&index), key_{Vorn::EthAddr(), vlan} {
      comeTo(index.notLess(key_));
    }

    // False at the end.
    explicit operator bool() const { return !ended_; }

    // The key that the iterator has come to, which may have been removed since.
    const Key& key() const { return key_; }

    VlanIterator& operator++() {
      if (ended_) return *this;
      comeTo(version_ == index_->version() ? index_->next(place_) : index_->greater(key_));
      return *this;
    }

   private:
    void comeTo(const typename Index::Place& place) {
      version_ = index_->version();
      ended_ = index_->isEnd(place) || index_->key(place).vlan != key_.vlan;
      if (ended_) return;
      place_ = place;
      key_ = index_->key(place);
    }

    const Index* index_;
    typename Index::Place place_;
    Key key_;
    bool ended_ = false;
    std::uint64_t version_ = 0;
  };

  // It must not outlive the map.
  VlanIterator keysOfVlan(const Bridging::VlanId& vlan) const { return {index_, vlan}; }

 private:
  Index index_;
};

}  // namespace Vxlan
