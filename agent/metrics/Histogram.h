// How often something was how large.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Agent::Metrics {

class Histogram {
 public:
  // The upper bounds of its buckets, ascending and each included; what is above them all is in a
  // last one.
  explicit Histogram(std::vector<double> bounds)
      : bounds_(std::move(bounds)), counts_(bounds_.size() + 1) {}

  void observe(double value) {
    const auto bound = std::lower_bound(bounds_.begin(), bounds_.end(), value);
    ++counts_[static_cast<std::size_t>(bound - bounds_.begin())];
    sum_ += value;
  }

  const std::vector<double>& bounds() const { return bounds_; }
  // Of each bucket alone, the last one included.
  const std::vector<std::uint64_t>& counts() const { return counts_; }
  double sum() const { return sum_; }

 private:
  std::vector<double> bounds_;
  std::vector<std::uint64_t> counts_;
  double sum_ = 0;
};

}  // namespace Agent::Metrics
