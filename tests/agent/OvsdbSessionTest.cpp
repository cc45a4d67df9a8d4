// The session with an OVSDB database: frames, remotes, what is said (recorded), and its probes. The
// rest of how it lives with servers is seen with real ones, in tests/live.
#include <algorithm>
#include <array>
#include <asio/buffer.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>
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

namespace {

using Agent::InputError;
using namespace Agent::Ovsdb;  // NOLINT(google-build-using-namespace): all of it is tested
using std::string;
using std::string_view;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

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

string swapped(string text, char from, char to) {
  std::replace(text.begin(), text.end(), from, to);
  return text;
}

// A conversation with a recorded server. Its steps, with ' for ":
//
//   open                       a new connection
//   schema VERSION [NAME]      the schema that is monitored, but for that table or column
//   server CHANGE COLUMNS      what becomes of the database's row in _Server
//   connect [VERSION [NAME]]   these three, up to the request for the monitor
//   new|known TX TABLES        the reply to one that numbers transactions
//   all TABLES, unknown        replies to the other ones
//   {...}                      any frame
class Talk {
 public:
  // What comes of the steps: requests by name, updates, states, and what ends the connection.
  string play(const string& steps) {
    string all;
    std::istringstream in(steps);
    for (string step; std::getline(in >> std::ws, step, ';');) {
      const string outcome = take(step);
      if (!outcome.empty()) all += (all.empty() ? "" : "; ") + outcome;
    }
    return all;
  }

  Protocol protocol;
  string sent;  // by the last step
  std::optional<Updates> updates;

 private:
  string take(const string& step) {
    std::istringstream words(step);
    string verb;
    string first;
    string more;
    words >> verb >> first;
    std::getline(words >> std::ws, more);
    if (verb == "connect") {
      play("open; schema " + (first.empty() ? "1.7.0" : first) + ' ' + more);
      return take("server initial {'connected':true,'cid':['uuid','aaaa']}");
    }
    const SessionState before = protocol.state();
    string said;
    try {
      said = verb == "open"
                 ? saidBy({protocol.open(), {}})
                 : saidBy(protocol.receive(swapped(frame(step, verb, first, more), '\'', '"')));
    } catch (const Failure& failure) {
      return "ends, " + swapped(failure.value() + ": " + failure.what(), '"', '\'');
    }
    if (protocol.state() == before) return said;
    constexpr std::array names = {"connecting", "syncing", "in sync", "no quorum"};
    return said + (said.empty() ? "" : "; ") + names.at(static_cast<std::size_t>(protocol.state()));
  }

  static string frame(const string& step, const string& verb, const string& first,
                      const string& more) {
    const auto reply = [](const string& id, const string& result) {
      return "{'id':'" + id + "','result':" + result + ",'error':null}";
    };
    if (verb == "schema") return reply("schema", schema(first, more));
    if (verb == "new") return reply("monitor", "[false,'" + first + "'," + more + ']');
    if (verb == "known") return reply("monitor", "[true,'" + first + "'," + more + ']');
    if (verb == "all") return reply("monitor", first);
    if (verb == "unknown") return "{'id':'monitor','error':'unknown method'}";
    if (verb != "server") return step;
    const string tables = "{'Database':{'83a5':{'" + first + "':" + more + "}}}";
    if (first == "initial") return reply("server", tables);
    return "{'id':null,'method':'update2','params':['server'," + tables + "]}";
  }

  static string schema(const string& version, const string& without) {
    string tables;
    for (const TableSchema& table : monitoredTables) {
      string columns;
      for (const ColumnSchema& column : table.columns)
        if (column.name != without)
          columns += (columns.empty() ? "'" : ",'") + string(column.name) + "':{}";
      if (table.name != without)
        tables +=
            (tables.empty() ? "'" : ",'") + string(table.name) + "':{'columns':{" + columns + "}}";
    }
    return "{'name':'hardware_vtep','version':'" + version + "','tables':{" + tables + "}}";
  }

