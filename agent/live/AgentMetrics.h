// What is told of the running agent as metrics. A scrape costs the same however many hosts there
// are: what would have to be counted is counted as it changes.
//
// They are listed in docs/live.md. What is not there, such as a hold, a recording or the kernel's
// part, has no samples.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "agent/base/Problems.h"
#include "agent/gate/WithdrawalGate.h"
#include "agent/live/Programming.h"
#include "agent/live/Recording.h"
#include "agent/metrics/Exposition.h"
#include "agent/metrics/Histogram.h"
#include "agent/ovsdb/Session.h"
#include "agent/store/EmbeddedClient.h"
#include "agent/story/Witness.h"
#include "agent/watch/BatchWatch.h"
#include "agent/watch/HostDeletions.h"

namespace Agent {

// What the agent counts itself while it runs.
struct Activity {
  Activity();

  void add(const Batch& batch);

  std::uint64_t messages = 0;  // of the database, with updates
  std::uint64_t changes = 0;   // that went into the store
  Metrics::Histogram turns;    // of the event loop, in seconds
  Metrics::Histogram unicastBatches;
  Metrics::Histogram bumBatches;
};

class AgentMetrics {
 public:
  // All of it must outlive the metrics, and the client must run by then.
  struct Sources {
    std::string switchName{};
    std::string version{};
    const EmbeddedClient& embedded;
    const WithdrawalGate& gate;
    const Ovsdb::Session& session;
    const Problems& problems;
    const Recording& recording;
    const Witness& witness;
    const Activity& activity;
    const std::optional<Programming>& programming;
  };

  explicit AgentMetrics(const Sources& sources);
  AgentMetrics(const AgentMetrics&) = delete;
  AgentMetrics& operator=(const AgentMetrics&) = delete;

  std::string text(Metrics::Dialect dialect) const;

 private:
  void tellProcess(Metrics::Exposition& out) const;
  void tellDatabase(Metrics::Exposition& out) const;
  void tellConvergence(Metrics::Exposition& out) const;
  void tellRib(Metrics::Exposition& out) const;
  void tellDeletions(Metrics::Exposition& out) const;
  void tellKernel(Metrics::Exposition& out) const;
  void tellFiles(Metrics::Exposition& out) const;

  const Sources sources_;
  const double started_;  // seconds since the beginning of 1970
  const Moru::Ptr<HostDeletions> deletions_;
};

}  // namespace Agent
