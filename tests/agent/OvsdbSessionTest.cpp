// The session with an OVSDB database: frames, remotes, what is said (recorded), and how it lives
// with a real ovsdb-server, and with one that talks nonsense.
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/write.hpp>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/base/InputError.h"
#include "agent/ovsdb/Failure.h"
#include "agent/ovsdb/Frames.h"
#include "agent/ovsdb/Protocol.h"
#include "agent/ovsdb/Remote.h"
#include "agent/ovsdb/Rounds.h"
#include "agent/ovsdb/Schema.h"
#include "agent/ovsdb/Session.h"
#include "tests/agent/OvsdbServer.h"

namespace {

using Agent::InputError;
using Agent::Problem;
using Agent::Problems;
using namespace Agent::Ovsdb;  // NOLINT(google-build-using-namespace): all of it is tested
using std::string;
using std::string_view;
using testing::EndsWith;
using testing::HasSubstr;

// What ended it: "value: why".
template <class Action>
string failureOf(Action action) {
  try {
    action();
  } catch (const Failure& failure) {
    return failure.value() + ": " + failure.what();
  }
  return "none";
}

// The frames of a stream that comes in pieces of that size.
std::vector<string> framesOf(string_view stream, std::size_t piece,
                             FrameReader::Limits limits = {}) {
  FrameReader reader(limits);
  std::vector<string> frames;
  for (std::size_t at = 0; at < stream.size(); at += piece) {
    string_view bytes = stream.substr(at, piece);
    while (auto frame = reader.next(bytes)) frames.push_back(*frame);
    EXPECT_TRUE(bytes.empty());
  }
  return frames;
}

TEST(FramesTest, AreCutOutOfPiecesOfAnySize) {
  const std::vector<string> frames = {R"({})", R"({"a":[{"}":"{"},[]],"b":"\\"})",
                                      R"({"\"}":"\\\"}{","c":"\\\\","d":"]["})",
                                      R"({"deep":[[[{"x":{}}]]]})"};
  const string stream = frames[0] + frames[1] + " \r\n\t" + frames[2] + '\n' + frames[3] + "\n {\"";
  for (std::size_t piece = 1; piece <= stream.size(); ++piece)
    EXPECT_EQ(framesOf(stream, piece), frames) << piece;
}

TEST(FramesTest, NothingElseIsTaken) {
  for (const string_view stream : {"[]", "{}x", "{} \"", "}", "\\{}", "HTTP/1.1 400"}) {
    EXPECT_NE(failureOf([&] { framesOf(stream, 1); }), "none") << stream;
    EXPECT_NE(failureOf([&] { framesOf(stream, 100); }), "none") << stream;
  }
  // Limits: what is just within them passes, whole or in pieces.
  const string deep = R"({"a":[[1],[1]]})";
  const string large = R"({"a":")" + string(92, 'x') + "\"}";
  for (const std::size_t piece : {1, 7, 1000}) {
    const auto failure = [&](const string& stream, FrameReader::Limits limits) {
      return failureOf([&] { framesOf(stream, piece, limits); });
    };
    EXPECT_EQ(framesOf(deep + deep, piece, {100, 3}).size(), 2U);
    EXPECT_THAT(failure(deep, {100, 2}), EndsWith("expected objects and arrays at most 2 deep"));
    EXPECT_EQ(framesOf(large + large, piece, {100, 3}).size(), 2U);
    EXPECT_THAT(failure(large, {99, 3}), EndsWith("expected a message of at most 99 bytes"));
  }
}

