#include "agent/report/KeptStories.h"

#include <algorithm>

namespace Agent {

void KeptStories::add(const Event& event, Interest interest) {
  if (events_ == most_ && !isFull_) makeRoom();
  Kept* const kept = keptOf(event.mac);
  if (kept == nullptr) return;
  kept->interest = std::max(kept->interest, interest);
  auto& events = kept->story.events;
  if (events.size() == mostOfOne_ || events_ >= most_) forgetBeginning(kept->story);
  events.push_back(event);
  ++events_;
}

// Null for one that there is no room for.
KeptStories::Kept* KeptStories::keptOf(const Vorn::EthAddr& mac) {
  if (last_.second != nullptr && last_.first == mac) return last_.second;
  Kept* kept = kept_.find(mac);
  if (kept == nullptr) {
    if (isFull_) return nullptr;
    kept_.is(mac, {});
    kept = kept_.find(mac);
    kept->story.isWhole = !hasForgotten_;
    constexpr std::size_t usualEvents = 4;
    kept->story.events.reserve(usualEvents);
  }
  last_ = {mac, kept};
  return kept;
}

// Half of the events, so that there is room for many more.
void KeptStories::forgetBeginning(KeptStory& story) {
  const std::size_t number = (story.events.size() + 1) / 2;
  story.events.erase(story.events.begin(),
                     story.events.begin() + static_cast<std::ptrdiff_t>(number));
  story.left += number;
  events_ -= number;
}

// Forgets the least that makes enough room; where nothing does, those that are kept stay.
void KeptStories::makeRoom() {
  hasForgotten_ = true;
  last_ = {};
  const std::size_t enough = most_ / 4 * 3;
  for (const Interest least : {Interest::routine, Interest::restart}) {
    for (auto each = kept_.begin(); each; ++each) {
      if (each.value().interest != least) continue;
      events_ -= each.value().story.events.size();
      kept_.del(each.key());
    }
    if (events_ <= enough) return;
  }
  isFull_ = true;
}

std::vector<std::pair<Vorn::EthAddr, KeptStory>> KeptStories::all() const {
  std::vector<std::pair<Vorn::EthAddr, KeptStory>> all;
  all.reserve(kept_.size());
  for (const auto& [mac, kept] : kept_) all.emplace_back(mac, kept.story);
  std::ranges::sort(all, {}, [](const auto& each) { return each.first; });
  return all;
}

}  // namespace Agent
