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
  using Entry = std::pair<Vorn::IpAddr, bool>;

  std::size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  bool contains(const Vorn::IpAddr& vtep) const {
    const auto place = std::lower_bound(entries_.begin(), entries_.end(), vtep, isBefore);
    return place != entries_.end() && place->first == vtep;
  }

  // Entries of (address, flag), to be walked while the list does not change.
  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }

  // The flag of an address, which is added, with false, if it is not there.
  bool& operator[](const Vorn::IpAddr& vtep) {
    auto place = std::lower_bound(entries_.begin(), entries_.end(), vtep, isBefore);
    if (place == entries_.end() || place->first != vtep)
      place = entries_.insert(place, Entry(vtep, false));
    return place->second;
  }

  friend bool operator==(const VtepIpList&, const VtepIpList&) = default;

 private:
  static bool isBefore(const Entry& entry, const Vorn::IpAddr& vtep) { return entry.first < vtep; }

  std::vector<Entry> entries_;
};

}  // namespace VxlanController