TEST(RemoteTest, Parses) {
  const auto textOf = [](string_view text) {
    string all;
    for (const Remote& remote : parseRemotes(text))
      all += remote.text() + '|' + remote.host + '|' + remote.port + ' ';
    return all;
  };
  EXPECT_EQ(textOf("unix:/a:b"), "unix:/a:b|/a:b| ");
  EXPECT_EQ(textOf("tcp:h-1:6640,ssl:[fe80::1]:1,tcp:h-1:6640,tcp:[10.0.0.1]:65535"),
            "tcp:h-1:6640|h-1|6640 ssl:[fe80::1]:1|fe80::1|1 tcp:10.0.0.1:65535|10.0.0.1|65535 ");
  for (const string_view wrong :
       {"",         "unix",      "unix:",        "tcp",      "tcp:",
        "tcp:6640", "tcp::6640", "tcp:h:",       "tcp:h:0",  "tcp:h:65536",
        "tcp:h:1x", "tcp:h:-1",  "tcp:::1:6640", "tcp:[]:1", "tcp:[::1:6640",
        "udp:h:1",  "ssl:h",     "tcp:h:1,",     ",unix:/a", "unix:/a,banana"}) {
    try {
      parseRemotes(wrong);
      ADD_FAILURE() << wrong;
    } catch (const InputError& error) {
      const string_view last = wrong.substr(wrong.rfind(',') + 1);
      const string text = error.what();
      EXPECT_TRUE(text.starts_with("database \"" + string(wrong.front() == ',' ? "" : last) +
                                   "\": expected "))
          << text;
    }
  }
  EXPECT_NO_THROW(parseRemotes("unix:" + string(107, 'x')));
  EXPECT_THROW(parseRemotes("unix:" + string(108, 'x')), InputError);
}

TEST(RoundsTest, NextMemberAtOnceThenLongerWaits) {
  Rounds rounds(3, 0.5, 4);
  const auto round = [&](double inSync) {
    std::ostringstream waits;
    waits << rounds.failed(inSync);
    for (int i = 0; i < 2; ++i) waits << ' ' << rounds.failed(0);
    return waits.str();
  };
  for (const char* wait : {"0 0 0.5", "0 0 1", "0 0 2", "0 0 4", "0 0 4"})
    EXPECT_EQ(round(0), wait);
  EXPECT_EQ(round(3), "0 0 4");    // lost too soon
  EXPECT_EQ(rounds.failed(0), 0);  // in the middle of a round: it begins anew, with the next member
  EXPECT_EQ(rounds.member(), 1U);
  EXPECT_EQ(round(5), "0 0 0.5");
  EXPECT_EQ(rounds.member(), 1U);

  Rounds alone(1, 0.5, 4);
  EXPECT_EQ(alone.failed(0), 0.5);
  EXPECT_EQ(alone.failed(0), 1);
  EXPECT_EQ(alone.member(), 0U);
}

// A conversation with a recorded server.
class Talk {
 public:
  Protocol protocol;

  // Up to the request for the monitor, which is returned.
  string open(const string& cid = R"(["uuid","aaaa"])", const string& version = "1.7.0",
              bool hasOptional = true) {
    EXPECT_EQ(protocol.open(),
              R"({"method":"get_schema","params":["hardware_vtep"],"id":"schema"})");
    EXPECT_EQ(protocol.state(), SessionState::syncing);
    EXPECT_THAT(
        say(R"({"id":"schema","result":)" + schema(version, hasOptional) + ",\"error\":null}"),
        HasSubstr("_Server"));
    return say(server("initial", R"("name":"hardware_vtep","connected":true,"cid":)" + cid));
  }

  // Until it is in sync, from the whole state.
  void sync(const string& transaction) {
    open();
    say(R"({"id":"monitor","result":[false,")" + transaction + R"(",{}],"error":null})");
    EXPECT_EQ(protocol.state(), SessionState::inSync);
  }

  // What is sent then.
  string say(const string& frame) {
    Protocol::Outcome outcome = protocol.receive(frame);
    updates = std::move(outcome.updates);
    return outcome.send;
  }

  // "whole differences {...}", of the last frame.
  string told() const {
    if (!updates) return "nothing";
    return string(updates->whole ? "whole " : "change ") +
           (updates->form == Updates::Form::rows ? "rows " : "differences ") +
           simdjson::minify(updates->tables);
  }

