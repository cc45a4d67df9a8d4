// The ordered table: iteration is in ascending order of the keys, from any key on.
//
//   for (auto it = map.from(key); it; ++it) it.key(), it.value() ...
//
// It is a hash table beside an order: lookups, and new values for known keys, go by the hash and
// never touch the order. The order is a B+tree of two levels, a sorted list of blocks, each a
// sorted array of keys with their slots. An insertion moves part of a block, and once in a hundred
// times part of the list, which a table of tens of millions would feel: that would want a third
// level.
//
// No element moves while it is there. Elements may come and go, the current one too, while
// iterators are on their way: an iterator keeps a copy of its key, and finds its way from that when
// the blocks have changed. It must not outlive its map.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "framework/Moru/Assert.h"
#include "framework/Moru/SlotTable.h"

namespace Moru {

template <class Key, class Value, class Less = std::less<Key>, class Hash = std::hash<Key>>
class RbTreeMap : SlotTable<Key, Value, Hash> {
  using Table = SlotTable<Key, Value, Hash>;
  using typename Table::Slot;

  template <class Map, class ValueType>
  class IteratorOf;

 public:
  using Iterator = IteratorOf<RbTreeMap, Value>;
  using ConstIterator = IteratorOf<const RbTreeMap, const Value>;

  RbTreeMap() = default;
  ~RbTreeMap() {
    if constexpr (Table::elementsMayReenter)
      while (!empty()) delAll();
  }

  using Table::contains;
  using Table::empty;
  using Table::find;
  using Table::size;
  using Table::value;

  // Adds an element, or gives it another value. True if the key is new.
  bool is(const Key& key, Value value) {
    const Slot slot = this->put(key, std::move(value));
    if (slot == Table::none) return false;
    enter(key, slot);
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

  Iterator begin() { return Iterator(*this, Place()); }
  ConstIterator begin() const { return ConstIterator(*this, Place()); }
  std::default_sentinel_t end() const { return std::default_sentinel; }

  // At the first element whose key is not less than `key`.
  Iterator from(const Key& key) { return Iterator(*this, lowerBound(key)); }
  ConstIterator from(const Key& key) const { return ConstIterator(*this, lowerBound(key)); }

 private:
  static constexpr std::size_t blockSize = 256;

  struct Block {
    void insert(std::size_t position, const Key& key, Slot slot) {
      std::move_backward(&keys[position], &keys[count], &keys[count] + 1);
      std::move_backward(&slots[position], &slots[count], &slots[count] + 1);
      keys[position] = key;
      slots[position] = slot;
      ++count;
    }

    void erase(std::size_t position) {
      std::move(&keys[position] + 1, &keys[count], &keys[position]);
      std::move(&slots[position] + 1, &slots[count], &slots[position]);
      --count;
    }

    // Takes over what `other` holds from `position` on, all of it greater than what is here.
    void append(Block& other, std::size_t position) {
      std::move(&other.keys[position], &other.keys[other.count], &keys[count]);
      std::move(&other.slots[position], &other.slots[other.count], &slots[count]);
      count += other.count - position;
      other.count = position;
    }

    std::size_t count = 0;
    // One more than it holds, so that the place behind the last can be pointed at.
    std::array<Key, blockSize + 1> keys;
    std::array<Slot, blockSize + 1> slots;
  };

  struct Place {
    std::size_t block = 0;
    std::size_t position = 0;
  };

  // How many of the sorted `count` keys are less than `key` (or not greater, with `OrEqual`). It
  // has no branch to guess wrong but the loop's own.
  template <bool OrEqual>
  static std::size_t countBelow(const Key* keys, std::size_t count, const Key& key) {
    const auto below = [&key](const Key& each) {
      return OrEqual ? !Less()(key, each) : Less()(each, key);
    };
    const Key* first = keys;
    while (count > 1) {
      const std::size_t half = count / 2;
      first += below(first[half - 1]) ? half : 0;
      count -= half;
    }
    return static_cast<std::size_t>(first - keys) + (count == 1 && below(*first) ? 1 : 0);
  }

  // The place of the first element whose key is not less than `key` (or greater, with `OrEqual`),
  // or of the end of its block.
  template <bool OrEqual = false>
  Place lowerBound(const Key& key) const {
    if (blocks_.empty()) return {};
    const std::size_t block =
        std::max<std::size_t>(countBelow<true>(lowest_.data(), lowest_.size(), key), 1) - 1;
    return {block, countBelow<OrEqual>(blocks_[block]->keys.data(), blocks_[block]->count, key)};
  }

  void enter(const Key& key, Slot slot) {
    if (blocks_.empty()) insertBlock(0, key);
    Place place = lowerBound(key);
    if (blocks_[place.block]->count == blockSize) place = split(place, key);
    blocks_[place.block]->insert(place.position, key, slot);
    if (place.position == 0) lowest_[place.block] = key;
    ++version_;
  }

  void remove(Slot slot) {
    const Place place = lowerBound(this->element(slot).key);
    blocks_[place.block]->erase(place.position);
    if (blocks_[place.block]->count < blockSize / 4) mergeAround(place.block);
    ++version_;
    Table::remove(slot);
  }

  void insertBlock(std::size_t block, const Key& lowest) {
    lowest_.insert(lowest_.begin() + static_cast<std::ptrdiff_t>(block), lowest);
    blocks_.insert(blocks_.begin() + static_cast<std::ptrdiff_t>(block), std::make_unique<Block>());
  }

  void eraseBlock(std::size_t block) {
    lowest_.erase(lowest_.begin() + static_cast<std::ptrdiff_t>(block));
    blocks_.erase(blocks_.begin() + static_cast<std::ptrdiff_t>(block));
  }

  // Makes room in a full block for `key`, and returns where it goes.
  Place split(const Place& place, const Key& key) {
    // A key behind all others begins a block of its own: what comes in order fills its blocks.
    if (place.position == blockSize && place.block + 1 == blocks_.size()) {
      insertBlock(place.block + 1, key);
      return {place.block + 1, 0};
    }
    constexpr std::size_t half = blockSize / 2;
    insertBlock(place.block + 1, blocks_[place.block]->keys[half]);
    blocks_[place.block + 1]->append(*blocks_[place.block], half);
    if (place.position <= half) return place;
    return {place.block + 1, place.position - half};
  }

  // Joins a block that has become small with a neighbour, whichever is small enough; an empty one
  // goes.
  void mergeAround(std::size_t block) {
    if (blocks_[block]->count == 0)
      eraseBlock(block);
    else if (block == 0 || !mergeWithNext(block - 1))
      mergeWithNext(block);
  }

  // Joins two blocks if both fit into half of one, and so leave room to grow. True if they did.
  bool mergeWithNext(std::size_t block) {
    if (block + 1 == blocks_.size()) return false;
    Block& other = *blocks_[block + 1];
    if (blocks_[block]->count + other.count > blockSize / 2) return false;
    blocks_[block]->append(other, 0);
    eraseBlock(block + 1);
    return true;
  }

  // Of each block a key that is not greater than any of its own, and greater than all before it.
  std::vector<Key> lowest_;
  std::vector<std::unique_ptr<Block>> blocks_;
  std::uint64_t version_ = 0;  // counts the elements that came or went
};

template <class Key, class Value, class Less, class Hash>
template <class Map, class ValueType>
class RbTreeMap<Key, Value, Less, Hash>::IteratorOf {
 public:
  struct Entry {
    const Key& key;
    ValueType& value;
  };

