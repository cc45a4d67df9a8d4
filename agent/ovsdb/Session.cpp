#include "agent/ovsdb/Session.h"

#include <utility>

#include "agent/base/InputError.h"
#include "agent/ovsdb/Alarm.h"
#include "agent/ovsdb/Protocol.h"
#include "agent/ovsdb/Rounds.h"

namespace Agent::Ovsdb {

namespace {

using SteadyTime = std::chrono::steady_clock::time_point;

double secondsSince(SteadyTime time) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - time).count();
}

}  // namespace

const char* nameOf(SessionState state) {
  switch (state) {
    case SessionState::connecting:
      return "connecting";
    case SessionState::syncing:
      return "syncing";
    case SessionState::inSync:
      return "in sync";
    case SessionState::noQuorum:
      return "no quorum";
  }
  return "";
}

class Session::Impl final : public ConnectionListener {
 public:
  Impl(asio::io_context& io, SessionOptions options, SessionListener& listener, Problems& problems)
      : io_(io),
        options_(std::move(options)),
        listener_(listener),
        problems_(problems),
        rounds_(options_.remotes.size(), options_.shortestBackoff, options_.longestBackoff),
        retry_(io),
        probe_(io) {}

  void start();
  void stop();
  void resync(const std::string& why);

  SessionState state() const { return state_; }
  std::chrono::system_clock::time_point since() const { return since_; }
  const Remote& remote() const { return options_.remotes[rounds_.member()]; }
  std::size_t connections() const { return connections_; }
  const std::string& lastWord() const { return lastWord_; }

  void connected() override;
  void arrived(std::string_view bytes) override;
  void ended(const Failure& failure) override { lose(failure); }

 private:
  void connect();
  void lose(const Failure& failure);
  void take(std::string frame);
  void stateIs(SessionState state);
  void tell(const Failure& failure);
  void watch(double seconds);

  asio::io_context& io_;
  const SessionOptions options_;
  SessionListener& listener_;
  Problems& problems_;
  Protocol protocol_;
  Rounds rounds_;
  Alarm retry_;
  Alarm probe_;

  std::unique_ptr<Connection> connection_;
  FrameReader frames_;
  SteadyTime heard_;     // when the last bytes came
  bool probed_ = false;  // since then

  SessionState state_ = SessionState::connecting;
  std::chrono::system_clock::time_point since_ = std::chrono::system_clock::now();
  SteadyTime inSyncSince_;
  std::size_t connections_ = 0;
  std::string lastWord_;
};

void Session::Impl::start() {
  retry_.set(0, [this] { connect(); });
}

void Session::Impl::stop() {
  retry_.cancel();
  probe_.cancel();
  connection_.reset();
  state_ = SessionState::connecting;
  since_ = std::chrono::system_clock::now();
}

void Session::Impl::resync(const std::string& why) {
  protocol_.forget();
  if (connection_) lose(Failure("state out of step", why));
}

void Session::Impl::connect() {
  connection_ =
      std::make_unique<Connection>(io_, remote(), options_.tls, options_.connectLimit, *this);
}

void Session::Impl::connected() {
  ++connections_;
  frames_ = FrameReader(options_.limits);
  heard_ = std::chrono::steady_clock::now();
  probed_ = false;
  watch(options_.probeInterval);
  connection_->send(protocol_.open());
  stateIs(SessionState::syncing);
}

void Session::Impl::arrived(std::string_view bytes) {
  heard_ = std::chrono::steady_clock::now();
  probed_ = false;
  try {
    // Until the connection is lost, or the listener has had enough.
    while (connection_) {
      auto frame = frames_.next(bytes);
      if (!frame) break;
      take(std::move(*frame));
    }
  } catch (const Failure& failure) {
    lose(failure);
  }
}

void Session::Impl::take(std::string frame) {
  Protocol::Outcome outcome = protocol_.receive(std::move(frame));
  if (!outcome.send.empty()) connection_->send(outcome.send);
  if (outcome.updates) listener_.updatesArrived(std::move(*outcome.updates));
  if (!connection_) return;
  if (protocol_.state() == SessionState::noQuorum && state_ != SessionState::noQuorum) {
    const Failure failure("no quorum", "expected a server that is connected to its cluster");
    if (options_.remotes.size() > 1) throw failure;
    tell(failure);
  }
  stateIs(protocol_.state());
}

// What the listener is told comes last: it may stop the session.
void Session::Impl::stateIs(SessionState state) {
  const SessionState before = std::exchange(state_, state);
  if (before == state) return;
  since_ = std::chrono::system_clock::now();
  if (before == SessionState::inSync) listener_.inSyncLost(lastWord_);
  if (state != SessionState::inSync) return;
  inSyncSince_ = std::chrono::steady_clock::now();
  for (const Remote& member : options_.remotes) problems_.cure("database " + member.text());
  listener_.caughtUp();
}

void Session::Impl::tell(const Failure& failure) {
  lastWord_ = failure.value() + ": " + failure.what();
  problems_.raise("database " + remote().text(), failure.value(), failure.what());
}

void Session::Impl::lose(const Failure& failure) {
  tell(failure);
  connection_.reset();
  probe_.cancel();
  const double inSync = state_ == SessionState::inSync ? secondsSince(inSyncSince_) : 0;
  retry_.set(rounds_.failed(inSync), [this] { connect(); });
  stateIs(SessionState::connecting);
}

// Asks a server that is silent for an answer, and gives it up.
void Session::Impl::watch(double seconds) {
  probe_.set(seconds, [this] {
    const double silence = secondsSince(heard_);
    if (silence < options_.probeInterval) {
      watch(options_.probeInterval - silence);
    } else if (!probed_) {
      probed_ = true;
      connection_->send(Protocol::probe());
      watch(options_.probeInterval);
    } else {
      lose(Failure("silence", "expected an answer to the probe"));
    }
  });
}

Session::Session(asio::io_context& io, SessionOptions options, SessionListener& listener,
                 Problems& problems) {
  for (const Remote& remote : options.remotes) {
    if (remote.kind != Remote::Kind::ssl) continue;
    try {
      checkTlsFiles(options.tls);
    } catch (const Failure& failure) {
      throw InputError(failure.value() + ": " + failure.what());
    }
  }
  impl_ = std::make_unique<Impl>(io, std::move(options), listener, problems);
}

Session::~Session() = default;

void Session::start() { impl_->start(); }

void Session::stop() { impl_->stop(); }

void Session::resync(const std::string& why) { impl_->resync(why); }

SessionState Session::state() const { return impl_->state(); }

std::chrono::system_clock::time_point Session::since() const { return impl_->since(); }

const Remote& Session::remote() const { return impl_->remote(); }

std::size_t Session::connections() const { return impl_->connections(); }

const std::string& Session::lastWord() const { return impl_->lastWord(); }

}  // namespace Agent::Ovsdb