  string saidBy(Protocol::Outcome outcome) {
    sent = outcome.send;
    updates = std::move(outcome.updates);
    if (updates)
      return string(updates->whole ? "whole " : "change ") +
             (updates->form == Updates::Form::rows ? "rows " : "differences ") +
             swapped(simdjson::minify(updates->tables), '"', '\'');
    // Replies as they are; of requests, the methods, and the transaction that is known.
    if (!sent.starts_with("{\"method\"")) return swapped(sent, '"', '\'');
    string names;
    for (std::size_t at = 0; (at = sent.find("\"method\":\"", at)) != string::npos;) {
      at += 10;
      names += (names.empty() ? "" : " ") + sent.substr(at, sent.find('"', at) - at);
    }
    const std::size_t known = sent.find("}]},\"t");
    return known == string::npos ? names : names + " since " + sent.substr(known + 5, 2);
  }
};

using Exchanges = std::vector<std::pair<string, string>>;

void expectAll(Talk talk, const Exchanges& exchanges) {
  for (const auto& [steps, outcome] : exchanges) EXPECT_EQ(talk.play(steps), outcome) << steps;
}

TEST(ProtocolTest, AsksForWhatIsMonitored) {
  const string tables =
      R"(["hardware_vtep","monitor",{)"
      R"("Logical_Switch":[{"columns":["name","tunnel_key","replication_mode"]}],)"
      R"("Physical_Port":[{"columns":["name","vlan_bindings"]}],)"
      R"("Physical_Switch":[{"columns":["name","tunnel_ips","ports"]}],)"
      R"("Physical_Locator":[{"columns":["dst_ip","encapsulation_type"]}],)"
      R"("Physical_Locator_Set":[{"columns":["locators"]}],)"
      R"("Ucast_Macs_Remote":[{"columns":["MAC","locator","logical_switch"]}],)"
      R"("Mcast_Macs_Remote":[{"columns":["MAC","locator_set","logical_switch"]}]})";
  Talk talk;
  talk.play("open");
  EXPECT_EQ(talk.sent, R"({"method":"get_schema","params":["hardware_vtep"],"id":"schema"})");
  talk.play("schema 1.7.0");
  EXPECT_THAT(talk.sent, HasSubstr("\"_Server\""));
  talk.play("connect");
  EXPECT_EQ(talk.sent, R"({"method":"monitor_cond_since","params":)" + tables +
                           R"(,"00000000-0000-0000-0000-000000000000"],"id":"monitor"})");
  for (const string method : {"monitor_cond", "monitor"}) {
    talk.play("unknown");
    EXPECT_EQ(talk.sent,
              R"({"method":")" + method + R"(","params":)" + tables + R"(],"id":"monitor"})");
  }
  talk.play("connect 1.3.0 replication_mode");
  EXPECT_THAT(talk.sent, HasSubstr(R"({"columns":["name","tunnel_key"]})"));
}

TEST(ProtocolTest, FollowsAndResumesWhatWasLeft) {
  expectAll(
      {}, {{"open", "get_schema"},
           {"schema 1.7.0", "set_db_change_aware monitor_cond"},
           {"connect", "monitor_cond_since"},
           {"new t1 {'T':{}}", "whole differences {'T':{}}; in sync"},
           {"{'method':'update3','params':['monitor','t2',{'U':{'u':null}}]}",
            "change differences {'U':{'u':null}}"},
           {"open", "get_schema; syncing"},
           {"connect", "monitor_cond_since since t2"},
           {"known t3 {'T':{}}", "change differences {'T':{}}; in sync"},
           {"connect; new t9 {}", "monitor_cond_since since t3; whole differences {}; in sync"},
           // Another schema, other columns, another cluster.
           {"connect 1.8.0", "monitor_cond_since"},
           {"new t1 {}; connect 1.8.0 replication_mode",
            "whole differences {}; in sync; monitor_cond_since"},
           {"new t1 {}; open; schema 1.8.0 replication_mode",
            "whole differences {}; in sync; get_schema; syncing; set_db_change_aware monitor_cond"},
           {"server initial {'connected':true,'cid':['uuid','bbbb']}", "monitor_cond_since"},
           // A member that does not number its transactions comes in between.
           {"connect; new t1 {}; connect",
            "monitor_cond_since; whole differences {}; in sync; monitor_cond_since since t1"},
           {"unknown; all {'T':{}}", "monitor_cond; whole differences {'T':{}}; in sync"},
           {"{'method':'update2','params':['monitor',{}]}", "change differences {}"},
           {"connect; unknown", "monitor_cond_since; monitor_cond"},
           {"{'id':'monitor','result':null,'error':{'error':'unknown'}}", "monitor"},
           {"all {'T':{}}", "whole rows {'T':{}}; in sync"},
           {"{'method':'update','params':['monitor',{}]}", "change rows {}"},
           {"connect; unknown; unknown", "monitor_cond_since; monitor_cond; monitor"},
           {"unknown", "ends, 'unknown method': expected the server to allow a monitor"}});
  Talk talk;
  talk.play("connect; new t1 {'T':{}}");
  const std::optional<Updates> kept = std::move(talk.updates);
  EXPECT_EQ(talk.play("new t2 {}; {'method':'update3','params':['monitor','t2',{}]}"),
            "change differences {}");
  EXPECT_EQ(simdjson::minify(kept->tables), R"({"T":{}})");  // outlives the next
  talk.protocol.forget();
  EXPECT_EQ(talk.play("connect"), "monitor_cond_since");
}

TEST(ProtocolTest, MindsTheQuorum) {
  expectAll({},
            // False is what a boolean is by default, and is not told of a new row.
            {{"open; schema 1; server initial {'name':'hardware_vtep','cid':['uuid','a']}",
              "get_schema; set_db_change_aware monitor_cond; no quorum"},
             {"server modify {'leader':false}", ""},
             {"server modify {'connected':true}", "monitor_cond_since; syncing"},
             // Lost while the reply is on its way, and later.
             {"server modify {'connected':false}; new t1 {}", "no quorum; whole differences {}"},
             {"server modify {'connected':true}", "in sync"},
             {"server modify {'connected':false}", "no quorum"},
             {"open; schema 1", "get_schema; syncing; set_db_change_aware monitor_cond"},
             // A server without _Server stands alone.
             {"{'id':'server','error':{'error':'unknown database'}}", "monitor_cond_since"}});
}

TEST(ProtocolTest, EndsWhereSomethingMakesNoSense) {
  const string schema = "ends, schema version 0.9: expected one that has ";
  const std::vector<std::pair<string, Exchanges>> all = {
      {"open",
       {{"{'id':'schema','error':{'error':'unknown database','details':'no hardware_vtep'}}",
         "ends, unknown database: no hardware_vtep: expected the schema of hardware_vtep"},
        {"schema 0.9 tunnel_key", schema + "Logical_Switch.tunnel_key"},
        {"schema 0.9 Physical_Port", schema + "Physical_Port"},
        {"{'id':'schema','result':{}}", "ends, "},
        {"{'id':'schema','result':[]}", "ends, "}}},
      {"open; schema 1", {{"{'id':'server','result':{},'error':null}", "ends, no row of"}}},
      {"connect",
       {{"all {}", "ends, "},
        {"{'id':'monitor','result':[false,'t1']}", "ends, "},
        {"{'id':'monitor','result':[1,'t1',{}]}", "ends, "},
        {"{'id':'monitor','result':[false,1,{}]}", "ends, "},
        {"new t1 []", "ends, "},
        {"known t1 {}", "ends, "},  // nothing was
        {"{'method':'update3','params':['monitor','t1',{}]}", "ends, "}}},
      {"connect; new t1 {}",
       {{"{'method':'monitor_canceled','params':['monitor']}", "ends, monitor canceled"},
        {"server delete null", "ends, removed"},
        {"server modify {'cid':['uuid','bbbb']}", "ends, another cluster"},
        {"{'method':'update3','params':['monitor','t5']}", "ends, "},
        {"{'method':'update3','params':['monitor',5,{}]}", "ends, "},
        {"{'method':'update3','params':['monitor','t5',[]]}", "ends, "},
        {"{'method':'update2','params':['monitor',{}]}", "ends, "},
        {"{'method':'update2','params':['server',[]]}", "ends, "},
        {"{'a' 1}", "ends, "},
        {"{'a':'\x01'}", "ends, "},
        {"{'a':'\xff'}", "ends, "},
        {"{]}", "ends, "}}}};
  for (const auto& [before, frames] : all)
    for (const auto& [frame, outcome] : frames) {
      Talk talk;
      talk.play(before);
      EXPECT_THAT(talk.play(frame), StartsWith(outcome)) << frame;
    }
}

TEST(ProtocolTest, AnswersEchoesAndIgnoresWhatItDoesNotKnow) {
  Talk talk;
  talk.play("connect; new t1 {}");
  EXPECT_EQ(talk.play("{'id':['e',1],'method':'echo','params':['a\\n',[1.5]]}"),
            "{'id':['e',1],'result':['a\\n',[1.5]],'error':null}");
  for (const string ignored :
       {"{'id':null,'method':'echo','params':[]}", "{'id':1,'method':'echo'}",
        "{'id':'any','result':[],'error':null}", "{'id':'nobody','result':{}}",
        "{'id':'schema','result':{}}", "new x {}", "{'id':7,'error':'x'}", "{}",
        "{'method':'steal','params':['lock']}",
        "{'method':'update3','params':['other','t5',{'T':{}}]}", "{'method':'update2','params':[]}",
        "{'method':'update2'}", "{'method':'monitor_canceled','params':['other']}"})
    EXPECT_EQ(talk.play(ignored), "") << ignored;
  EXPECT_EQ(talk.play("connect"), "monitor_cond_since since t1");
}

struct NoListener final : SessionListener {
  void inSyncLost(const string&) override {}
  void updatesArrived(Updates) override {}
  void caughtUp() override {}
};

// A server that says nothing of itself: it answers so many probes.
struct QuietServer {
  void read() {
    socket.async_read_some(
        asio::buffer(bytes), [this](const std::error_code& error, std::size_t size) {
          if (error) return;
          if (string_view(bytes.data(), size).find("\"echo\"") != string_view::npos &&
              ++probes <= answers)
            asio::write(socket, asio::buffer(string_view(R"({"id":"any","result":[]})")));
          read();
        });
  }

