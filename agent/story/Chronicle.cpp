#include "agent/story/Chronicle.h"

namespace Agent {

void Chronicle::add(const Event& event) {
  events_.push_back(event);
  if (events_.size() <= most_) return;
  events_.pop_front();
  isWhole_ = false;
}

std::vector<Event> Chronicle::of(const Vorn::EthAddr& mac) const {
  std::vector<Event> found;
  for (const Event& event : events_)
    if (!hasMac(event.kind) || event.mac == mac) found.push_back(event);
  return found;
}

std::optional<double> Chronicle::wholeSince() const {
  if (isWhole_) return std::nullopt;
  return events_.front().at;
}

}  // namespace Agent
