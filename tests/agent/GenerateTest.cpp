// The generator: its journals hold together, and are the same everywhere.
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "agent/Check.h"
#include "agent/Generate.h"

namespace {

using Agent::GenerateOptions;

std::string generated(const GenerateOptions& options) {
  std::ostringstream out;
  Agent::generate(options, out);
  return out.str();
}

TEST(Generate, MakesJournalsThatTheReaderTakes) {
  for (const GenerateOptions& options :
       {GenerateOptions{}, GenerateOptions{1, 0, 1, 5, 1, 7}, GenerateOptions{4094, 1, 3, 10, 2, 0},
        GenerateOptions{3, 50, 1, 20, 3, 9}}) {
    std::istringstream in(generated(options));
    Agent::Journal journal(in, "generated");
    const auto result =
        Agent::check(journal, [](const std::string& complaint) { ADD_FAILURE() << complaint; });
    const std::uint64_t hosts = std::uint64_t{options.vnis} * options.hostsPerVni;
    EXPECT_GE(result.lines, hosts + (hosts > 0 ? options.moves : 0) + 2 * options.restarts);
  }
}

TEST(Generate, MovesHostsAndLeavesSomeBehindInARestart) {
  std::istringstream in(generated({4, 100, 8, 50, 2, 3}));
  Agent::Journal journal(in, "generated");
  std::map<std::string, std::pair<Vorn::IpAddr, std::uint32_t>> hosts;
  std::map<std::string, std::size_t> hostsAtDump;
  std::size_t moves = 0;
  const auto keyOf = [](const auto& target) {
    return target.name.stringValue() + target.mac.stringValue();
  };
  while (const auto line = journal.next()) {
    if (const auto* dump = std::get_if<Agent::Dump>(&line->action))
      hostsAtDump[dump->label] = hosts.size();
    const auto* change = std::get_if<Agent::Change>(&line->action);
    if (change == nullptr) continue;
    if (const auto* set = std::get_if<Agent::Set<Agent::ControllerHost>>(change)) {
      auto& [vtep, moveCount] = hosts[keyOf(set->target)];
      if (set->value.moveCount > moveCount) {
        ++moves;
        EXPECT_NE(set->value.vtep, vtep);
      }
      std::tie(vtep, moveCount) = std::pair(set->value.vtep, set->value.moveCount);
    }
    if (const auto* del = std::get_if<Agent::Del<Agent::ControllerHost>>(change)) {
      EXPECT_EQ(hosts.erase(keyOf(del->target)), 1U) << "only hosts that are there go";
    }
  }
  EXPECT_EQ(hostsAtDump["loaded"], 400U);
  EXPECT_GE(moves, 50U) << "those that come back after a move count again";
  EXPECT_LT(hostsAtDump["restart-1"], hostsAtDump["converged-1"]);
  EXPECT_LT(hostsAtDump["converged-1"], 400U);
  EXPECT_LT(hostsAtDump["converged-2"], hostsAtDump["converged-1"]);
}

TEST(Generate, DependsOnItsOptionsAlone) {
  GenerateOptions options;
  const std::string first = generated(options);
  EXPECT_EQ(first, generated(options));
  options.seed = 2;
  EXPECT_NE(first, generated(options));
  // The generator of random numbers is fixed by its standard, so this line is the same everywhere.
  EXPECT_NE(
      first.find(R"("set":"controller/10001/host/02:00:00:00:00:00","value":{"vtep":"10.1.0.)"),
      std::string::npos);
}

TEST(Generate, RefusesWhatNoSwitchHas) {
  for (const GenerateOptions& options :
       {GenerateOptions{.vnis = 0}, GenerateOptions{.vnis = 4095}, GenerateOptions{.vteps = 0},
        GenerateOptions{.hostsPerVni = (1 << 24) + 1}})
    EXPECT_THROW(generated(options), std::invalid_argument);
}

}  // namespace
