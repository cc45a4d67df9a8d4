// Sees what happens to hosts and flood sets: what is written into the store, and what the client
// makes of it.
//
//   Change ──> Witness::comes() ──> Event ──> sink
//   HostInput, ReceivedHostTable, flood sets, convergence (reactors) ──> Event ──> sink
#pragma once

#include <functional>
#include <optional>

#include "agent/store/Change.h"
#include "agent/store/EmbeddedClient.h"
#include "agent/story/Event.h"
#include "agent/watch/BatchWatch.h"
#include "agent/watch/FloodDests.h"
#include "framework/Moru/Input.h"
#include "model/L2Rib/HostInput.h"
#include "model/Vxlan/ReceivedHostTable.h"
#include "model/VxlanController/ZepStateClientViewV2.h"

namespace Agent {

class Witness {
 public:
  // When an event happens: the time without counting as a reading, and the line.
  struct Moment {
    double at = 0;
    std::uint64_t line = 0;
  };

  struct Sinks {
    std::function<void(const Event&)> event{};
    std::function<void(const Batch&)> batch{};  // may be empty
  };

  // Of one MAC and what happens around it, or of all. What is in the store already is not told, but
  // for flood sets. `embedded` must outlive this object.
  Witness(const EmbeddedClient& embedded, const std::optional<Vorn::EthAddr>& mac,
          std::function<Moment()> moment, Sinks sinks);
  ~Witness();
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;

  // To be called before a change is made.
  void comes(const Change& change);

  // To be called when a client has been started, or stopped.
  void clientChanged();

  std::size_t floodDests() const { return floodDests_.dests(); }
  std::size_t floodSets() const { return floodDests_.floodSets(); }

  // A facility has one, which whoever else wants to know of batches must share.
  const BatchWatch& batches() const { return batches_; }

 private:
  class Watch;

  bool isOf(const Vorn::EthAddr& mac) const { return !mac_ || mac == *mac_; }
  void tell(Event event) const;
  void tellReceived(const Vxlan::ReceivedEntry& entry) const;
  void hostChanged(const Bridging::MacVlanPair& key) const;
  void entryChanged(const Bridging::MacVlanPair& key) const;
  void convergenceChanged() const;

  const EmbeddedClient& embedded_;
  const std::optional<Vorn::EthAddr> mac_;
  const std::function<Moment()> moment_;
  const Sinks sinks_;
  FloodDests floodDests_;
  BatchWatch batches_;
  Moru::Ptr<Watch> watch_;
};

}  // namespace Agent
