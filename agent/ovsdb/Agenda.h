// What is to be said, in the order of VNIs and MACs.
#pragma once

#include <algorithm>
#include <cstdint>
#include <tuple>
#include <vector>

#include "agent/ovsdb/RowTable.h"

namespace Agent::Ovsdb {

// Filled first, then emptied in ascending order. A heap, because sorting a million would take too
// long for one piece of work.
class Agenda {
 public:
  struct Item {
    std::uint32_t vni;
    Slot slot;
    std::uint64_t mac;
  };

  bool isEmpty() const { return items_.empty(); }
  void add(const Item& item) { items_.push_back(item); }

  Item take() {
    if (!isHeap_) std::ranges::make_heap(items_, comesLater);
    std::ranges::pop_heap(items_, comesLater);
    const Item item = items_.back();
    items_.pop_back();
    isHeap_ = !items_.empty();
    return item;
  }

 private:
  static bool comesLater(const Item& left, const Item& right) {
    return std::tie(left.vni, left.mac) > std::tie(right.vni, right.mac);
  }

  std::vector<Item> items_;
  bool isHeap_ = false;
};

}  // namespace Agent::Ovsdb
