// What a session with a database hands over, and to whom.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <simdjson.h>
#include <string>

namespace Agent::Ovsdb {

// The table updates of one message; owns the parsed text. `tables` is what RFC 7047 calls
// <table-updates>: by table and row, checked no further than that it is an object.
struct Updates {
  enum class Form : std::uint8_t {
    rows,            // each row as it was and is: "old" and "new"
    rowDifferences,  // what happened to it: "initial", "insert", "modify" or "delete"
  };

  Form form = Form::rows;
  // The state of all tables, in place of what was known. Otherwise what has changed.
  bool whole = false;
  std::unique_ptr<simdjson::dom::document> document;
  simdjson::dom::object tables;
};

// connecting: no server has answered yet. syncing: one has, and tells what it knows. noQuorum: it
// has lost its cluster, and is waited for.
enum class SessionState : std::uint8_t { connecting, syncing, inSync, noQuorum };

inline constexpr std::array sessionStates{SessionState::connecting, SessionState::syncing,
                                          SessionState::inSync, SessionState::noQuorum};

// "connecting", "syncing", "in sync" or "no quorum".
const char* nameOf(SessionState state);

// Called from the event loop. May call the session's resync() and stop(), not destroy it.
struct SessionListener {
  virtual ~SessionListener() = default;

  // The connection is down, or its server has lost its cluster: what is known stays. Not called
  // again before caughtUp() has been.
  virtual void inSyncLost(const std::string& why) = 0;

  // Whole updates first, or differences from those that were handed over before the connection was
  // lost; then differences.
  virtual void updatesArrived(Updates updates) = 0;

  // All updates handed over so far are the whole state: behind the first ones of a connection, and
  // when its server has found its cluster again.
  virtual void caughtUp() = 0;
};

}  // namespace Agent::Ovsdb
