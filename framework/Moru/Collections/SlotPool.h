// Stable places for the elements of the large collections: numbered slots, in chunks that are never
// moved. A slot that is given back is used again, the last one first. Inside the framework only.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "framework/Moru/Collections/LargeAllocator.h"
#include "framework/Moru/Collections/Prefetch.h"

namespace Moru {

template <class T>
class SlotPool {
 public:
  using Slot = std::uint32_t;
  static constexpr Slot none = 0xffffffff;

  SlotPool() = default;
  SlotPool(const SlotPool&) = delete;
  SlotPool& operator=(const SlotPool&) = delete;

  ~SlotPool() {
    for (Slot slot = next(0); slot != none; slot = next(slot + 1)) std::destroy_at(&(*this)[slot]);
  }

  T& operator[](Slot slot) { return *std::launder(reinterpret_cast<T*>(cell(slot).bytes)); }
  const T& operator[](Slot slot) const {
    return *std::launder(reinterpret_cast<const T*>(cell(slot).bytes));
  }

  // Whether the slot holds an element.
  bool holds(Slot slot) const {
    return slot < used_ && (occupied_[slot / wordBits] >> slot % wordBits & 1) != 0;
  }

  template <class... Args>
  Slot add(Args&&... args) {
    const Slot slot = free_ != none ? free_ : used_;
    if (slot == used_) makeRoom();
    Cell& cell = this->cell(slot);
    const Slot nextFree = slot == used_ ? none : cell.nextFree;
    ::new (static_cast<void*>(cell.bytes)) T{std::forward<Args>(args)...};
    if (slot == used_)
      ++used_;
    else
      free_ = nextFree;
    occupied_[slot / wordBits] |= Word{1} << slot % wordBits;
    return slot;
  }

  // Takes the element out. Whoever gets it sees to its end, when everything else is in order. What
  // is left in its place may reach back too: the slot holds nothing by then, and is not yet free.
  T take(Slot slot) {
    occupied_[slot / wordBits] &= ~(Word{1} << slot % wordBits);
    T element = std::move((*this)[slot]);
    std::destroy_at(&(*this)[slot]);
    cell(slot).nextFree = std::exchange(free_, slot);
    return element;
  }

  // Has the processor fetch the slot's place, whatever is there.
  void prefetch(Slot slot) const {
    constexpr std::size_t line = 64;
    const auto* const place = reinterpret_cast<const std::byte*>(&cell(slot));
    for (std::size_t offset = 0; offset < sizeof(Cell); offset += line)
      prefetchLine(place + offset);
    prefetchLine(place + sizeof(Cell) - 1);
  }

  // No slot from here on has ever held an element.
  Slot end() const { return used_; }

  // The first slot from `slot` on that holds an element; none if there is none.
  Slot next(Slot slot) const {
    if (slot >= used_) return none;
    std::size_t index = slot / wordBits;
    Word word = occupied_[index] >> slot % wordBits << slot % wordBits;
    while (word == 0) {
      if (++index == occupied_.size()) return none;
      word = occupied_[index];
    }
    return static_cast<Slot>(index * wordBits + static_cast<unsigned>(std::countr_zero(word)));
  }

 private:
  using Word = std::uint64_t;
  static constexpr unsigned wordBits = 64;

  // The first chunks double in size, so that small pools are small; from `largest` on they are
  // equal, so that no more than one chunk of a large pool stands empty. (The system gives memory to
  // what has been used of a chunk, and no sooner.)
  static constexpr Slot first = 8;
  static constexpr std::size_t largestChunk = std::size_t{16} << 20;  // bytes
  union Cell {
    alignas(T) std::byte bytes[sizeof(T)];
    Slot nextFree;
  };
  using Allocator = LargeAllocator<Cell>;

  struct Release {
    std::size_t cells;
    void operator()(Cell* chunk) const { Allocator().deallocate(chunk, cells); }
  };

  static constexpr std::size_t largest =
      std::max<std::size_t>(std::bit_floor(largestChunk / sizeof(Cell)), first);
  static constexpr unsigned firstLog2 = std::countr_zero(first);
  static constexpr unsigned largestLog2 = std::countr_zero(largest);

  struct Place {
    std::size_t chunk;
    std::size_t offset;
  };

  // Counted from `first`, the chunk of slot n begins at the highest power of two in n.
  static constexpr Place placeOf(Slot slot) {
    const std::uint64_t n = std::uint64_t{slot} + first;
    if (n >= largest) return {largestLog2 - firstLog2 + (n >> largestLog2) - 1, n & (largest - 1)};
    const unsigned log2 = std::bit_width(n | first) - 1U;
    return {log2 - firstLog2, n & ((std::uint64_t{1} << log2) - 1)};
  }

  static constexpr std::size_t chunkSize(std::size_t chunk) {
    return chunk < largestLog2 - firstLog2 ? first << chunk : largest;
  }

  Cell& cell(Slot slot) const {
    const Place place = placeOf(slot);
    return chunks_[place.chunk][place.offset];
  }

  void makeRoom() {
    const Place place = placeOf(used_);
    if (place.chunk == chunks_.size()) {
      const std::size_t cells = chunkSize(place.chunk);
      chunks_.emplace_back(Allocator().allocate(cells), Release{cells});
    }
    if (used_ % wordBits == 0) occupied_.push_back(0);
  }

  std::vector<std::unique_ptr<Cell[], Release>> chunks_;
  std::vector<Word> occupied_;
  Slot used_ = 0;
  Slot free_ = none;
};

}  // namespace Moru