  // The schema that is monitored, but for one name.
  static string schema(const string& version, bool hasOptional, const string& without = "") {
    string tables;
    for (const TableSchema& table : monitoredTables) {
      string columns;
      for (const ColumnSchema& column : table.columns)
        if ((hasOptional || !column.optional) && column.name != without)
          columns += (columns.empty() ? "\"" : ",\"") + string(column.name) + "\":{}";
      if (table.name != without)
        tables += (tables.empty() ? "\"" : ",\"") + string(table.name) + R"(":{"columns":{)" +
                  columns + "}}";
    }
    return R"({"name":"hardware_vtep","version":")" + version + R"(","tables":{)" + tables + "}}";
  }

  static string server(const string& change, const string& columns) {
    const string tables = R"({"Database":{"83a5":{")" + change + "\":{" + columns + "}}}}";
    if (change == "initial") return R"({"id":"server","result":)" + tables + ",\"error\":null}";
    return R"({"id":null,"method":"update2","params":["server",)" + tables + "]}";
  }

  std::optional<Updates> updates;
};

constexpr const char* unknownMethod = R"({"id":"monitor","error":"unknown method"})";
constexpr const char* noQuorum = R"("connected":false)";
constexpr const char* quorum = R"("connected":true)";

TEST(ProtocolTest, AsksForWhatIsMonitoredAndFollows) {
  Talk talk;
  EXPECT_EQ(talk.open(),
            R"({"method":"monitor_cond_since","params":["hardware_vtep","monitor",{)"
            R"("Logical_Switch":[{"columns":["name","tunnel_key","replication_mode"]}],)"
            R"("Physical_Port":[{"columns":["name","vlan_bindings"]}],)"
            R"("Physical_Switch":[{"columns":["name","tunnel_ips","ports"]}],)"
            R"("Physical_Locator":[{"columns":["dst_ip","encapsulation_type"]}],)"
            R"("Physical_Locator_Set":[{"columns":["locators"]}],)"
            R"("Ucast_Macs_Remote":[{"columns":["MAC","locator","logical_switch"]}],)"
            R"("Mcast_Macs_Remote":[{"columns":["MAC","locator_set","logical_switch"]}]},)"
            R"("00000000-0000-0000-0000-000000000000"],"id":"monitor"})");
  EXPECT_EQ(talk.protocol.state(), SessionState::syncing);
  EXPECT_EQ(
      talk.say(R"({"id":"monitor","result":[false,"t1",{"Logical_Switch":{}}],"error":null})"), "");
  EXPECT_EQ(talk.told(), R"(whole differences {"Logical_Switch":{}})");
  EXPECT_EQ(talk.protocol.state(), SessionState::inSync);
  const std::optional<Updates> kept = std::move(talk.updates);
  talk.say(
      R"({"id":null,"method":"update3","params":["monitor","t2",{"Physical_Port":{"u":{"delete":null}}}]})");
  EXPECT_EQ(talk.told(), R"(change differences {"Physical_Port":{"u":{"delete":null}}})");
  EXPECT_EQ(simdjson::minify(kept->tables), R"({"Logical_Switch":{}})");  // outlives the next

  // Again: from there on.
  EXPECT_THAT(talk.open(), EndsWith(R"(,"t2"],"id":"monitor"})"));
  talk.say(R"({"id":"monitor","result":[true,"t3",{"Physical_Port":{}}],"error":null})");
  EXPECT_EQ(talk.told(), R"(change differences {"Physical_Port":{}})");
  EXPECT_THAT(talk.open(), EndsWith(R"(,"t3"],"id":"monitor"})"));
  talk.say(R"({"id":"monitor","result":[false,"t9",{}],"error":null})");
  EXPECT_EQ(talk.told(), "whole differences {}");
  talk.protocol.forget();
  EXPECT_THAT(talk.open(), EndsWith(R"(,"00000000-0000-0000-0000-000000000000"],"id":"monitor"})"));
}

