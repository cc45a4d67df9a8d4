#include "agent/watch/BatchWatch.h"

#include <utility>

namespace Agent {

BatchWatch::BatchWatch(const EmbeddedClient& embedded, const FloodDests& floodDests, Time time,
                       Sink sink)
    : embedded_(embedded),
      floodDests_(floodDests),
      time_(std::move(time)),
      sink_(std::move(sink)),
      facility_(Moru::ActivityFacility::current()) {
  facility_->firingWatchIs(*this);
}

BatchWatch::~BatchWatch() { facility_->firingWatchDel(*this); }

void BatchWatch::firingBegins(const Moru::Clock& clock) noexcept {
  const auto& client = embedded_.client();
  if (!client) return;
  Batch::Kind kind{};
  if (client->unicastDeferredDeleteClock().get() == &clock)
    kind = Batch::Kind::unicast;
  else if (client->bumDeferredDeleteClock().get() == &clock)
    kind = Batch::Kind::bum;
  else
    return;
  running_ = {kind, sizeOf(kind), std::chrono::steady_clock::now()};
}

void BatchWatch::firingEnds() noexcept {
  if (!running_) return;
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - running_->began;
  const Batch::Kind kind = running_->kind;
  const std::size_t before = running_->before;
  const std::size_t left = sizeOf(kind);
  running_.reset();
  sink_({kind, time_(), taken.count(), before > left ? before - left : 0, isArmed(kind)});
}

std::size_t BatchWatch::sizeOf(Batch::Kind kind) const {
  return kind == Batch::Kind::unicast ? embedded_.store().l2RibZepInput->host().size()
                                      : floodDests_.dests();
}

bool BatchWatch::isArmed(Batch::Kind kind) const {
  const auto& client = embedded_.client();
  if (!client) return false;
  const auto isArmed = [](const auto& input) {
    return input.reactor() && input.reactor()->timeMin() < Moru::Clock::never;
  };
  return kind == Batch::Kind::unicast ? isArmed(client->unicastDeferredDeleteClock)
                                      : isArmed(client->bumDeferredDeleteClock);
}

}  // namespace Agent
