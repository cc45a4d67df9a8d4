#include "agent/ovsdb/Protocol.h"

#include <array>
#include <utility>

#include "agent/ovsdb/Failure.h"
#include "agent/ovsdb/Schema.h"

namespace Agent::Ovsdb {

namespace {

using simdjson::dom::array;
using simdjson::dom::element;
using simdjson::dom::object;

// Ids of requests and of monitors.
constexpr std::string_view schemaId = "schema";
constexpr std::string_view serverId = "server";
constexpr std::string_view monitorId = "monitor";
constexpr std::string_view anyId = "any";  // nobody waits for the reply

constexpr std::string_view noTransaction = "\"00000000-0000-0000-0000-000000000000\"";

// The ways to ask for the state of tables and for what becomes of it, the best first.
struct Rung {
  std::string_view request;
  std::string_view notification;
  Updates::Form form;
  bool resumes;
};
constexpr std::array ladder = {
    Rung{"monitor_cond_since", "update3", Updates::Form::rowDifferences, true},
    Rung{"monitor_cond", "update2", Updates::Form::rowDifferences, false},
    Rung{"monitor", "update", Updates::Form::rows, false},
};

[[noreturn]] void refuse(const element& value, const std::string& expected) {
  throw Failure(excerpt(simdjson::minify(value)), "expected " + expected);
}

std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

std::string request(std::string_view method, const std::string& params, std::string_view id) {
  return R"({"method":)" + quoted(method) + R"(,"params":)" + params + R"(,"id":)" + quoted(id) +
         '}';
}

// The value of a key, unless there is none or it is null.
std::optional<element> find(const std::optional<object>& within, std::string_view key) {
  element value;
  if (!within || within->at_key(key).get(value) != simdjson::SUCCESS || value.is_null())
    return std::nullopt;
  return value;
}

template <class T>
std::optional<T> findAs(const std::optional<object>& within, std::string_view key) {
  const auto value = find(within, key);
  T as{};
  if (!value || value->get(as) != simdjson::SUCCESS) return std::nullopt;
  return as;
}

// As many elements as there are names for them, for the error.
template <std::size_t count>
std::array<element, count> elements(const element& value, const std::string& expected) {
  std::array<element, count> all;
  array values;
  if (value.get(values) != simdjson::SUCCESS || values.size() != count) refuse(value, expected);
  std::size_t at = 0;
  for (const element each : values) all[at++] = each;
  return all;
}

object asObject(const element& value, const std::string& expected) {
  object as;
  if (value.get(as) != simdjson::SUCCESS) refuse(value, expected);
  return as;
}

// An error reply's error, which is an object with "error" and "details", or a text.
std::string errorText(const object& message) {
  const auto error = find(message, "error");
  if (!error) return "no result";
  object parts;
  if (error->get(parts) != simdjson::SUCCESS) return excerpt(simdjson::minify(*error));
  std::string text(findAs<std::string_view>(parts, "error").value_or("error"));
  if (const auto details = findAs<std::string_view>(parts, "details"))
    text.append(": ").append(*details);
  return excerpt(text);
}

std::unique_ptr<simdjson::dom::document> parse(const std::string& frame) {
  // A parser keeps what the largest message took: it is no more than this one's.
  simdjson::dom::parser parser;
  auto document = std::make_unique<simdjson::dom::document>();
  const auto error = parser.parse_into_document(*document, frame).error();
  if (error != simdjson::SUCCESS)
    throw Failure(excerpt(frame), std::string("expected JSON: ") + simdjson::error_message(error));
  return document;
}

// What is asked for, of the tables and columns that the schema has, as JSON. Names those that it
// should have, too.
std::string tablesToAskFor(const object& schema, std::string& missing) {
  const auto tables = findAs<object>(schema, "tables");
  const auto misses = [&](const std::string& name) {
    missing += (missing.empty() ? "" : ", ") + name;
  };
  std::string all;
  for (const TableSchema& table : monitoredTables) {
    const auto columns = findAs<object>(findAs<object>(tables, table.name), "columns");
    if (!columns) {
      misses(std::string(table.name));
      continue;
    }
    std::string names;
    for (const ColumnSchema& column : table.columns) {
      if (find(*columns, column.name))
        names += (names.empty() ? "" : ",") + quoted(column.name);
      else if (!column.optional)
        misses(std::string(table.name) + '.' + std::string(column.name));
    }
    all += (all.empty() ? "" : ",") + quoted(table.name) + R"(:[{"columns":[)" + names + "]}]";
  }
  return '{' + all + '}';
}

}  // namespace

std::string Protocol::probe() { return request("echo", "[]", anyId); }

std::string Protocol::open() {
  step_ = Step::schema;
  rung_ = 0;
  connected_ = true;
  cluster_.clear();
  return request("get_schema", '[' + quoted(databaseName) + ']', schemaId);
}

SessionState Protocol::state() const {
  if (!connected_) return SessionState::noQuorum;
  return step_ == Step::done ? SessionState::inSync : SessionState::syncing;
}

Protocol::Outcome Protocol::receive(std::string frame) {
  document_ = parse(frame);
  frame = std::string();  // it may be large
  const object message = asObject(document_->root(), "a JSON object");
  Outcome outcome;
  if (const auto method = findAs<std::string_view>(message, "method"))
    notification(*method, message, outcome);
  else if (const auto id = findAs<std::string_view>(message, "id"))
    outcome = reply(std::string(*id), message);
  return outcome;
}

// Replies that nobody waits for are ignored.
Protocol::Outcome Protocol::reply(const std::string& id, const Object& message) {
  Outcome outcome;
  const auto result = find(message, "error") ? std::nullopt : find(message, "result");
  if (id == schemaId && step_ == Step::schema) {
    if (!result)
      throw Failure(errorText(message), "expected the schema of " + std::string(databaseName));
    schemaIs(asObject(*result, "a schema"));
    step_ = Step::server;
    // Of all databases, the server is asked for ours. Who is aware of changes is told that the
    // database is gone, instead of being disconnected for any.
    outcome.send = request("set_db_change_aware", "[true]", anyId) +
                   request("monitor_cond",
                           R"(["_Server","server",{"Database":[{"columns":["name","model",)"
                           R"("connected","cid"],"where":[["name","==",)" +
                               quoted(databaseName) + "]]}]}]",
                           serverId);
  } else if (id == serverId && step_ == Step::server) {
    // A server without the database _Server is taken for one that stands alone.
    if (result) serverIs(*result);
    step_ = Step::quorum;
    if (result && cluster_.empty())
      throw Failure("no row of " + std::string(databaseName),
                    "expected one in the table Database of _Server");
    outcome.send = ask();
  } else if (id == monitorId && step_ == Step::monitor) {
    if (result) {
      outcome.updates = monitored(*result);
      step_ = Step::done;
    } else if (++rung_ < ladder.size()) {
      outcome.send = ask();
    } else {
      throw Failure(errorText(message), "expected the server to allow a monitor");
    }
  }
  return outcome;
}

void Protocol::schemaIs(const Object& schema) {
  const auto version = findAs<std::string_view>(schema, "version").value_or("none");
  const auto checksum = findAs<std::string_view>(schema, "cksum").value_or("");
  std::string missing;
  tables_ = tablesToAskFor(schema, missing);
  if (!missing.empty())
    throw Failure("schema version " + excerpt(version), "expected one that has " + missing);
  schema_ = std::string(version) + ' ' + std::string(checksum);
}

// The rows of _Server's databases that are new or have changed: it is ours alone.
void Protocol::serverIs(const Element& tables) {
  const auto databases = findAs<object>(asObject(tables, "table updates"), "Database");
  if (!databases) return;
  for (const auto [uuid, row] : *databases) {
    const object update = asObject(row, "a row update");
    const auto changed = findAs<object>(update, "modify");
    const auto insert = findAs<object>(update, "insert");
    const auto present = insert ? insert : findAs<object>(update, "initial");
    if (!changed && !present)
      throw Failure("removed", "expected the server to keep " + std::string(databaseName));
    if (changed && find(*changed, "cid"))
      throw Failure("another cluster", "expected the server to stay in its own");
    if (present) {
      const auto cluster = find(*present, "cid");
      cluster_ = cluster ? simdjson::minify(*cluster) : "none";
    }
    // A new row is told without the columns that have their type's default, as false is.
    connected_ =
        findAs<bool>(changed ? *changed : *present, "connected").value_or(changed && connected_);
  }
}

// The request for the monitor, once the server is with its cluster.
std::string Protocol::ask() {
  if (!connected_) return "";
  step_ = Step::monitor;
  const Rung& rung = ladder[rung_];
  std::string params = '[' + quoted(databaseName) + ',' + quoted(monitorId) + ',' + tables_;
  if (rung.resumes) {
    if (source_ != source()) forget();
    params += ',';
    params += lastTransaction_.empty() ? noTransaction : lastTransaction_;
  }
  return request(rung.request, params + ']', monitorId);
}

// The reply to that request. What is known of the last transaction is good only as long as all
// that came behind it was told with a number, too.
Updates Protocol::monitored(const Element& result) {
  if (!ladder[rung_].resumes) {
    forget();
    return updates(true, result);
  }
  const std::string expected = "whether the transaction is known, the last one, and the updates";
  const auto [found, transaction, tables] = elements<3>(result, expected);
  bool isFound = false;
  if (found.get(isFound) != simdjson::SUCCESS || !transaction.is_string() ||
      (isFound && lastTransaction_.empty()))
    refuse(result, expected);
  lastTransaction_ = simdjson::minify(transaction);
  source_ = source();
  return updates(!isFound, tables);
}

Updates Protocol::updates(bool whole, const Element& tables) {
  const object all = asObject(tables, "table updates");
  return {ladder[rung_].form, whole, std::move(document_), all};
}

// Notifications that nobody has asked for are ignored.
void Protocol::notification(std::string_view method, const Object& message, Outcome& outcome) {
  const auto params = findAs<array>(message, "params");
  if (method == "echo") {
    const auto id = find(message, "id");
    if (id && params)
      outcome.send = R"({"id":)" + simdjson::minify(*id) + R"(,"result":)" +
                     simdjson::minify(*params) + R"(,"error":null})";
    return;
  }
  std::string_view monitor;
  if (!params || params->at(0).get(monitor) != simdjson::SUCCESS) return;
  if (monitor != serverId && monitor != monitorId) return;
  if (method == "monitor_canceled")
    throw Failure("monitor canceled", "expected the server to keep the database as it is");
  if (!method.starts_with("update")) return;
  const element all = *find(message, "params");
  if (monitor == monitorId) {
    outcome.updates = update(method, all);
  } else {
    serverIs(elements<2>(all, "a monitor and its updates")[1]);
    if (step_ == Step::quorum) outcome.send = ask();
  }
}

Updates Protocol::update(std::string_view method, const Element& params) {
  const Rung& rung = ladder[rung_];
  if (step_ != Step::done || method != rung.notification)
    throw Failure(std::string(method), "expected the reply to " + std::string(rung.request) +
                                           ", and then " + std::string(rung.notification));
  if (!rung.resumes) return updates(false, elements<2>(params, "a monitor and its updates")[1]);
  const auto [monitor, transaction, tables] =
      elements<3>(params, "a monitor, its last transaction and its updates");
  if (!transaction.is_string()) refuse(transaction, "the last transaction");
  lastTransaction_ = simdjson::minify(transaction);
  return updates(false, tables);
}

}  // namespace Agent::Ovsdb
