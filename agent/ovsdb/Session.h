// Follows a database: connects, asks for all that is monitored, hands over what comes, and begins
// again with the next member of the cluster whenever something goes wrong.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "agent/base/Problems.h"
#include "agent/ovsdb/Connection.h"
#include "agent/ovsdb/Frames.h"
#include "agent/ovsdb/Remote.h"
#include "agent/ovsdb/SessionListener.h"

namespace Agent::Ovsdb {

struct SessionOptions {
  std::vector<Remote> remotes;  // the members of one cluster, at least one
  TlsFiles tls;                 // needed where one of them is ssl:
  // Seconds.
  double connectLimit = 5;  // for a connection to be made
  double probeInterval =
      5;  // of silence: asked for an answer once, and given up after as many more
  double shortestBackoff = 0.1;  // after a round in which no member could be followed
  double longestBackoff = 8;     // doubled up to there
  FrameReader::Limits limits = {};
};

// The place of its problems is "database REMOTE", for each member; in sync, all are cured.
class Session {
 public:
  // Nothing happens before start(). What is handed over must outlive the session, which may be
  // destroyed while `io` runs on, but not by the listener. Throws InputError for TLS files that
  // cannot be used.
  Session(asio::io_context& io, SessionOptions options, SessionListener& listener,
          Problems& problems);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Between them, nothing is called. The listener is not told of a stop; a start after it goes on
  // from what was handed over.
  void start();
  void stop();

  // What is known does not fit what came: asks for the whole state, on a new connection. What was
  // handed over before and has not been looked at is to be dropped.
  void resync(const std::string& why);

  SessionState state() const;
  std::chrono::system_clock::time_point since() const;  // in that state
  const Remote& remote() const;                         // connected to, or tried next
  std::size_t connections() const;                      // that were made so far
  const std::string& lastWord() const;  // what went wrong last; empty if nothing has

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace Agent::Ovsdb
