// Values over time, in bounded memory: a long series is kept in coarser points, each of which says
// what was least, most and last in it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "agent/story/Witness.h"

namespace Agent {

// From the first moment of a point to its last.
struct Span {
  double from = 0;  // seconds, of the recording or of the running agent's facility
  double to = 0;
  std::uint64_t line = 0;  // at the last; 0 if there is none

  explicit Span(const Witness::Moment& moment)
      : from(moment.at), to(moment.at), line(moment.line) {}

  void merge(const Span& later) {
    to = later.to;
    line = later.line;
  }
};

// A number at the end of a point, and what it was meanwhile.
struct Extent {
  std::uint32_t last = 0;
  std::uint32_t least = 0;
  std::uint32_t most = 0;

  explicit Extent(std::uint32_t value) : last(value), least(value), most(value) {}

  void merge(const Extent& later) {
    last = later.last;
    least = std::min(least, later.least);
    most = std::max(most, later.most);
  }
};

// Points of a class with merge(later). When `mostPoints` are there, which must be even, every two
// become one, and from then on so do twice as many of those that are added: each stands for equally
// many, so that what is busy is told more finely than what rests.
template <class Point>
class Series {
 public:
  explicit Series(std::size_t mostPoints) : mostPoints_(mostPoints) {}

  void add(const Point& point) {
    if (!points_.empty() && inLast_ < perPoint_) {
      points_.back().merge(point);
      ++inLast_;
      return;
    }
    if (points_.size() == mostPoints_) halve();
    points_.push_back(point);
    inLast_ = 1;
  }

  const std::vector<Point>& points() const { return points_; }

 private:
  void halve() {
    for (std::size_t i = 0; i < mostPoints_ / 2; ++i) {
      Point whole = points_[2 * i];
      whole.merge(points_[2 * i + 1]);
      points_[i] = whole;
    }
    points_.erase(points_.begin() + static_cast<std::ptrdiff_t>(mostPoints_ / 2), points_.end());
    perPoint_ *= 2;
  }

  std::size_t mostPoints_;
  std::size_t perPoint_ = 1;
  std::size_t inLast_ = 0;
  std::vector<Point> points_;
};

}  // namespace Agent
