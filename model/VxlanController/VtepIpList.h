// VTEP addresses in ascending order, each with a flag. Lists are short, and are read and copied far
// more often than changed: they stand in one piece.
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "model/Vorn/IpAddr.h"

namespace VxlanController {

class VtepIpList {
 public:
  using value_type = std::pair<Vorn::IpAddr, bool>;
  using const_iterator = std::vector<value_type>::const_iterator;

  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  bool contains(const Vorn::IpAddr& vtep) const { return find(vtep) != end(); }

  // The calls are those of std::map. An iterator, to entries of (address, flag), is good until the
  // list changes; flags are written by [].
  const_iterator begin() const { return entries_.begin(); }
  const_iterator end() const { return entries_.end(); }

  const_iterator find(const Vorn::IpAddr& vtep) const {
    const auto place = std::lower_bound(begin(), end(), vtep, isBefore);
    return place != end() && place->first == vtep ? place : end();
  }

  // Adds an entry unless its address is there. The place of that address, and whether it is new.
  std::pair<const_iterator, bool> insert(const value_type& entry) {
    const auto place = std::lower_bound(begin(), end(), entry.first, isBefore);
    if (place != end() && place->first == entry.first) return {place, false};
    return {entries_.insert(place, entry), true};
  }

  // How many entries it has removed: one, or none.
  std::size_t erase(const Vorn::IpAddr& vtep) {
    const auto place = find(vtep);
    if (place == end()) return 0;
    entries_.erase(place);
    return 1;
  }

  // The flag of an address, which is added, with false, if it is not there.
  bool& operator[](const Vorn::IpAddr& vtep) {
    const auto place = insert({vtep, false}).first;
    return entries_[static_cast<std::size_t>(place - begin())].second;
  }

  friend bool operator==(const VtepIpList&, const VtepIpList&) = default;

 private:
  static bool isBefore(const value_type& entry, const Vorn::IpAddr& vtep) {
    return entry.first < vtep;
  }

  std::vector<value_type> entries_;
};

}  // namespace VxlanController
