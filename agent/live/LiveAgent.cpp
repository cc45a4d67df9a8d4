#include "agent/live/LiveAgent.h"

#include <cmath>
#include <csignal>
#include <exception>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "agent/base/InputError.h"
#include "agent/base/Text.h"
#include "agent/journal/Path.h"
#include "agent/journal/WholeState.h"
#include "agent/live/Doctor.h"
#include "agent/live/Notify.h"
#include "agent/live/Question.h"
#include "framework/Moru/ActivityFacility.h"
#include "framework/Moru/Exception.h"
#include "framework/Ringlog/Ring.h"

namespace Agent {

namespace {

using Object = nlohmann::ordered_json;

constexpr double sliceTime = 0.005;  // seconds

double now() { return Moru::ActivityFacility::current()->now(); }

}  // namespace

LiveAgent::LiveAgent(LiveOptions options, Log& log)
    : options_(std::move(options)),
      log_(log),
      signals_(io_, SIGINT, SIGTERM),
      problems_([this](const std::string& what, const Problem& problem) { tell(what, problem); }),
      embedded_(options_.maxProcessTime),
      recording_(
          options_.recording,
          [this](const Recording::Write& write) { writeWholeState(embedded_, write); }, problems_),
      loop_(
          io_, [this] { return work(); }, activity_.turns),
      gate_(options_.gate,
            [this](Change change) {
              changes_.push(std::move(change));
              loop_.wake();
            }),
      recorder_(now()),
      stories_(embedded_, gate_,
               {[this](const Event& event) { recorder_.take(event); },
                [this](const Batch& batch) {
                  activity_.add(batch);
                  recorder_.take(batch);
                }}),
      import_(
          options_.switchName, gate_, [this](Change change) { changes_.push(std::move(change)); },
          [this](const Attachments& attachments) {
            if (programming_) programming_->attachmentsAre(attachments);
          },
          problems_,
          {.caughtUp =
               [this] {
                 isSwitchMissing_ = false;
                 gate_.inSyncIs(true);
                 log_.notice("all of the database's state is told: " +
                             std::to_string(gate_.hosts()) + " hosts");
               },
           .unknownRow = [this](const std::string& row) { session_.resync("unknown row " + row); },
           .switchMissing = [this] { isSwitchMissing_ = true; }}),
      session_(io_, options_.database, *this, problems_),
      control_(io_, options_.control,
               [this](const std::string& question) { return answer(question); }) {
  // The client looks for the replication mode when it is built.
  act(Change(Set<HwBum>{{}, Vxlan::BumReplicationMode::controller}));
  Vti::Value vti;
  vti.controllerClientMode = true;
  act(Change(Set<Vti>{{Vorn::IntfId(vtiName)}, vti}));
  while (!changes_.isEmpty())
    changes_.applyFor(sliceTime, [this](const Change& change) { apply(change); });
  act(Start());
  if (options_.metrics) serveMetrics(*options_.metrics);
  if (options_.programsKernel)
    programming_.emplace(ProgrammingOptions{options_.managesLinks, options_.switchName}, io_,
                         embedded_, gate_, stories_, problems_, log_, [this] { loop_.wake(); });
}

LiveAgent::~LiveAgent() = default;

void LiveAgent::serveMetrics(const Metrics::Endpoint& endpoint) {
  metrics_.emplace(AgentMetrics::Sources{options_.switchName, options_.version, embedded_, gate_,
                                         session_, problems_, recording_, stories_.witness(),
                                         activity_, programming_});
  scrapes_.emplace(io_, endpoint,
                   [this](Metrics::Dialect dialect) { return metrics_->text(dialect); });
  std::ostringstream place;
  place << endpoint;
  log_.notice("metrics at http://" + place.str() + "/metrics");
}

int LiveAgent::run() {
  signals_.async_wait([this](const std::error_code& error, int signal) {
    if (error) return;
    signal_ = signal;
    io_.stop();
  });
  log_.notice("following " + options_.switchName + " of " + session_.remote().text() +
              ", answering at " + options_.control);
  session_.start();
  loop_.wake();
  notifyReady();
  io_.run();
  notifyStopping();
  log_.notice("stopped by signal " + std::to_string(signal_));
  return signal_;
}

void LiveAgent::inSyncLost(const std::string& why) {
  log_.warning("the database is lost, and all stays as it is: " + why);
  isSwitchMissing_ = false;
  import_.inSyncLost();
  gate_.inSyncIs(false);
  loop_.wake();
}

void LiveAgent::updatesArrived(Ovsdb::Updates updates) {
  if (session_.state() != Ovsdb::SessionState::inSync)
    log_.notice(session_.remote().text() +
                (updates.whole ? " tells all of its state" : " tells what has changed since"));
  ++activity_.messages;
  import_.take(std::move(updates));
  loop_.wake();
}

void LiveAgent::caughtUp() {
  import_.caughtUp();
  loop_.wake();
}

// A message is evaluated whole before what it changes is applied, and that before the next message.
bool LiveAgent::work() {
  if (import_.isBusy() || (changes_.isEmpty() && import_.hasWork()))
    import_.step(sliceTime);
  else
    changes_.applyFor(sliceTime, [this](const Change& change) { apply(change); });
  recording_.rotateIfFull();
  recorder_.turnEnded({now(), 0}, embedded_);
  tellConvergence();
  const bool isProgramming = program();
  return import_.hasWork() || !changes_.isEmpty() || isProgramming;
}

// What a message changes is programmed together: flood sets that share a group move with it only
// then. But it is not waited for without end.
bool LiveAgent::program() {
  constexpr double longestWait = 0.1;  // seconds
  if (!programming_) return false;
  const bool isSettled = changes_.isEmpty() && !import_.hasWork();
  if (isSettled) lastSettled_ = now();
  if (!isSettled && now() < lastSettled_ + longestWait) return true;
  return programming_->work(sliceTime, isSettled);
}

void LiveAgent::act(const Action& action) {
  recording_.write(action);  // first: it may be what ends the process
  if (const auto* const change = std::get_if<Change>(&action)) {
    ++activity_.changes;
    stories_.comes(*change);
    embedded_.store().apply(*change);
  }
  if (!std::holds_alternative<Start>(action)) return;
  embedded_.start();
  stories_.clientChanged();
}

// The store takes further changes where a reaction has thrown.
void LiveAgent::apply(const Change& change) {
  try {
    act(change);
  } catch (const Moru::Exception& exception) {
    problems_.raise("client: " + pathOf(change), exception.type(), exception.what());
  }
}

// A database full of rubbish must not fill the log: `problems` lists all.
void LiveAgent::tell(const std::string& what, const Problem& problem) {
  constexpr std::size_t mostAtOnce = 20;
  constexpr double pause = 10;
  if (now() - toldSince_ > pause) {
    toldSince_ = now();
    told_ = 0;
  }
  ++told_;
  if (told_ <= mostAtOnce)
    log_.warning(what + (problem.value.empty() ? "" : " is \"" + problem.value + '"') + ": " +
                 problem.why);
  if (told_ == mostAtOnce) log_.warning("more problems: vxlan-agent problems lists them all");
}

void LiveAgent::tellConvergence() {
  std::string convergence = because();
  if (convergence == convergence_) return;
  convergence_ = std::move(convergence);
  log_.notice(convergence_.empty() ? "converged" : "converging: " + convergence_);
  notifyStatus(convergence_.empty() ? "in sync" : convergence_);
}

std::string LiveAgent::because() const {
  std::string reasons;
  const auto add = [&reasons](const std::string& reason) { appendTo(reasons, "; ", reason); };
  if (isSwitchMissing_)
    add("the database has no Physical_Switch " + options_.switchName);
  else if (session_.state() != Ovsdb::SessionState::inSync)
    add("the database is not in sync: " + std::string(nameOf(session_.state())));
  else if (!gate_.inSync())
    add("the database's state is being taken over");
  if (gate_.hold()) add("a hold: more hosts were withdrawn than a working controller withdraws");
  return reasons;
}

Answer LiveAgent::answer(const std::string& line) {
  const auto [what, filter] = questionOf(line);
  if (what == "status") return lineAnswer(status());
  if (what == "hosts") return hostsAnswer(embedded_, gate_, filter);
  if (what == "floods") return floodsAnswer(embedded_, filter);
  if (what == "problems") return problemsAnswer(problems_);
  if (what == "report") return report();
  if (what == "dump") return dumpAnswer(snapshot(filter));
  if (what == "doctor")
    return doctorAnswer(
        {import_, gate_, embedded_, programming_ ? &programming_->plane() : nullptr});
  if (what == "explain") {
    if (filter.macs.size() != 1) throw InputError("explain: expected one MAC address");
    return stories_.answer(*filter.macs.begin(), scopeOf(embedded_.store(), filter),
                           programming_ ? &programming_->plane() : nullptr);
  }
  if (what == "release") {
    const bool wasHeld = gate_.hold().has_value();
    gate_.release();
    loop_.wake();
    if (wasHeld) log_.notice("the hold is ended by the operator");
    return lineAnswer({{"released", wasHeld}});
  }
  throw InputError('"' + what +
                   "\": expected status, hosts, floods, dump, problems, doctor, explain, report or "
                   "release");
}

// Its time 0 is that of the facility, which has no date of its own.
Answer LiveAgent::report() {
  recorder_.turnEnded({now(), 0}, embedded_);
  const std::chrono::duration<double> unixTime =
      std::chrono::system_clock::now().time_since_epoch();
  Pieces data = recorder_.data({.title = options_.switchName,
                                .source = "--control " + options_.control,
                                .epoch = unixTime.count() - now(),
                                .version = options_.version},
                               embedded_);
  return [data = std::move(data)](std::string& out) {
    const bool isMore = data(out);
    if (!isMore) out += '\n';
    return isMore;
  };
}

Snapshot LiveAgent::snapshot(const Filter& filter) const {
  Snapshot snapshot = takeSnapshot("running", now(), embedded_);
  snapshot.origin.switchName = options_.switchName;
  filterBy(filter, snapshot);
  return snapshot;
}

std::string LiveAgent::timeText(double at) const {
  const std::chrono::duration<double> away(at - now());
  return rfc3339Text(std::chrono::system_clock::now() +
                     std::chrono::duration_cast<std::chrono::system_clock::duration>(away));
}

Object LiveAgent::holdStatus() const {
  const auto hold = gate_.hold();
  if (!hold) return nullptr;
  return {{"since", timeText(hold->since)},
          {"waiting", hold->waiting},
          {"ends", hold->ends ? Object(timeText(*hold->ends)) : Object(nullptr)}};
}

Object LiveAgent::status() const {
  const StateStore& store = embedded_.store();
  const auto& convergence = store.zepConvergenceStatus;
  const double due = Moru::ActivityFacility::current()->nextDue();
  const std::string reasons = because();
  const auto hosts = programming_ ? programming_->plane().status().hosts : Kernel::Fdb::Counts();
  return {{"switch", options_.switchName},
          {"database",
           {{"state", nameOf(session_.state())},
            {"remote", session_.remote().text()},
            {"since", rfc3339Text(session_.since())},
            {"lastWord", session_.lastWord()}}},
          {"converging", gate_.converging()},
          {"because", reasons.empty() ? Object(nullptr) : Object(reasons)},
          {"hold", holdStatus()},
          {"hosts",
           {{"wanted", store.l2RibZepInput->host().size()},
            {"marked", embedded_.client()->hostTable()->markedForDelCount()},
            {"waiting", gate_.waiting()},
            {"programmed", hosts.programmed},
            {"refused", hosts.refused},
            {"foreign", hosts.foreign}}},
          {"vnis", store.controllerStatusBaseDir->entityPtr().size()},
          {"problems", problems_.all().size()},
          {"clocks",
           {{"unicastDeferredDeletion", convergence->unicastDeferredDeletionInProgress()},
            {"bumDeferredDeletion", convergence->bumDeferredDeletionInProgress()},
            {"nextDue", due == Moru::Clock::never ? Object(nullptr) : Object(timeText(due))}}},
          {"dataPlane", programming_ ? "linux" : "none"},
          {"kernel", programming_ ? programming_->status() : Object(nullptr)},
          {"recording", recording_.file().empty() ? Object(nullptr)
                                                  : Object({{"file", recording_.file()},
                                                            {"bytes", recording_.size()},
                                                            {"written", recording_.isWritten()}})},
          {"ring", Ringlog::error()},
          {"version", options_.version}};
}

}  // namespace Agent