  IteratorOf(Map& map, const Place& place) : map_(&map) { settle(place); }

  // False at the end.
  explicit operator bool() const { return place_.block != ended; }
  friend bool operator==(const IteratorOf& it, std::default_sentinel_t) { return !it; }

  // The key of the element that the iterator has come to, which may have been removed since.
  const Key& key() const { return key_; }

  // Its value. The element must still be there: that is asserted.
  ValueType& value() const {
    constexpr const char* present = "the iterator stands on an element";
    if (version_ == map_->version_) [[likely]] {
      assertThat(place_.block != ended, present);
      return map_->element(map_->blocks_[place_.block]->slots[place_.position]).value;
    }
    ValueType* const value = map_->find(key_);
    assertThat(value != nullptr, present);
    return *value;
  }

  Entry operator*() const { return {key_, value()}; }

  IteratorOf& operator++() {
    if (!*this) return *this;
    if (version_ == map_->version_) [[likely]]
      settle({place_.block, place_.position + 1});
    else
      settle(map_->template lowerBound<true>(key_));
    return *this;
  }

 private:
  static constexpr std::size_t ended = ~std::size_t{0};

  // Comes to the element at `place`, or at the beginning of the next block.
  void settle(Place place) {
    version_ = map_->version_;
    const auto& blocks = map_->blocks_;
    if (place.block < blocks.size() && place.position == blocks[place.block]->count)
      place = {place.block + 1, 0};
    if (place.block == blocks.size()) {
      place_.block = ended;
      return;
    }
    place_ = place;
    key_ = blocks[place_.block]->keys[place_.position];
  }

  Map* map_;
  Place place_;
  Key key_{};
  std::uint64_t version_ = 0;
};

}  // namespace Moru
