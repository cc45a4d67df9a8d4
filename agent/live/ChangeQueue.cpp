#include "agent/live/ChangeQueue.h"

#include "framework/Moru/ActivityFacility.h"

namespace Agent {

void ChangeQueue::applyFor(double seconds, const Apply& apply) {
  constexpr int changesBetweenReadings = 32;
  const auto& facility = Moru::ActivityFacility::current();
  const double end = facility->now() + seconds;
  do {
    for (int i = 0; i < changesBetweenReadings && !changes_.empty(); ++i) {
      const Change change = std::move(changes_.front());
      changes_.pop_front();
      apply(change);
    }
  } while (!changes_.empty() && facility->now() < end);
}

}  // namespace Agent