  asio::local::stream_protocol::socket socket;
  int answers;
  int probes = 0;
  std::array<char, 4096> bytes{};
};

TEST(SessionTest, LeavesAServerThatDoesNotAnswerItsProbe) {
  const string path = testing::TempDir() + "quiet-" + std::to_string(getpid());
  asio::io_context io;
  asio::local::stream_protocol::acceptor acceptor(io, path);
  QuietServer server{asio::local::stream_protocol::socket(io), 2};
  acceptor.async_accept(server.socket, [&](const std::error_code&) { server.read(); });
  string told;
  Agent::Problems problems{[&](const string& what, const Agent::Problem& problem) {
    told += what + ": " + problem.value;
    io.stop();
  }};
  NoListener listener;
  SessionOptions options;
  options.remotes = parseRemotes("unix:" + path);
  options.probeInterval = 0.2;
  options.connectLimit = 0.1;  // which is over once it is made
  Session session(io, options, listener, problems);
  session.start();
  io.run_for(std::chrono::seconds(10));
  std::filesystem::remove(path);
  EXPECT_EQ(std::exchange(told, ""), "database unix:" + path + ": silence");
  EXPECT_EQ(server.probes, 3);
  session.stop();
  io.restart();
  io.run_for(std::chrono::seconds(10));  // nothing is left to be done
  EXPECT_EQ(told, "");
  session.start();
  io.restart();
  io.run_for(std::chrono::seconds(10));
  EXPECT_EQ(told, "database unix:" + path + ": No such file or directory");
  options.remotes = parseRemotes("ssl:localhost:6640");
  EXPECT_THROW(Session(io, options, listener, problems), InputError);  // no files for it
}

}  // namespace