// What is resumed is what was left: the same database, the same columns, nothing missed.
TEST(ProtocolTest, AsksForAllWhereItIsAnother) {
  const auto isResumed = [](const string& request) {
    return request.find("\"t1\"") != string::npos;
  };
  Talk talk;
  talk.sync("t1");
  EXPECT_TRUE(isResumed(talk.open()));
  EXPECT_FALSE(isResumed(talk.open(R"(["uuid","bbbb"])")));
  talk.sync("t1");
  EXPECT_FALSE(isResumed(talk.open(R"(["uuid","aaaa"])", "1.8.0")));
  talk.sync("t1");
  EXPECT_FALSE(isResumed(talk.open(R"(["uuid","aaaa"])", "1.7.0", false)));

  // A member that does not number its transactions came in between.
  talk.sync("t1");
  EXPECT_TRUE(isResumed(talk.open()));
  EXPECT_THAT(talk.say(unknownMethod),
              HasSubstr(R"("method":"monitor_cond","params":["hardware_vtep","monitor",{"Log)"));
  talk.say(R"({"id":"monitor","result":{},"error":null})");
  EXPECT_EQ(talk.told(), "whole differences {}");
  EXPECT_FALSE(isResumed(talk.open()));
}

TEST(ProtocolTest, FallsBackToOlderMonitors) {
  Talk talk;
  talk.open();
  talk.say(unknownMethod);
  EXPECT_THAT(talk.say(R"({"id":"monitor","result":null,"error":{"error":"unknown"}})"),
              HasSubstr(R"("method":"monitor","params":["hardware_vtep","monitor",{"Log)"));
  talk.say(R"({"id":"monitor","result":{"Physical_Port":{}},"error":null})");
  EXPECT_EQ(talk.told(), R"(whole rows {"Physical_Port":{}})");
  talk.say(R"({"id":null,"method":"update","params":["monitor",{}]})");
  EXPECT_EQ(talk.told(), "change rows {}");

  talk.open();
  talk.say(unknownMethod);
  talk.say(R"({"id":"monitor","result":{},"error":null})");
  talk.say(R"({"id":null,"method":"update2","params":["monitor",{"T":{}}]})");
  EXPECT_EQ(talk.told(), R"(change differences {"T":{}})");

  talk.open();
  talk.say(unknownMethod);
  talk.say(unknownMethod);
  EXPECT_EQ(failureOf([&] { talk.say(unknownMethod); }),
            "\"unknown method\": expected the server to allow a monitor");
}

TEST(ProtocolTest, ChecksTheSchema) {
  const auto answer = [](const string& reply) {
    Talk talk;
    talk.protocol.open();
    return failureOf([&] { talk.say(R"({"id":"schema",)" + reply + "}"); });
  };
  EXPECT_EQ(answer(R"("error":{"error":"unknown database","details":"no hardware_vtep"})"),
            "unknown database: no hardware_vtep: expected the schema of hardware_vtep");
  EXPECT_EQ(answer(R"("result":)" + Talk::schema("0.9", true, "tunnel_key")),
            "schema version 0.9: expected one that has Logical_Switch.tunnel_key");
  EXPECT_EQ(answer(R"("result":)" + Talk::schema("0.9", true, "Physical_Port")),
            "schema version 0.9: expected one that has Physical_Port");
  EXPECT_NE(answer(R"("result":{})"), "none");
  EXPECT_NE(answer(R"("result":[])"), "none");
  Talk older;
  const string request = older.open("[]", "1.3.0", false);
  EXPECT_THAT(request, HasSubstr(R"({"columns":["name","tunnel_key"]})"));
}

TEST(ProtocolTest, MindsTheQuorum) {
  Talk talk;
  const auto openSchema = [&] {
    talk.protocol.open();
    talk.say(R"({"id":"schema","result":)" + Talk::schema("1", true) + "}");
  };
  openSchema();
  // False is what a boolean is by default, and is not told of a new row.
  EXPECT_EQ(talk.say(Talk::server("initial", R"("name":"hardware_vtep")")), "");
  EXPECT_EQ(talk.protocol.state(), SessionState::noQuorum);
  EXPECT_EQ(talk.say(Talk::server("modify", R"("leader":false)")), "");
  EXPECT_EQ(talk.protocol.state(), SessionState::noQuorum);
  EXPECT_THAT(talk.say(Talk::server("modify", quorum)), HasSubstr("monitor_cond_since"));
  EXPECT_EQ(talk.protocol.state(), SessionState::syncing);

  // Lost while the reply is on its way, and later.
  talk.say(Talk::server("modify", noQuorum));
  talk.say(R"({"id":"monitor","result":[false,"t1",{}],"error":null})");
  EXPECT_EQ(talk.told(), "whole differences {}");
  EXPECT_EQ(talk.protocol.state(), SessionState::noQuorum);
  EXPECT_EQ(talk.say(Talk::server("modify", quorum)), "");
  EXPECT_EQ(talk.protocol.state(), SessionState::inSync);
  talk.say(Talk::server("modify", noQuorum));
  EXPECT_EQ(talk.protocol.state(), SessionState::noQuorum);

  // A server without _Server stands alone.
  openSchema();
  EXPECT_THAT(talk.say(R"({"id":"server","error":{"error":"unknown database"}})"),
              HasSubstr("monitor_cond_since"));
}

// The database goes, or is no longer the same.
TEST(ProtocolTest, GivesUpADatabaseThatIsLost) {
  const string serverRow =
      R"({"id":null,"method":"update2","params":["server",{"Database":{"83a5":)";
  const std::vector<string> frames = {
      R"({"id":null,"method":"monitor_canceled","params":["monitor"]})",
      serverRow + R"({"delete":null}}}]})", Talk::server("modify", R"("cid":["uuid","bbbb"])")};
  for (const string& frame : frames) {
    Talk talk;
    talk.sync("t1");
    EXPECT_NE(failureOf([&] { talk.say(frame); }), "none") << frame;
  }
  Talk talk;
  talk.protocol.open();
  talk.say(R"({"id":"schema","result":)" + Talk::schema("1", true) + "}");
  EXPECT_NE(failureOf([&] { talk.say(R"({"id":"server","result":{},"error":null})"); }), "none");
}

TEST(ProtocolTest, AnswersEchoesAndIgnoresWhatItDoesNotKnow) {
  Talk talk;
  talk.sync("t1");
  EXPECT_EQ(talk.say(R"({"id":"echo","method":"echo","params":["a\"",[1.5]]})"),
            R"({"id":"echo","result":["a\"",[1.5]],"error":null})");
  for (const string_view ignored :
       {R"({"id":null,"method":"echo","params":[]})", R"({"id":1,"method":"echo"})",
        R"({"id":"any","result":[],"error":null})", R"({"id":"nobody","result":{}})",
        R"({"id":"schema","result":{}})", R"({"id":"monitor","result":[false,"x",{}]})",
        R"({"id":7,"error":"x"})", R"({})", R"({"method":"steal","params":["lock"]})",
        R"({"method":"update3","params":["other","t5",{"T":{}}]})",
        R"({"method":"update2","params":[]})", R"({"method":"update2"})",
        R"({"method":"monitor_canceled","params":["other"]})"}) {
    EXPECT_EQ(talk.say(string(ignored)), "") << ignored;
    EXPECT_EQ(talk.told(), "nothing") << ignored;
    EXPECT_EQ(talk.protocol.state(), SessionState::inSync);
  }
  EXPECT_THAT(talk.open(), HasSubstr("\"t1\""));
}

