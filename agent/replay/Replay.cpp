#include "agent/replay/Replay.h"

#include <string>
#include <utility>

#include "agent/base/StopSignal.h"
#include "agent/base/Text.h"
#include "agent/replay/RecordingTime.h"

namespace Agent {

// Counts the hosts that leave the layer-2 RIB.
class Replay::HostWatcher final : public L2Rib::HostInput::NotifieeConst {
 public:
  void onAttribute(Moru::AttributeId attribute, const void* key) override {
    if (attribute != Moru::idOf<&L2Rib::HostInput::host>) return;
    if (!notifier()->host().contains(*Moru::keyOf<&L2Rib::HostInput::host>(key))) ++deleted_;
  }

  // Since the last call.
  std::size_t takeDeleted() { return std::exchange(deleted_, 0); }

 private:
  std::size_t deleted_ = 0;
};

Replay::Replay(JournalFile& file, bool hasStart, const ReplayOptions& options, Output* output,
               std::ostream& errors)
    : options_(options),
      output_(output),
      errors_(errors),
      progress_(errors, options.progress),
      journal_(file.stream(), file.name()),
      lifecycle_(hasStart),
      embedded_(options.maxProcessTime),
      origin_{.journal = file.name()} {
  if (options_.speed) {
    facility_ = Moru::create<Moru::ActivityFacility>(Moru::create<RecordingTime>(*options_.speed));
  } else {
    virtualTime_ = Moru::create<Moru::VirtualTime>(0, options_.timePerRead);
    facility_ = Moru::create<Moru::ActivityFacility>(virtualTime_);
  }
  Moru::ActivityFacility::currentIs(facility_);
  Moru::assertionContextIs([this] { return place(); });
  if (options_.watching)
    witness_.emplace(
        embedded_, options_.watching->mac,
        [this] {
          return Witness::Moment{time(), origin_.line};
        },
        options_.watching->sinks);
  if (!options_.timeline) return;
  hostWatcher_ = Moru::create<HostWatcher>();
  hostWatcher_->notifierIs(embedded_.store().l2RibZepInput);
  hostWatcher_->hasNotificationActiveIs(true);
}

Replay::~Replay() {
  embedded_.stop();  // while an assertion that fails in there can still tell the place
  Moru::assertionContextIs(nullptr);
}

double Replay::time() const { return virtualTime_ ? virtualTime_->time() : facility_->now(); }

std::string Replay::place() const { return origin_.journal + ':' + std::to_string(origin_.line); }

bool Replay::isOver() const { return ended_ || StopSignal::number() != 0; }

ExitStatus Replay::run() {
  try {
    if (lifecycle_.running()) startClient();
  } catch (const Moru::Exception& exception) {
    takeException(exception);
  }
  while (!isOver() && !isStopped() && playLine()) {
  }
  std::string label = isOver() ? "" : finish();
  progress_.clear();
  if (const int signal = StopSignal::number(); signal != 0 && !ended_) {
    label = "interrupted";
    status_ = static_cast<ExitStatus>(ExitStatus::signalled + signal);
  }
  if (!ended_) printDump(label);
  if (output_ != nullptr) output_->flush();
  if (options_.watching && options_.watching->ended)
    options_.watching->ended({time(), origin_.line}, embedded_);
  return status_;
}

// Lets the clocks have what time is left, and says how it ended.
std::string Replay::finish() {
  if (isStopped()) return "stopped";
  if (!options_.until) {
    fireClocks(Moru::Clock::never);
    return "end";
  }
  if (fireClocks(*options_.until)) at_ = *options_.until;
  return "until";
}

// Whether the line that was read last is not to be played any more.
bool Replay::isBeyond() const {
  return (options_.until && journal_.at() > *options_.until) ||
         (options_.stopAt && journal_.number() > *options_.stopAt);
}

// Whether the line to stop at has been played, or was one without an action.
bool Replay::isStopped() const {
  if (!options_.stopAt || journal_.number() < *options_.stopAt) return false;
  return journal_.number() > *options_.stopAt || !isBeyond();
}

// False when the journal has ended, or nothing may follow.
bool Replay::playLine() {
  try {
    const auto line = journal_.next();
    if (!line || isOver() || isBeyond()) return false;
    if (line->at > at_ && !fireClocks(line->at)) return false;
    play(*line);
    progress_.update(line->number, line->at);
    return true;
  } catch (const InputError& error) {
    if (isOver() || isBeyond()) return false;  // a signal may have cut the line short
    progress_.clear();
    errors_ << journal_.place() << ": " << printable(error.what()) << '\n';
    status_ = ExitStatus::failed;
    ended_ = true;
    return false;
  } catch (const Moru::Exception& exception) {
    return refuse(exception);
  }
}

// A line that the data model refuses has its time all the same: what is due by then comes first.
bool Replay::refuse(const Moru::Exception& exception) {
  if (isBeyond()) return false;
  if (journal_.at() > at_ && !fireClocks(journal_.at())) return false;
  at_ = journal_.at();
  origin_.line = journal_.number();
  return takeException(exception);
}

void Replay::play(const Line& line) {
  lifecycle_.follow(line.action);
  at_ = line.at;
  origin_.line = line.number;
  firedInARow_ = 0;
  std::visit([this](const auto& action) { carryOut(action); }, line.action);
}

// Fires what is due at or before `until`, and moves the time there. False if that was the end.
bool Replay::fireClocks(double until) {
  constexpr std::uint64_t mostInARow = 100'000;
  endTurn();
  while (!isOver()) {
    try {
      if (!facility_->fireNext(until)) break;
      endTurn();
    } catch (const Moru::Exception& exception) {
      takeException(exception);
    }
    if (++firedInARow_ < mostInARow) continue;
    progress_.clear();
    errors_ << place() << ": the replay does not come to rest: " << mostInARow
            << " firings of clocks in a row, expected an end of them\n";
    status_ = ExitStatus::restless;
    ended_ = true;
  }
  if (isOver() || until == Moru::Clock::never) return !isOver();
  if (virtualTime_)
    virtualTime_->waitUntil(until);
  else
    facility_->runUntil(until);
  return !isOver();
}

void Replay::carryOut(const Change& change) {
  if (witness_) witness_->comes(change);
  embedded_.store().apply(change);
}

void Replay::startClient() {
  try {
    embedded_.start();
  } catch (const Moru::Exception&) {
    lifecycle_.clientFailed();
    throw;
  }
  if (witness_) witness_->clientChanged();
}

void Replay::stopClient() {
  embedded_.stop();
  if (witness_) witness_->clientChanged();
}

void Replay::printDump(const std::string& label) {
  if (output_ == nullptr) return;
  progress_.clear();
  output_->dump(snapshot(label));
}

Snapshot Replay::snapshot(const std::string& label) const {
  Snapshot snapshot = takeSnapshot(label, at_, embedded_);
  snapshot.origin = origin_;
  return snapshot;
}

void Replay::endTurn() {
  if (options_.watching && options_.watching->turnEnded)
    options_.watching->turnEnded({time(), origin_.line}, embedded_);
  printTurn();
}

void Replay::printTurn() {
  if (!options_.timeline || output_ == nullptr) return;
  const StateStore& store = embedded_.store();
  const auto& client = embedded_.client();
  Turn turn{time(), store.l2RibZepInput->host().size(),
            client ? client->hostTable()->markedForDelCount() : 0, hostWatcher_->takeDeleted()};
  if (!embedded_.isAbsent(Input::zepConvergenceStatus)) {
    const auto& status = store.zepConvergenceStatus;
    turn.unicastDeferredDeletion = status->unicastDeferredDeletionInProgress();
    turn.bumDeferredDeletion = status->bumDeferredDeletionInProgress();
  }
  output_->turn(turn, origin_);
}

// True if the replay goes on.
bool Replay::takeException(const Moru::Exception& exception) {
  progress_.clear();
  status_ = ExitStatus::refused;
  if (options_.keepGoing && output_ != nullptr) {
    output_->exception(exception.type(), exception.what(), origin_);
    return true;
  }
  errors_ << place() << ": " << exception.type() << ": " << printable(exception.what()) << '\n';
  ended_ = !options_.keepGoing;
  return options_.keepGoing;
}

namespace {

ExitStatus replayOne(const std::string& path, const ReplayOptions& options,
                     const OutputOptions& outputOptions,
                     const std::optional<TraceStreamOptions>& trace, std::ostream& out,
                     std::ostream& errors) {
  JournalFile file(path);
  const bool hasStart = file.findStart();
  StopSignal::install();  // until here there was nothing to end in good order
  Output output(out, outputOptions, file.name());
  Replay replay(file, hasStart, options, &output, errors);
  std::optional<TraceStream> stream;
  if (trace)
    stream.emplace(errors, *trace, clientFacilities(), [&replay] {
      return TraceMoment{replay.time(), replay.origin().journal, replay.origin().line};
    });
  return replay.run();
}

}  // namespace

int replayCommand(const std::vector<std::string>& journals, const ReplayOptions& options,
                  OutputOptions output, const std::optional<TraceStreamOptions>& trace,
                  std::ostream& out, std::ostream& errors) {
  output.named = journals.size() > 1;
  int status = ExitStatus::done;
  for (const std::string& path : journals) {
    const ExitStatus each = replayOne(path, options, output, trace, out, errors);
    if (status == ExitStatus::done) status = each;
    if (StopSignal::number() != 0) break;
  }
  return status;
}

}  // namespace Agent
