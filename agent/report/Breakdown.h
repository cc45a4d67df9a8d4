// How many hosts each part has over time: each VLAN, or each VTEP.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "agent/report/Series.h"

namespace Agent {

struct CountPoint {
  Span span;
  Extent hosts;

  void merge(const CountPoint& later) {
    span.merge(later.span);
    hosts.merge(later.hosts);
  }
};

// One of the parts, for the report.
template <class Key>
struct Part {
  Key key{};
  std::uint64_t changes = 0;  // hosts that have come and gone
  std::vector<CountPoint> points{};
};

template <class Key>
struct Parts {
  std::size_t total = 0;           // that are followed
  bool isMore = false;             // than those, because they were too many
  std::vector<Part<Key>> shown{};  // those that changed most, the busiest first
};

template <class Key>
class Breakdown {
 public:
  void come(const Key& key) {
    if (Followed* const part = changed(key)) ++part->hosts;
  }

  void go(const Key& key) {
    if (Followed* const part = changed(key)) --part->hosts;
  }

  // Takes what has changed since the last time into the series.
  void sample(const Witness::Moment& moment) {
    for (Followed* const part : changed_) {
      part->isChanged = false;
      part->series.add({Span(moment), Extent(part->hosts)});
    }
    changed_.clear();
  }

  // With at most `most` of them shown.
  Parts<Key> parts(std::size_t most) const {
    std::vector<const std::pair<const Key, Followed>*> all;
    all.reserve(parts_.size());
    for (const auto& each : parts_) all.push_back(&each);
    const std::size_t shown = std::min(most, all.size());
    std::ranges::partial_sort(all, all.begin() + static_cast<std::ptrdiff_t>(shown),
                              [](const auto* left, const auto* right) {
                                const auto leftChanges = left->second.changes;
                                const auto rightChanges = right->second.changes;
                                return leftChanges != rightChanges ? leftChanges > rightChanges
                                                                   : left->first < right->first;
                              });
    Parts<Key> parts{all.size(), isMore_};
    for (std::size_t i = 0; i < shown; ++i)
      parts.shown.push_back(
          {all[i]->first, all[i]->second.changes, all[i]->second.series.points()});
    return parts;
  }

 private:
  static constexpr std::size_t mostParts = 4096;
  static constexpr std::size_t mostPoints = 96;

  struct Followed {
    std::uint32_t hosts = 0;
    std::uint64_t changes = 0;
    bool isChanged = false;  // since the last sample
    Series<CountPoint> series{mostPoints};
  };

  // Null for one beyond those that are followed.
  Followed* changed(const Key& key) {
    auto found = parts_.find(key);
    if (found == parts_.end()) {
      isMore_ = parts_.size() == mostParts;
      if (isMore_) return nullptr;
      found = parts_.try_emplace(key).first;
    }
    Followed& part = found->second;
    ++part.changes;
    if (!part.isChanged) changed_.push_back(&part);
    part.isChanged = true;
    return &part;
  }

  std::unordered_map<Key, Followed> parts_;
  std::vector<Followed*> changed_;  // they stay where they are
  bool isMore_ = false;
};

}  // namespace Agent
