// The hash index of the large collections: from the hash of a key to the slot of its element.
// Inside the framework only.
//
// It is an open-addressing hash table with bucketed linear probing and one-byte fingerprints, as a
// Swiss table has. A bucket is a cache line of twelve entries, each a fingerprint (the tag: eight
// bits of the hash) and a slot. A lookup compares the tags of a bucket at once, and looks at an
// element only where one fits: nearly always it reads one line of the index and one element, and
// takes no branch that is hard to predict.
//
// An entry that finds its bucket full goes into the next one that has room (linear probing), and
// every full bucket on its way counts it as having passed by. A lookup goes on only while that
// count is not zero; a removal takes it back, and so leaves no tombstone. In time every bucket may
// have been passed by: a lookup goes round once and no more.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "framework/Moru/Collections/LargeAllocator.h"
#include "framework/Moru/Collections/Prefetch.h"
#include "framework/Moru/Hash.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Moru {

class SlotIndex {
 public:
  using Slot = std::uint32_t;
  static constexpr Slot none = 0xffffffff;

  // The slot that is entered under `hash` and that `isIt(slot)` says yes to; none if there is none.
  template <class IsIt>
  Slot find(std::size_t hash, IsIt&& isIt) const {
    if (buckets_.empty()) return none;
    const Home home = homeOf(hash);
    std::size_t at = home.bucket;
    do {
      const Bucket& bucket = buckets_[at];
      for (unsigned fits = bucket.fits(home.tag); fits != 0; fits &= fits - 1) {
        const Slot slot = bucket.slots[static_cast<unsigned>(std::countr_zero(fits))];
        if (slot != none && isIt(slot)) return slot;
      }
      if (bucket.passedBy == 0) return none;
      at = after(at);
    } while (at != home.bucket);
    return none;
  }

  // Has the processor fetch what a lookup under `hash` will read first.
  void prefetch(std::size_t hash) const {
    if (!buckets_.empty()) prefetchLine(&buckets_[homeOf(hash).bucket]);
  }

  // The slot that such a lookup would ask about first; none if it would ask about none.
  Slot firstFor(std::size_t hash) const {
    if (buckets_.empty()) return none;
    const Home home = homeOf(hash);
    const Bucket& bucket = buckets_[home.bucket];
    const unsigned fits = bucket.fits(home.tag);
    return fits != 0 ? bucket.slots[static_cast<unsigned>(std::countr_zero(fits))] : none;
  }

  // True if another entry wants a larger index: grow() first, and enter all anew.
  bool isFull() const { return entries_ >= buckets_.size() * meanLoad; }

  // Empties the index and makes it larger.
  void grow() {
    bucketsLog2_ = buckets_.empty() ? 0 : bucketsLog2_ + 1;
    // Released first: the two need never stand side by side.
    std::vector<Bucket, LargeAllocator<Bucket>>().swap(buckets_);
    buckets_.resize(std::size_t{1} << bucketsLog2_);
    entries_ = 0;
  }

  void add(std::size_t hash, Slot slot) {
    const Home home = homeOf(hash);
    std::size_t at = home.bucket;
    unsigned entry = 0;
    while ((entry = buckets_[at].entryOf(none)) == bucketSize) {
      ++buckets_[at].passedBy;
      at = after(at);
    }
    buckets_[at].tags[entry] = home.tag;
    buckets_[at].slots[entry] = slot;
    ++entries_;
  }

  // The slot is entered under that hash.
  void del(std::size_t hash, Slot slot) {
    const Home home = homeOf(hash);
    std::size_t at = home.bucket;
    unsigned entry = 0;
    while ((entry = buckets_[at].entryOf(slot)) == bucketSize) {
      --buckets_[at].passedBy;
      at = after(at);
    }
    buckets_[at].slots[entry] = none;
    --entries_;
  }

 private:
  static constexpr unsigned bucketSize = 12;
  // The index grows when there are as many entries to a bucket: few are full then.
  static constexpr std::size_t meanLoad = 9;

  struct alignas(64) Bucket {
    // A bit for each entry that has that tag; also for empty ones, whose tag means nothing.
    unsigned fits(std::uint8_t tag) const {
#if defined(__SSE2__)
      // What the compilers do not find in the loop below: one comparison of all.
      const __m128i all = _mm_load_si128(reinterpret_cast<const __m128i*>(this));
      const __m128i equal = _mm_cmpeq_epi8(all, _mm_set1_epi8(static_cast<char>(tag)));
      return static_cast<unsigned>(_mm_movemask_epi8(equal)) & ((1U << bucketSize) - 1);
#else
      unsigned bits = 0;
      for (unsigned entry = 0; entry < bucketSize; ++entry)
        bits |= static_cast<unsigned>(tags[entry] == tag) << entry;
      return bits;
#endif
    }

    unsigned entryOf(Slot slot) const {
      unsigned entry = 0;
      while (entry < bucketSize && slots[entry] != slot) ++entry;
      return entry;
    }

    static constexpr std::array<Slot, bucketSize> emptySlots() {
      std::array<Slot, bucketSize> slots{};
      slots.fill(none);
      return slots;
    }

    std::array<std::uint8_t, bucketSize> tags{};
    std::uint32_t passedBy = 0;
    std::array<Slot, bucketSize> slots = emptySlots();
  };
  static_assert(sizeof(Bucket) == 64);

  struct Home {
    std::size_t bucket;
    std::uint8_t tag;
  };

  // The bucket comes from the top of the mixed hash, the tag from the bits below.
  Home homeOf(std::size_t hash) const {
    constexpr unsigned tagBits = 8;
    const std::size_t top = hashTop(hash, bucketsLog2_ + tagBits);
    return {top >> tagBits, static_cast<std::uint8_t>(top)};
  }

  std::size_t after(std::size_t bucket) const { return (bucket + 1) & (buckets_.size() - 1); }

  std::vector<Bucket, LargeAllocator<Bucket>> buckets_;
  unsigned bucketsLog2_ = 0;
  std::size_t entries_ = 0;
};

}  // namespace Moru
