#include "agent/report/Collector.h"

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

constexpr std::size_t mostStatePoints = 2048;
constexpr std::size_t mostBatchPoints = 1024;
constexpr std::size_t mostSlowest = 20;
constexpr std::size_t mostMoves = 1000;
constexpr std::size_t mostParts = 120;

Bridging::MacVlanPair keyOf(const Event& event) {
  return {event.mac, Bridging::VlanId(event.vlan)};
}

Interest interestOf(const Event& event) {
  switch (event.kind) {
    case EventKind::received:
      return event.flag ? Interest::restart : Interest::routine;
    case EventKind::withdrawn:
    case EventKind::waiting:
    case EventKind::notWaiting:
      return Interest::restart;
    case EventKind::dropped:
    case EventKind::unprogrammed:
    case EventKind::refused:
    case EventKind::putBack:
      return Interest::change;
    default:
      return Interest::routine;
  }
}

Extent extentOf(std::size_t number) { return Extent(static_cast<std::uint32_t>(number)); }

}  // namespace

void StatePoint::merge(const StatePoint& later) {
  span.merge(later.span);
  hosts.merge(later.hosts);
  marked.merge(later.marked);
  floodDests.merge(later.floodDests);
  events += later.events;
  if (later.last) last = later.last;
}

void BatchPoint::merge(const BatchPoint& later) {
  span.merge(later.span);
  batches += later.batches;
  hosts += later.hosts;
  floodDests += later.floodDests;
  mostDeleted = std::max(mostDeleted, later.mostDeleted);
  longest = std::max(longest, later.longest);
}

Collector::Collector(double from)
    : from_(from), last_{from, 0}, state_(mostStatePoints), batches_(mostBatchPoints) {}

void Collector::take(const Event& event) {
  switch (event.kind) {
    case EventKind::copied:
      return copied(event);
    case EventKind::removed:
      return removed(event);
    case EventKind::destIs:
      ++floodDests_;
      return tell(event, Interest::routine);
    case EventKind::destDel:
      --floodDests_;
      return tell(event, Interest::routine);
    case EventKind::converging:
      return convergence_.isUnderWay(true, event.at);
    case EventKind::converged:
      return convergence_.isUnderWay(false, event.at);
    case EventKind::holdBegan:
      return holds_.isUnderWay(true, event.at);
    case EventKind::holdEnded:
      return holds_.isUnderWay(false, event.at);
    default:
      if (hasMac(event.kind)) tell(event, interestOf(event));
  }
}

// It comes before the end of its turn, in which no line is applied.
void Collector::take(const Batch& batch) {
  ++batchesTotal_;
  const bool isOfHosts = batch.kind == Batch::Kind::unicast;
  batches_.add({Span({batch.at, last_.line}), 1, isOfHosts ? batch.deleted : 0,
                isOfHosts ? 0 : batch.deleted, batch.deleted, batch.seconds});
  const auto place = std::ranges::find_if(
      slowest_, [&batch](const SlowBatch& each) { return each.batch.seconds < batch.seconds; });
  slowest_.insert(place, {batch, last_.line});
  if (slowest_.size() > mostSlowest) slowest_.pop_back();
}

void Collector::turnEnded(const Witness::Moment& moment, const Standing& standing) {
  last_ = moment;
  hostDeletion_.isUnderWay(standing.isDeletingHosts, moment.at);
  floodDeletion_.isUnderWay(standing.isDeletingFloods, moment.at);
  if (events_ == 0 && standing == standing_) return;
  standing_ = standing;
  StatePoint point{Span(moment), extentOf(standing.hosts), extentOf(standing.marked),
                   extentOf(floodDests_), events_};
  if (events_ > 0) point.last = lastEvent_;
  state_.add(point);
  vlans_.sample(moment);
  vteps_.sample(moment);
  events_ = 0;
}

ReportData Collector::data() const {
  return {from_,
          last_.at,
          last_.line,
          state_.points(),
          batches_.points(),
          slowest_,
          batchesTotal_,
          convergence_,
          hostDeletion_,
          floodDeletion_,
          holds_,
          vlans_.parts(mostParts),
          vteps_.parts(mostParts),
          moves_,
          movesTotal_,
          stories_.all(),
          stories_.areAll()};
}

void Collector::tell(const Event& event, Interest interest, const Vorn::IpAddr& formerVtep) {
  ++events_;
  lastEvent_ = {event, formerVtep};
  stories_.add(event, interest);
}

// The RIB is written with every refresh: the same again is no news.
void Collector::copied(const Event& event) {
  const auto key = keyOf(event);
  Vorn::IpAddr* const vtep = vtepOfHost_.find(key);
  if (vtep == nullptr) {
    vtepOfHost_.is(key, event.vtep);
    vlans_.come(key.vlan);
    vteps_.come(event.vtep);
    return tell(event, Interest::routine);
  }
  if (*vtep == event.vtep) return;
  const Vorn::IpAddr former = std::exchange(*vtep, event.vtep);
  vteps_.go(former);
  vteps_.come(event.vtep);
  tell(event, Interest::change, former);
  moves_.push_back(lastEvent_);
  if (moves_.size() > mostMoves) moves_.pop_front();
  ++movesTotal_;
}

void Collector::removed(const Event& event) {
  const auto key = keyOf(event);
  if (const Vorn::IpAddr* const vtep = vtepOfHost_.find(key)) {
    vlans_.go(key.vlan);
    vteps_.go(*vtep);
    vtepOfHost_.del(key);
  }
  tell(event, Interest::change);
}

}  // namespace Agent
