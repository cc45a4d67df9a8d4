// The live agent: follows a database, lets the client decide, and answers for it.
//
//   Session ──> Import ──> WithdrawalGate ──> ChangeQueue ──> StateStore ──> the client
//                 │                                └──> Recording                 │
//                 └──────────────── Attachments ───────────> Programming <────────┘
//
// One thread; every piece of work takes some milliseconds at most, so that probes and questions are
// answered meanwhile, whatever comes.
#pragma once

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <chrono>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "agent/base/Problems.h"
#include "agent/gate/WithdrawalGate.h"
#include "agent/live/AgentMetrics.h"
#include "agent/live/ChangeQueue.h"
#include "agent/live/ControlServer.h"
#include "agent/live/EventLoop.h"
#include "agent/live/Log.h"
#include "agent/live/Programming.h"
#include "agent/live/Recording.h"
#include "agent/live/Stories.h"
#include "agent/metrics/ScrapeServer.h"
#include "agent/ovsdb/Import.h"
#include "agent/ovsdb/Session.h"
#include "agent/report/Recorder.h"
#include "agent/store/EmbeddedClient.h"

namespace Agent {

struct LiveOptions {
  Ovsdb::SessionOptions database{};
  std::string switchName{};  // of the Physical_Switch row that is us
  GateOptions gate{};
  bool programsKernel = false;  // else it decides and shows alone
  bool managesLinks = true;     // makes vxlan devices and bridges; else those that are there serve
  std::optional<double> maxProcessTime{};  // of the client, in seconds
  RecordingOptions recording{};
  std::string control{};                       // the control socket's path
  std::optional<Metrics::Endpoint> metrics{};  // where they are served
  std::string version{};
};

class LiveAgent final : private Ovsdb::SessionListener {
 public:
  // Takes the process's activity facility as it is, and SIGINT and SIGTERM. The log must outlive
  // the agent. Throws std::system_error and InputError for what it cannot set up: TLS files, the
  // control socket, the metrics' address, the recording.
  LiveAgent(LiveOptions options, Log& log);
  ~LiveAgent() override;
  LiveAgent(const LiveAgent&) = delete;
  LiveAgent& operator=(const LiveAgent&) = delete;

  // Until one of the two signals comes, whose number is returned.
  int run();

 private:
  void inSyncLost(const std::string& why) override;
  void updatesArrived(Ovsdb::Updates updates) override;
  void caughtUp() override;

  void serveMetrics(const Metrics::Endpoint& endpoint);
  bool work();
  bool program();
  void act(const Action& action);
  void apply(const Change& change);
  void tell(const std::string& what, const Problem& problem);
  void tellConvergence();

  Answer answer(const std::string& line);
  Answer report();
  Snapshot snapshot(const Filter& filter) const;
  nlohmann::ordered_json status() const;
  nlohmann::ordered_json holdStatus() const;
  std::string because() const;
  std::string timeText(double at) const;

  const LiveOptions options_;
  Log& log_;
  asio::io_context io_;
  asio::signal_set signals_;
  int signal_ = 0;

  Activity activity_;
  Problems problems_;
  EmbeddedClient embedded_;
  Recording recording_;
  ChangeQueue changes_;
  EventLoop loop_;
  WithdrawalGate gate_;
  Recorder recorder_;  // of the report
  Stories stories_;
  Ovsdb::Import import_;
  Ovsdb::Session session_;
  std::optional<Programming> programming_;
  ControlServer control_;
  std::optional<AgentMetrics> metrics_;
  std::optional<Metrics::ScrapeServer> scrapes_;

  bool isSwitchMissing_ = false;
  std::string convergence_;  // as it was told last
  double lastSettled_ = 0;   // when all that the database had said was in the store
  double toldSince_ = 0;     // of the problems told
  std::size_t told_ = 0;
};

}  // namespace Agent
