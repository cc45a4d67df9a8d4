// Makes of events what a report shows, in memory that does not grow with the recording, but for
// a few bytes for each host of the layer-2 RIB.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include "agent/report/Breakdown.h"
#include "agent/report/KeptStories.h"
#include "agent/report/Series.h"
#include "agent/report/Windows.h"
#include "agent/story/Event.h"
#include "agent/watch/BatchWatch.h"
#include "framework/Moru/Collections/HashMap2018.h"
#include "model/Bridging/MacVlanPair.h"
#include "model/Bridging/VlanId.h"
#include "model/Vorn/IpAddr.h"

namespace Agent {

// How the client stands at the end of a turn of the event loop.
struct Standing {
  std::size_t hosts = 0;  // in the layer-2 RIB
  std::size_t marked = 0;
  bool isDeletingHosts = false;  // the deferred deletions that are under way
  bool isDeletingFloods = false;

  friend bool operator==(const Standing&, const Standing&) = default;
};

// An event, and the VTEP of the RIB that it takes the host from.
struct Happening {
  Event event{};
  Vorn::IpAddr formerVtep{};  // 0.0.0.0: none
};

struct StatePoint {
  Span span;
  Extent hosts;
  Extent marked;
  Extent floodDests;
  std::uint32_t events = 0;
  std::optional<Happening> last{};  // of these

  void merge(const StatePoint& later);
};

struct BatchPoint {
  Span span;
  std::uint32_t batches = 1;
  std::uint64_t hosts = 0;  // deleted
  std::uint64_t floodDests = 0;
  std::uint64_t mostDeleted = 0;  // in one batch
  double longest = 0;             // seconds

  void merge(const BatchPoint& later);
};

struct SlowBatch {
  Batch batch;
  std::uint64_t line;
};

// All that a report shows, as plain data.
struct ReportData {
  double from = 0;  // seconds, as Event has them
  double to = 0;
  std::uint64_t lines = 0;
  std::vector<StatePoint> state{};
  std::vector<BatchPoint> batches{};
  std::vector<SlowBatch> slowest{};  // the slowest first
  std::uint64_t batchesTotal = 0;
  Windows convergence{};
  Windows hostDeletion{};
  Windows floodDeletion{};
  Windows holds{};
  Parts<Bridging::VlanId> vlans{};
  Parts<Vorn::IpAddr> vteps{};
  std::deque<Happening> moves{};  // the last ones
  std::uint64_t movesTotal = 0;
  std::vector<std::pair<Vorn::EthAddr, KeptStory>> stories{};
  bool areAllStories = true;
};

class Collector {
 public:
  explicit Collector(double from);

  // In the order in which they happen, those of flood sets from the beginning.
  void take(const Event& event);
  void take(const Batch& batch);

  // To be called at the end of each turn; costs little where nothing has changed.
  void turnEnded(const Witness::Moment& moment, const Standing& standing);

  ReportData data() const;

 private:
  void tell(const Event& event, Interest interest, const Vorn::IpAddr& formerVtep = {});
  void copied(const Event& event);
  void removed(const Event& event);

  const double from_;
  Witness::Moment last_{};
  Standing standing_{};
  std::size_t floodDests_ = 0;
  std::uint32_t events_ = 0;  // of this turn
  Happening lastEvent_;       // if there is one

  Moru::HashMap2018<Bridging::MacVlanPair, Vorn::IpAddr> vtepOfHost_;  // in the RIB
  Series<StatePoint> state_;
  Series<BatchPoint> batches_;
  std::vector<SlowBatch> slowest_;
  std::uint64_t batchesTotal_ = 0;
  Windows convergence_;
  Windows hostDeletion_;
  Windows floodDeletion_;
  Windows holds_;
  Breakdown<Bridging::VlanId> vlans_;
  Breakdown<Vorn::IpAddr> vteps_;
  std::deque<Happening> moves_;
  std::uint64_t movesTotal_ = 0;
  KeptStories stories_;
};

}  // namespace Agent
