// What is said on a connection with an OVSDB server (RFC 7047, and the monitors and the _Server
// database that came after it): text in, text out. Knows no sockets and no time.
//
//   get_schema ──> monitor_cond of _Server ──> monitor_cond_since ──> in sync
//   is it ours?    is it with its cluster?     or monitor_cond, or monitor: what the server knows
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "agent/ovsdb/SessionListener.h"

namespace Agent::Ovsdb {

class Protocol {
 public:
  // What a message leads to.
  struct Outcome {
    std::string send;  // nothing, or requests and replies, one behind the other
    std::optional<Updates> updates;
  };

  // A new connection; returns the first request. What was known before of the last transaction
  // stays: where the server knows it too, it tells only what has changed since.
  std::string open();

  // A message of the server, a JSON object; best with room behind it for the parser's padding.
  // Throws Failure for what ends the connection: a message that makes no sense, and a database that
  // is gone or is not ours.
  Outcome receive(std::string frame);

  // A request that asks for nothing but an answer.
  static std::string probe();

  // The next connection asks for the whole state.
  void forget() { lastTransaction_.clear(); }

  // Where this connection is; never `connecting`.
  SessionState state() const;

 private:
  using Object = simdjson::dom::object;
  using Element = simdjson::dom::element;

  // What is waited for. From `done` on there are only notifications.
  enum class Step : std::uint8_t { schema, server, quorum, monitor, done };

  Outcome reply(const std::string& id, const Object& message);
  void notification(std::string_view method, const Object& message, Outcome& outcome);
  Updates update(std::string_view method, const Element& params);
  void schemaIs(const Object& schema);
  void serverIs(const Element& tables);
  std::string ask();
  Updates monitored(const Element& result);
  Updates updates(bool whole, const Element& tables);
  std::string source() const { return schema_ + cluster_ + tables_; }

  std::unique_ptr<simdjson::dom::document> document_;  // the message at hand
  Step step_ = Step::schema;
  std::size_t rung_ = 0;         // of the ladder of monitors
  bool connected_ = true;        // the server, with its cluster
  std::string schema_;           // version and checksum
  std::string cluster_;          // its id, as JSON
  std::string tables_;           // what is asked for of each, as JSON
  std::string source_;           // what lastTransaction_ is of
  std::string lastTransaction_;  // its id, as JSON; empty if none is known
};

}  // namespace Agent::Ovsdb
