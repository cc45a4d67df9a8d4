// The generator: its journals hold together, and are the same everywhere.
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>
#include <string>

#include "agent/journal/Check.h"
#include "agent/journal/Generate.h"
#include "tests/agent/Golden.h"

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
    const auto result = Agent::check(
        journal, [](const Agent::Complaint& complaint) { ADD_FAILURE() << complaint.text; });
    const std::uint64_t hosts = std::uint64_t{options.vnis} * options.hostsPerVni;
    EXPECT_GE(result.lines, hosts + (hosts > 0 ? options.moves : 0) + 2 * options.restarts);
  }
}

// The random numbers are fixed by their standard: the text is the same everywhere.
TEST(Generate, DependsOnItsOptionsAlone) {
  const GenerateOptions options{2, 20, 3, 6, 2, 5};
  AgentTest::expectGolden("generated.jsonl",
                          AgentTest::linesOf(std::istringstream(generated(options))));
  EXPECT_EQ(generated({}), generated({}));
  EXPECT_NE(generated({.seed = 1}), generated({.seed = 2}));
}

TEST(Generate, RefusesWhatNoSwitchHas) {
  for (const GenerateOptions& options :
       {GenerateOptions{.vnis = 0}, GenerateOptions{.vnis = 4095}, GenerateOptions{.vteps = 0},
        GenerateOptions{.vteps = 65535}, GenerateOptions{.hostsPerVni = (1 << 24) + 1}})
    EXPECT_THROW(generated(options), std::invalid_argument);
}

}  // namespace