TEST(ProtocolTest, NonsenseEndsTheConnection) {
  for (const string_view frame : {R"({"method":"update3","params":["monitor","t5"]})",
                                  R"({"method":"update3","params":["monitor",5,{}]})",
                                  R"({"method":"update3","params":["monitor","t5",[]]})",
                                  R"({"method":"update2","params":["monitor",{}]})",
                                  R"({"method":"update2","params":["server",[]]})", R"({"a" 1})",
                                  "{\"a\":\"\x01\"}", "{\"a\":\"\xff\"}", R"({]})"}) {
    Talk talk;
    talk.sync("t1");
    EXPECT_NE(failureOf([&] { talk.say(string(frame)); }), "none") << frame;
  }
  for (const string_view frame :
       {R"({"id":"monitor","result":{}})", R"({"id":"monitor","result":[false,"t1"]})",
        R"({"id":"monitor","result":[1,"t1",{}]})", R"({"id":"monitor","result":[false,1,{}]})",
        R"({"id":"monitor","result":[false,"t1",[]]})",
        R"({"id":"monitor","result":[true,"t1",{}]})",  // nothing was known
        R"({"method":"update3","params":["monitor","t1",{}]})"}) {
    Talk talk;
    talk.open();
    EXPECT_NE(failureOf([&] { talk.say(string(frame)); }), "none") << frame;
  }
}

