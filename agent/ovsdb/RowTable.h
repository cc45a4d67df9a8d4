// The rows of one table, each in a slot of its own that it keeps while it lives. A slot is taken
// when a row's uuid is first seen, be it only in another row that refers to it: rows come in any
// order, and refer to each other by slots.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "agent/ovsdb/Uuid.h"
#include "framework/Moru/Collections/HashMap2018.h"

namespace Agent::Ovsdb {

using Slot = std::uint32_t;
inline constexpr Slot noSlot = 0xffffffff;

// Finds slots by keys. It is many maps, so that none ever grows for long.
template <class Key>
class SlotIndex {
 public:
  Slot find(const Key& key) const {
    const Slot* const found = partOf(key).find(key);
    return found ? *found : noSlot;
  }
  void add(const Key& key, Slot slot) { partOf(key).is(key, slot); }
  void remove(const Key& key) { partOf(key).del(key); }

 private:
  static constexpr std::size_t parts = 64;
  using Part = Moru::HashMap2018<Key, Slot>;

  // By the lower bits: a map takes a key's place from the upper ones.
  Part& partOf(const Key& key) { return parts_[key.hash() % parts]; }
  const Part& partOf(const Key& key) const { return parts_[key.hash() % parts]; }

  std::array<Part, parts> parts_;
};

// Elements by slots, which come into being when they are first asked for and never move.
template <class Element>
class BySlot {
 public:
  Element& operator[](Slot slot) {
    if (slot >= elements_.size()) elements_.resize(std::size_t{slot} + 1);
    return elements_[slot];
  }
  const std::deque<Element>& all() const { return elements_; }

 private:
  std::deque<Element> elements_;
};

// Elements that come and go. The slot of one that is gone is taken again; it is new then.
template <class Element>
class SlotPool {
 public:
  Slot take() {
    if (free_.empty()) {
      elements_.emplace_back();
      return size() - 1;
    }
    const Slot slot = free_.back();
    free_.pop_back();
    return slot;
  }
  void release(Slot slot) {
    elements_[slot] = {};
    free_.push_back(slot);
  }

  Element& operator[](Slot slot) { return elements_[slot]; }
  const Element& operator[](Slot slot) const { return elements_[slot]; }

  // All slots, free ones included.
  Slot size() const { return static_cast<Slot>(elements_.size()); }

 private:
  std::deque<Element> elements_;
  std::vector<Slot> free_;
};

template <class Row>
class RowTable {
 public:
  struct Entry {
    Uuid uuid;
    std::uint32_t references = 0;  // to the slot: those of other rows, and of who keeps it
    std::uint8_t generation = 0;   // the whole state that had it last
    std::uint8_t faults = 0;       // a bit for each column that there is a problem with
    bool isPresent = false;        // otherwise others refer to it, or did; `row` is empty
    bool isTaken = false;          // otherwise the slot is free
    Row row;
  };

  Slot find(const Uuid& uuid) const { return index_.find(uuid); }

  // Taken if need be, and then a candidate for being freed.
  Slot slotOf(const Uuid& uuid) {
    if (const Slot present = find(uuid); present != noSlot) return present;
    const Slot slot = entries_.take();
    entries_[slot].uuid = uuid;
    entries_[slot].isTaken = true;
    index_.add(uuid, slot);
    candidates_.push_back(slot);
    return slot;
  }

  void refer(Slot slot) { ++entries_[slot].references; }
  void unrefer(Slot slot) {
    if (--entries_[slot].references == 0) candidates_.push_back(slot);
  }

  // Its row is gone.
  void leave(Slot slot) {
    entries_[slot].isPresent = false;
    candidates_.push_back(slot);
  }

  // Looks at one of the slots that may have to be freed. Returns false if there is none.
  bool collect() {
    if (candidates_.empty()) return false;
    const Slot slot = candidates_.back();
    candidates_.pop_back();
    const Entry& entry = entries_[slot];
    if (!entry.isTaken || entry.isPresent || entry.references != 0) return true;
    index_.remove(entry.uuid);
    entries_.release(slot);
    return true;
  }

  Entry& operator[](Slot slot) { return entries_[slot]; }
  const Entry& operator[](Slot slot) const { return entries_[slot]; }

  // All slots, free ones included.
  Slot size() const { return entries_.size(); }

 private:
  SlotPool<Entry> entries_;
  SlotIndex<Uuid> index_;
  std::vector<Slot> candidates_;
};

}  // namespace Agent::Ovsdb
