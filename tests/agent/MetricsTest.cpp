// Metrics as they are written, what of them is wanted, and what is counted for them.
#include <gtest/gtest.h>
#include <string>
#include <utility>

#include "agent/metrics/Exposition.h"
#include "agent/store/EmbeddedClient.h"
#include "agent/watch/HostDeletions.h"

namespace {

using namespace Agent::Metrics;  // NOLINT(google-build-using-namespace): all of it is tested
using std::string;

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

}  // namespace
