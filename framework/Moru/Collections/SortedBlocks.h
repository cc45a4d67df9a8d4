// An order: sorted keys, each with something small beside it. Inside the framework only.
//
// It is a B+tree of two levels, a sorted list of blocks, each a sorted array. An insertion moves
// part of a block, and once in a hundred times part of the list, which tens of millions of keys
// would feel: that would want a third level.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "framework/Moru/Collections/Prefetch.h"
#include "framework/Moru/Collections/SlotPool.h"

namespace Moru {

template <class Key, class Payload>
class SortedBlocks {
 public:
  // Where a key stands; good until the version() changes.
  struct Place {
    std::size_t block = 0;
    std::size_t position = 0;
  };

  // Counts the keys that came or went.
  std::uint64_t version() const { return version_; }

  bool isEnd(const Place& place) const { return place.block == blocks_.size(); }
  const Key& key(const Place& place) const { return blocks_[place.block]->keys[place.position]; }
  const Payload& payload(const Place& place) const {
    return blocks_[place.block]->payloads[place.position];
  }

  Place first() const { return settled({0, 0}); }
  Place next(const Place& place) const { return settled({place.block, place.position + 1}); }

  // The first key that is not less than `key`, or that is greater.
  Place notLess(const Key& key) const { return settled(lowerBound<false>(key)); }
  Place greater(const Key& key) const { return settled(lowerBound<true>(key)); }

  // The same, and found at once if that is where `place`, of an earlier version, has come to stand.
  Place greater(const Key& key, const Place& place) const {
    if (place.block < blocks_.size() && place.position > 0) {
      const Block& block = *blocks_[place.block];
      if (place.position < block.count && block.keys[place.position - 1] < key &&
          key < block.keys[place.position])
        return place;
    }
    return greater(key);
  }

  // The place so many keys further on, if it is in the same block; else the end.
  Place ahead(const Place& place, std::size_t count) const {
    if (place.position + count < blocks_[place.block]->count)
      return {place.block, place.position + count};
    return {blocks_.size(), 0};
  }

  // Has the processor fetch where the key stands, unless it has just been there.
  void prefetch(const Key& key) const {
    const std::size_t last = lastBlock_;
    if (blocks_.empty() || blockOf(key) == last) return;
    const Block& block = *blocks_[lastBlock_];
    prefetchLine(&block.count);
    // The first steps of a search.
    for (std::size_t eighth = 1; eighth < 8; ++eighth)
      prefetchLine(&block.keys[blockSize * eighth / 8]);
  }

  // Adds a key that is not there.
  void insert(const Key& key, const Payload& payload) {
    if (blocks_.empty()) insertBlock(0, key);
    Place place = lowerBound<false>(key);
    if (blocks_[place.block]->count == blockSize) place = split(place, key);
    blocks_[place.block]->insert(place.position, key, payload);
    if (place.position == 0) lowest_[place.block] = key;
    ++version_;
  }

  // Removes a key that is there.
  void erase(const Key& key) {
    const Place place = lowerBound<false>(key);
    blocks_[place.block]->erase(place.position);
    if (blocks_[place.block]->count < blockSize / 4) mergeAround(place.block);
    ++version_;
  }

 private:
  static constexpr std::size_t blockSize = 256;

  struct Block {
    void insert(std::size_t position, const Key& key, const Payload& payload) {
      std::move_backward(&keys[position], &keys[count], &keys[count] + 1);
      std::move_backward(&payloads[position], &payloads[count], &payloads[count] + 1);
      keys[position] = key;
      payloads[position] = payload;
      ++count;
    }

    void erase(std::size_t position) {
      std::move(&keys[position] + 1, &keys[count], &keys[position]);
      std::move(&payloads[position] + 1, &payloads[count], &payloads[position]);
      --count;
    }

    // Takes over what `other` holds from `position` on, all of it greater than what is here.
    void append(Block& other, std::size_t position) {
      std::move(&other.keys[position], &other.keys[other.count], &keys[count]);
      std::move(&other.payloads[position], &other.payloads[other.count], &payloads[count]);
      count += other.count - position;
      other.count = position;
    }

    std::size_t count = 0;
    std::uint32_t slot = 0;  // in the pool
    // One more than it holds, so that the place behind the last can be pointed at.
    std::array<Key, blockSize + 1> keys;
    std::array<Payload, blockSize + 1> payloads;
  };

  // How many of the sorted `count` keys are less than `key` (or not greater, with `OrEqual`). It
  // has no branch to guess wrong but the loop's own.
  template <bool OrEqual>
  static std::size_t countBelow(const Key* keys, std::size_t count, const Key& key) {
    const auto below = [&key](const Key& each) { return OrEqual ? !(key < each) : each < key; };
    const Key* first = keys;
    while (count > 1) {
      const std::size_t half = count / 2;
      first += below(first[half - 1]) ? half : 0;
      count -= half;
    }
    return static_cast<std::size_t>(first - keys) + (count == 1 && below(*first) ? 1 : 0);
  }

  // The block that holds the key, or would. It is often the one that was asked for last.
  std::size_t blockOf(const Key& key) const {
    const bool isLast = lastBlock_ < lowest_.size() && !(key < lowest_[lastBlock_]) &&
                        (lastBlock_ + 1 == lowest_.size() || key < lowest_[lastBlock_ + 1]);
    if (!isLast)
      lastBlock_ =
          std::max<std::size_t>(countBelow<true>(lowest_.data(), lowest_.size(), key), 1) - 1;
    return lastBlock_;
  }

  // The place of the first key that is not less than `key` (or greater, with `OrEqual`), or of the
  // end of its block.
  template <bool OrEqual>
  Place lowerBound(const Key& key) const {
    if (blocks_.empty()) return {};
    const std::size_t block = blockOf(key);
    return {block, countBelow<OrEqual>(blocks_[block]->keys.data(), blocks_[block]->count, key)};
  }

  // From the end of a block to the beginning of the next.
  Place settled(const Place& place) const {
    if (place.block < blocks_.size() && place.position == blocks_[place.block]->count)
      return {place.block + 1, 0};
    return place;
  }

  void insertBlock(std::size_t block, const Key& lowest) {
    const std::uint32_t slot = pool_.add();
    pool_[slot].slot = slot;
    lowest_.insert(lowest_.begin() + static_cast<std::ptrdiff_t>(block), lowest);
    blocks_.insert(blocks_.begin() + static_cast<std::ptrdiff_t>(block), &pool_[slot]);
  }

  void eraseBlock(std::size_t block) {
    pool_.take(blocks_[block]->slot);
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
  std::vector<Block*> blocks_;
  SlotPool<Block> pool_;  // in which they stand
  mutable std::size_t lastBlock_ = 0;
  std::uint64_t version_ = 0;
};

}  // namespace Moru
