// Tells of every batch of the client's deferred deletions: what stays behind after a convergence
// goes in batches, between which everything else has its turn.
//
//   BatchWatch watch(embedded, floodDests, [&] { return replay.time(); }, [](const Batch& batch) {
//     ...
//   });
//
// It watches the firings of the activity facility that is current when it is made.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "agent/store/EmbeddedClient.h"
#include "agent/watch/FloodDests.h"
#include "framework/Moru/ActivityFacility.h"

namespace Agent {

struct Batch {
  enum class Kind : std::uint8_t { unicast, bum };

  Kind kind = Kind::unicast;
  double at = 0;            // its end, in seconds of the time that is told
  double seconds = 0;       // that it has taken, by the steady clock
  std::size_t deleted = 0;  // unicast: hosts; bum: destinations of flood sets
  bool goesOn = false;      // its time was spent, and another one is to come
};

class BatchWatch final : private Moru::FiringWatch {
 public:
  using Time = std::function<double()>;  // must not count as a reading of a virtual time
  using Sink = std::function<void(const Batch&)>;

  // All of them must outlive this object. `sink` must not throw.
  BatchWatch(const EmbeddedClient& embedded, const FloodDests& floodDests, Time time, Sink sink);
  ~BatchWatch();
  BatchWatch(const BatchWatch&) = delete;
  BatchWatch& operator=(const BatchWatch&) = delete;

  // Whether what happens now is a batch's doing.
  bool isInBatch() const { return running_.has_value(); }

 private:
  struct Running {
    Batch::Kind kind;
    std::size_t before;  // how much there was to delete from
    std::chrono::steady_clock::time_point began;
  };

  void firingBegins(const Moru::Clock& clock) noexcept override;
  void firingEnds() noexcept override;

  std::size_t sizeOf(Batch::Kind kind) const;
  bool isArmed(Batch::Kind kind) const;

  const EmbeddedClient& embedded_;
  const FloodDests& floodDests_;
  const Time time_;
  const Sink sink_;
  const Moru::Ptr<Moru::ActivityFacility> facility_;
  std::optional<Running> running_;
};

}  // namespace Agent
