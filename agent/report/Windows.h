// When something was under way: from when to when.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

namespace Agent {

struct Window {
  double from = 0;                // seconds, as Event has them
  std::optional<double> to = {};  // nothing while it is under way
};

// The first so many, and how many came after.
class Windows {
 public:
  void isUnderWay(bool isUnderWay, double at) {
    if (isUnderWay == isUnderWay_) return;
    isUnderWay_ = isUnderWay;
    if (isUnderWay && windows_.size() == most) {
      ++left_;
    } else if (isUnderWay) {
      windows_.push_back({at});
    } else if (left_ == 0) {
      windows_.back().to = at;
    }
  }

  const std::vector<Window>& windows() const { return windows_; }
  std::size_t left() const { return left_; }

 private:
  static constexpr std::size_t most = 500;

  std::vector<Window> windows_;
  std::size_t left_ = 0;
  bool isUnderWay_ = false;
};

}  // namespace Agent
