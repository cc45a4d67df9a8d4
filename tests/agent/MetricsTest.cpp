// Metrics as they are written, what of them is wanted, where they are served, and what is counted
// for them. What an agent says is in tests/live.
#include <asio/io_context.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include "agent/base/InputError.h"
#include "agent/live/AgentMetrics.h"
#include "agent/metrics/Exposition.h"
#include "agent/metrics/ScrapeServer.h"
#include "agent/store/EmbeddedClient.h"
#include "agent/watch/HostDeletions.h"

namespace {

using namespace Agent::Metrics;  // NOLINT(google-build-using-namespace): all of it is tested
using std::string;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

string written(Dialect dialect) {
  Exposition out(dialect);
  out.info("x_build", "The program.", {{"version", "1\"2\\3\n\x1b[m\xff"}, {"os", ""}});
  out.gauge("x_size_bytes", "Its size.", 1e15);
  out.begin(Type::counter, "x_cpu_seconds", "Time.");
  out.sample(1e-5, {{"kind", "a"}});
  out.sample(2, {{"kind", "b"}});
  out.begin(Type::gauge, "x_nothing", "None.");
  out.begin(Type::histogram, "x_turns", "Turns.");
  Histogram turns({0.0001, 0.5});
  for (const double each : {0.0, 0.0001, 0.00011, 0.5, 0.75}) turns.observe(each);
  out.sample(turns, {{"kind", "a"}});
  return std::move(out).text();
}

TEST(ExpositionTest, IsWrittenInEitherDialect) {
  const string samples[] = {
      // What no terminal may be given as \xNN, and then what the format wants escaped.
      R"(x_build_info{version="1\"2\\3\\x0A\\x1B[m\\xFF",os=""} 1)",
      "x_size_bytes 1000000000000000",
      "x_cpu_seconds_total{kind=\"a\"} 0.00001\nx_cpu_seconds_total{kind=\"b\"} 2",
      "x_turns_bucket{kind=\"a\",le=\"0.0001\"} 2\n"
      "x_turns_bucket{kind=\"a\",le=\"0.5\"} 4\n"
      "x_turns_bucket{kind=\"a\",le=\"+Inf\"} 5\n"
      "x_turns_sum{kind=\"a\"} 1.25021\n"
      "x_turns_count{kind=\"a\"} 5"};
  EXPECT_EQ(written(Dialect::text),
            "# TYPE x_build_info gauge\n# HELP x_build_info The program.\n" + samples[0] +
                "\n# TYPE x_size_bytes gauge\n# HELP x_size_bytes Its size.\n" + samples[1] +
                "\n# TYPE x_cpu_seconds_total counter\n# HELP x_cpu_seconds_total Time.\n" +
                samples[2] + "\n# TYPE x_nothing gauge\n# HELP x_nothing None.\n" +
                "# TYPE x_turns histogram\n# HELP x_turns Turns.\n" + samples[3] + "\n");
  EXPECT_EQ(written(Dialect::openMetrics),
            "# TYPE x_build info\n# HELP x_build The program.\n" + samples[0] +
                "\n# TYPE x_size_bytes gauge\n# UNIT x_size_bytes bytes\n"
                "# HELP x_size_bytes Its size.\n" +
                samples[1] +
                "\n# TYPE x_cpu_seconds counter\n# UNIT x_cpu_seconds seconds\n"
                "# HELP x_cpu_seconds Time.\n" +
                samples[2] + "\n# TYPE x_nothing gauge\n# HELP x_nothing None.\n" +
                "# TYPE x_turns histogram\n# HELP x_turns Turns.\n" + samples[3] + "\n# EOF\n");
}

TEST(ExpositionTest, IsInTheDialectThatIsWanted) {
  for (const auto* const accept :
       {"application/openmetrics-text", "text/html, Application/OpenMetrics-Text ; Version=1.0.0",
        "application/openmetrics-text;version=1.0.0,application/openmetrics-text;version=0.0.1;"
        "q=0.75,text/plain;version=0.0.4;q=0.5,*/*;q=0.1",
        "text/plain;q=0.5,application/openmetrics-text;q=0.5"})
    EXPECT_EQ(dialectFor(accept), Dialect::openMetrics) << accept;
  for (const auto* const accept :
       {"", ",;=,", "*/*", "text/plain", "application/openmetrics-text;version=2.0.0",
        "application/openmetrics-text;q=0", "application/openmetrics-textual",
        "application/openmetrics-text;q=0.4,text/plain;version=0.0.4;q=0.5",
        "application/openmetrics-text;version=0.0.1,text/plain;q=0.1"})
    EXPECT_EQ(dialectFor(accept), Dialect::text) << accept;
}