// A session, and what it tells.
class SessionTest : public testing::Test, public SessionListener {
 protected:
  SessionTest() {
    options_.probeInterval = 0.2;
    options_.shortestBackoff = 0.01;
    options_.longestBackoff = 0.05;
  }

  void follow(const string& remotes) {
    options_.remotes = parseRemotes(remotes);
    session_.emplace(io_, options_, *this, problems_);
    session_->start();
  }

  template <class Condition>
  void waitUntil(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition() && std::chrono::steady_clock::now() < end) io_.run_one_until(end);
    ASSERT_TRUE(condition()) << told_ << "; " << (session_ ? session_->lastWord() : "");
  }
  void waitFor(const string& text) {
    waitUntil([&] { return told_.find(text) != string::npos; });
    told_.clear();
  }
  void waitForProblem(const string& text) {
    waitUntil([&] { return raised_.find(text) != string::npos; });
    raised_.clear();
  }

  void inSyncLost(const string& why) override { told_ += "lost (" + why + ") "; }
  void updatesArrived(Updates updates) override {
    told_ += updates.whole ? "whole " : "change ";
    tables_ = simdjson::minify(updates.tables);
    if (std::exchange(resyncs_, false)) session_->resync("expected a row that is known");
  }
  void caughtUp() override {
    told_ += "caught up ";
    EXPECT_TRUE(problems_.all().empty());
  }

  TemporaryDirectory directory_;
  OvsdbServer server_{directory_.file("a")};
  asio::io_context io_;
  SessionOptions options_;
  Problems problems_{[this](const string& what, const Problem& problem) {
    raised_ += what + ": " + problem.value + ": " + problem.why + "\n";
  }};
  std::optional<Session> session_;
  string told_;
  string raised_;
  string tables_;  // of the last updates
  bool resyncs_ = false;
};

string insertSwitch(const string& name) {
  return R"({"op":"insert","table":"Logical_Switch","row":{"name":")" + name + "\"}}";
}

TEST_F(SessionTest, FollowsAServerThatComesAndGoes) {
  follow(server_.remote());
  waitForProblem("database " + server_.remote() + ": No such file or directory");
  EXPECT_EQ(session_->state(), SessionState::connecting);
  EXPECT_EQ(told_, "");
  server_.makeAlone();
  server_.start();
  waitFor("whole caught up ");
  EXPECT_EQ(session_->state(), SessionState::inSync);
  server_.transact(insertSwitch("one"));
  waitFor("change ");
  EXPECT_THAT(tables_, HasSubstr(R"("insert":{"name":"one"})")) << tables_;

  server_.stop();
  waitFor("lost (");
  EXPECT_FALSE(problems_.all().empty());
  server_.start();
  waitFor("whole caught up ");
  EXPECT_THAT(tables_, HasSubstr(R"("initial":{"name":"one"})")) << tables_;

  server_.tell({"ovsdb-server/remove-db", "hardware_vtep"});
  waitFor("lost (");
  waitForProblem("unknown database");
  EXPECT_EQ(session_->state(), SessionState::connecting);
  session_->stop();
  told_.clear();
  io_.restart();
  io_.run();  // there is nothing to be done any more
  EXPECT_EQ(told_, "");
}

TEST_F(SessionTest, RefusesAnotherSchemaUntilItIsMended) {
  std::ifstream in(OvsdbServer::schema);
  std::stringstream text;
  text << in.rdbuf();
  string schema = text.str();
  for (std::size_t at = 0; (at = schema.find("\"tunnel_ips\"", at)) != string::npos;)
    schema.replace(at, 12, "\"tunnel_xxx\"");
  std::ofstream(directory_.file("schema")) << schema;
  server_.makeAlone(directory_.file("schema"));
  server_.start();
  follow(server_.remote());
  waitForProblem("schema version 1.7.0: expected one that has Physical_Switch.tunnel_ips");
  EXPECT_EQ(told_, "");
  server_.stop();
  server_.makeAlone();
  server_.start();
  waitFor("whole caught up ");
}

