// The changes on their way into the store: put in as they are decided, applied in that order, a
// piece at a time.
#pragma once

#include <deque>
#include <functional>
#include <utility>

#include "agent/store/Change.h"

namespace Agent {

class ChangeQueue {
 public:
  using Apply = std::function<void(const Change&)>;

  void push(Change change) { changes_.push_back(std::move(change)); }
  bool isEmpty() const { return changes_.empty(); }

  // Applies changes until none is left or `seconds` have gone.
  void applyFor(double seconds, const Apply& apply);

 private:
  std::deque<Change> changes_;
};

}  // namespace Agent
