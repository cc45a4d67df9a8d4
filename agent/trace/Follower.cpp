#include "agent/trace/Follower.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "framework/Ringlog/File.h"

namespace Agent {

namespace {

using Ringlog::Contents;
using std::chrono::milliseconds;

constexpr milliseconds shortestPause{5};
constexpr milliseconds longestPause{200};

}  // namespace

void Follower::printNews() {
  const auto contents = readRing(path_);
  if (!isRing(contents)) return;
  if (identityOf(contents) != identity_) printFormer(identityOf(contents));
  print(contents);
}

// What was written since the last reading into the file that was followed, and into those of
// processes that have come and gone since: they are kept under other names.
void Follower::printFormer(const RingIdentity& newest) {
  std::vector<Contents> formers;
  for (unsigned age = 1; formers.empty() || identityOf(formers.back()) != identity_; ++age) {
    auto former = readRing(Ringlog::predecessorOf(path_, age));
    if (!isRing(former)) {
      printer_.printFormerGone();
      return;
    }
    if (identityOf(former) != newest) formers.push_back(std::move(former));
  }
  for (; !formers.empty(); formers.pop_back()) print(formers.back());
}

void Follower::print(const Contents& contents) {
  if (identityOf(contents) != identity_) begin(contents);
  std::vector<RingMessage> news;
  for (const Ringlog::Message& message : contents.messages)
    if (!last_ || message.isAfter(*last_)) news.push_back({&message});
  if (last_ && !news.empty()) {
    // Messages are numbered, over all levels.
    const std::uint32_t written = news.back().message->sequence - last_->sequence;
    if (written > news.size()) printer_.printLost(written - news.size());
  }
  sinks_.messages(news);
  if (!news.empty()) last_ = *news.back().message;
  if (std::exchange(dropped_, contents.droppedMessages) != contents.droppedMessages)
    printer_.printDropped(contents.droppedMessages);
  sinks_.reading(contents);
  settlePause(contents);
}

void Follower::begin(const Contents& contents) {
  identity_ = identityOf(contents);
  last_.reset();
  dropped_ = 0;
  written_ = {};
  printer_.printHead(path_, 0, contents);
}

void Follower::settlePause(const Contents& contents) {
  double isNew = 0;  // the share of a level, of that with the largest
  for (std::size_t i = 0; i < written_.size(); ++i) {
    const auto& [size, written, overwritten] = contents.levels[i];
    const std::uint64_t before = std::exchange(written_[i], written);
    if (size != 0 && written > before)
      isNew = std::max(isNew, static_cast<double>(written - before) / static_cast<double>(size));
  }
  constexpr double wanted = 0.125;
  const double last = static_cast<double>(std::max(pause_, shortestPause).count());
  const double next = isNew > 0 ? std::min(wanted / isNew, 2.0) * last : 2 * last;
  pause_ = std::clamp(milliseconds(static_cast<std::int64_t>(next)), shortestPause, longestPause);
}

}  // namespace Agent