TEST(EndpointTest, IsAnAddressAndAPort) {
  const auto parsed = [](const string& text) -> string {
    try {
      std::ostringstream out;
      out << parseEndpoint(text);
      return out.str();
    } catch (const Agent::InputError& error) {
      return error.what();
    }
  };
  for (const auto& [text, endpoint] : {std::pair("9472", "127.0.0.1:9472"),
                                       {":1", "127.0.0.1:1"},
                                       {"localhost:65535", "127.0.0.1:65535"},
                                       {"0.0.0.0:9472", "0.0.0.0:9472"},
                                       {"[::1]:9472", "[::1]:9472"}})
    EXPECT_EQ(parsed(text), endpoint);
  const string port = "a port from 1 to 65535 at the end";
  const string address = "an IPv4 address, an IPv6 address or localhost before the port";
  for (const auto& [text, expected] : {std::pair<string, string>("", port),
                                       {"0", port},
                                       {"65536", port},
                                       {"+1", port},
                                       {"094720", port},
                                       {"127.0.0.1", port},
                                       {"127.0.0.1:", port},
                                       {"banana:9472", address},
                                       {"127.0.0.256:9472", address},
                                       {"::1:9472", "an IPv6 address in brackets"},
                                       {"[]:9472", "a host's name or address before the port"}})
    EXPECT_EQ(parsed(text), "metrics \"" + text + "\": expected " + expected);
}

TEST(HostDeletionsTest, AreAtOnceOrInBatches) {
  Agent::EmbeddedClient embedded({});
  const Agent::FloodDests floodDests(embedded.store().zepSde, {});
  const Agent::BatchWatch batches(
      embedded, floodDests, [] { return 0; }, [](const auto&) {});
  const auto& input = embedded.store().l2RibZepInput;
  const auto key = [](unsigned mac) {
    return Bridging::MacVlanPair{Vorn::EthAddr::fromValue(mac), Bridging::VlanId(10)};
  };
  L2Rib::Host host;
  const auto add = [&](unsigned mac) {
    host.key = key(mac);
    input->hostIs(host);
  };
  add(1);
  const auto deletions = Moru::create<Agent::HostDeletions>(input, batches);
  for (const unsigned mac : {2, 3, 3, 4}) add(mac);
  for (const unsigned mac : {1, 9, 3, 3}) input->hostDel(key(mac));
  EXPECT_EQ(deletions->atOnce(), 2);
  EXPECT_EQ(deletions->deferred(), 0);
}

struct Nobody final : Agent::Ovsdb::SessionListener {
  void inSyncLost(const string&) override {}
  void updatesArrived(Agent::Ovsdb::Updates) override {}
  void caughtUp() override {}
};

// What cannot be brought about at will in an agent that runs.
TEST(AgentMetricsTest, TellOfWhatIsUnderWayAndOfNoMoreThanThereIs) {
  Agent::EmbeddedClient embedded(0.5);
  embedded.start();
  Agent::Problems problems([](const auto&, const auto&) {});
  const Agent::WithdrawalGate gate({}, [](const auto&) {});
  asio::io_context io;
  Nobody nobody;
  const Agent::Ovsdb::Session session(io, {Agent::Ovsdb::parseRemotes("unix:/nowhere"), {}}, nobody,
                                      problems);
  const Agent::Recording recording({}, {}, problems);
  Agent::Activity activity;
  const Agent::Witness witness(embedded, {}, [] { return Agent::Witness::Moment(); },
                               {.event = [](const auto&) {}});
  const std::optional<Agent::Programming> programming;
  const Agent::AgentMetrics metrics({"tor\n1", "0", embedded, gate, session, problems, recording,
                                     witness, activity, programming});
  const auto text = [&] { return metrics.text(Dialect::text); };
  const auto underWay = [&](bool unicast, bool bum) {
    const string name = "\nvxlan_agent_deferred_deletion_in_progress";
    return AllOf(HasSubstr(name + "{kind=\"unicast\"} " + std::to_string(unicast) + "\n"),
                 HasSubstr(name + "{kind=\"bum\"} " + std::to_string(bum) + "\n"));
  };
  const auto& status = embedded.store().zepConvergenceStatus;
  EXPECT_THAT(text(), underWay(false, false));
  status->unicastDeferredDeletionInProgressIs(true);
  EXPECT_THAT(text(), underWay(true, false));
  status->unicastDeferredDeletionInProgressIs(false);
  status->bumDeferredDeletionInProgressIs(true);
  EXPECT_THAT(text(), underWay(false, true));
  EXPECT_THAT(text(), HasSubstr("\nvxlan_agent_deletion_batch_budget_seconds 0.5\n"));
  EXPECT_THAT(text(), HasSubstr("_switch_info{switch=\"tor\\\\x0A1\",data_plane=\"none\"} 1\n"));
  activity.add({.kind = Agent::Batch::Kind::bum, .seconds = 0.011});
  const string batches = "\nvxlan_agent_deletion_batch_duration_seconds_";
  EXPECT_THAT(text(), AllOf(HasSubstr(batches + "bucket{kind=\"bum\",le=\"0.0105\"} 0\n"),
                            HasSubstr(batches + "bucket{kind=\"bum\",le=\"0.011\"} 1\n"),
                            HasSubstr(batches + "count{kind=\"unicast\"} 0\n")));
  for (const auto* const absent : {"_kernel_", "_recording_", "_trace_ring_"})
    EXPECT_THAT(text(), Not(HasSubstr(absent)));
}

}  // namespace