TEST_F(SessionTest, LeavesAFrozenServerForTheNext) {
  OvsdbServer other(directory_.file("b"));
  server_.makeAlone();
  server_.start();
  other.makeAlone();
  follow(server_.remote() + ',' + other.remote());
  waitFor("whole caught up ");
  EXPECT_EQ(session_->remote().text(), server_.remote());
  // Silence alone is no reason: a quiet server answers the probes.
  const auto quiet = session_->since();
  waitUntil([&] { return std::chrono::system_clock::now() - quiet > std::chrono::seconds(1); });
  EXPECT_EQ(session_->since(), quiet);
  other.start();
  server_.freeze();
  waitFor("lost (silence: expected an answer to the probe) whole caught up ");
  EXPECT_EQ(session_->remote().text(), other.remote());
}

TEST_F(SessionTest, ResumesWhereAClusterKnowsTheLastTransaction) {
  server_.makeCluster();
  server_.start();
  follow(server_.remote());
  waitFor("whole caught up ");
  server_.transact(insertSwitch("one"));
  waitFor("change ");
  server_.tell({"ovsdb-server/reconnect"});
  waitFor("change caught up ");
  EXPECT_EQ(tables_, "{}");
  // What came does not fit what the listener knows.
  resyncs_ = true;
  server_.transact(insertSwitch("two"));
  waitFor("change lost (state out of step: expected a row that is known) whole caught up ");
  EXPECT_THAT(tables_, HasSubstr("\"two\""));
}

TEST_F(SessionTest, SpeaksTlsWithWhomTheAuthorityKnows) {
  const auto key = [&](const string& name) {
    Process::run({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
                  "-nodes", "-subj", "/CN=" + name, "-keyout", directory_.file(name + ".key"),
                  "-out", directory_.file(name + ".pem")});
  };
  key("ours");
  key("foreign");
  string port;
  {
    asio::ip::tcp::acceptor free(io_, {asio::ip::address_v4::loopback(), 0});
    port = std::to_string(free.local_endpoint().port());
  }
  const string file = directory_.file("ours");
  server_.makeAlone();
  server_.start({"--remote=pssl:" + port + ":127.0.0.1", "--private-key=" + file + ".key",
                 "--certificate=" + file + ".pem", "--ca-cert=" + file + ".pem"});
  EXPECT_THROW(follow("ssl:localhost:" + port), InputError);
  options_.tls = {file + ".key", file + ".pem", directory_.file("foreign.pem")};
  follow("ssl:localhost:" + port);
  waitForProblem("certificate verify failed");
  EXPECT_EQ(told_, "");
  options_.tls.caCertificate = file + ".pem";
  follow("ssl:localhost:" + port);
  waitFor("whole caught up ");
}

// Servers that are none: each is dropped with a word, and the next one is followed.
TEST_F(SessionTest, DropsWhoTalksNonsense) {
  options_.limits = {10000, 100};
  server_.makeAlone();
  server_.start();
  const auto meet = [&](const string& bytes, const string& problem) {
    SCOPED_TRACE(problem);
    const string path = directory_.file("fake");
    std::filesystem::remove(path);
    asio::local::stream_protocol::acceptor acceptor(io_, path);
    asio::local::stream_protocol::socket peer(io_);
    acceptor.async_accept(peer, [&](const std::error_code& error) {
      if (!error) asio::async_write(peer, asio::buffer(bytes), [](auto...) {});
    });
    follow("unix:" + path + ',' + server_.remote());
    waitForProblem("database unix:" + path + ": " + problem);
    waitFor("whole caught up ");
    session_.reset();
  };
  meet("SSH-2.0\r\n", "SSH-2.0\r\n: expected a JSON object");
  meet("{\"id\":\"x\",\"result\":\"" + string(1 << 20, 'x'), "{\"id\":\"x\"");
  meet(string(100000, '{'), "{");
  meet("{\"id\" 1}", "{\"id\" 1}: expected JSON");
  meet("", "silence: expected an answer to the probe");
}

}  // namespace
