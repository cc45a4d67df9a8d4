// How a replay goes on and ends: exceptions, malformed lines, what does not come to rest, signals.
// What it prints is compared in golden/.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "agent/Replay.h"

namespace {

using Json = nlohmann::json;
using testing::HasSubstr;

// How much of what has been written is handed on.
class FlushedText : public std::stringbuf {
 public:
  std::string text;

 protected:
  int sync() override {
    text = str();
    return 0;
  }
};

struct Played {
  int status;
  std::vector<Json> lines;
  std::string errors;

  const Json& dump(const std::string& label) const {
    for (const Json& line : lines)
      if (line.value("dump", "") == label) return line;
    throw std::out_of_range("no dump " + label);
  }
};

class ReplayTest : public testing::Test {
 protected:
  ReplayTest() { options.output.format = Agent::Format::json; }
  ~ReplayTest() override {
    for (const char* const each : {"", "2"}) std::filesystem::remove(path_ + each);
  }

  Played play(const std::string& journal, const char* following = nullptr) {
    std::ofstream(path_) << journal;
    std::vector<std::string> paths{path_};
    if (following != nullptr) {
      std::ofstream(path_ + '2') << following;
      paths.push_back(path_ + '2');
    }
    std::ostream out(&flushed_);
    std::ostringstream errors;
    const int status = Agent::replayCommand(paths, options, std::nullopt, out, errors);
    Played played{status, {}, errors.str()};
    std::istringstream lines(flushed_.text);
    for (std::string line; std::getline(lines, line);) played.lines.push_back(Json::parse(line));
    flushed_.str("");
    return played;
  }

  // A switch in controller mode with VLAN 10 and VNI 10010, and a controller outside convergence.
  const std::string fabric = R"({"set":"hw/bum","value":{"bumReplicationMode":3}}
{"start":true}
{"set":"vti/Vxlan1","value":{"controllerClientMode":true,"localVtepAddr":"10.0.0.1","vccImportVlans":[10]}}
{"set":"vlanVniMap/Vxlan1/10","value":10010}
{"set":"controllerState/c","value":{"convergenceInProgress":false}}
{"set":"controller/10010/host/02:00:00:00:00:01","value":{"vtep":"10.0.0.2"}}
{"set":"controller/10010/flood/ff:ff:ff:ff:ff:ff","value":["10.0.0.3","10.0.0.2"]}
)";
  const std::string shrink =
      R"({"at":2,"set":"controllerState/c","value":{"convergenceInProgress":true}}
{"del":"controller/10010/host/02:00:00:00:00:01"}
{"set":"controller/10010/flood/ff:ff:ff:ff:ff:ff","value":["10.0.0.3","10.0.0.4"]}
{"at":3,"set":"controllerState/c","value":{"convergenceInProgress":false}}
)";

  Agent::ReplayOptions options;

 private:
  const std::string path_ =
      std::filesystem::temp_directory_path() / ("replay-test-" + std::to_string(getpid()));
  FlushedText flushed_;
};

// What a controller has not again at the end of its convergence goes with the turn behind that.
TEST_F(ReplayTest, DeletesInTheTurnBehindTheConvergence) {
  const auto played = play(fabric + shrink + R"({"dump":"same turn"}
{"at":3.001,"dump":"later"})");
  EXPECT_EQ(played.status, 0) << played.errors;
  const auto& sameTurn = played.dump("same turn")["l2rib"];
  EXPECT_EQ(sameTurn["hosts"].size(), 1U);
  EXPECT_EQ(sameTurn["floodSets"][0]["dests"], (Json{"10.0.0.2", "10.0.0.3", "10.0.0.4"}));
  const auto& later = played.dump("later")["l2rib"];
  EXPECT_TRUE(later["hosts"].empty());
  EXPECT_EQ(later["floodSets"][0]["dests"], (Json{"10.0.0.3", "10.0.0.4"}));
}

TEST_F(ReplayTest, EndsAtWhatIsWrongUnlessItIsToGoOn) {
  const auto malformed = play(fabric + R"({"dump":"before"}
{"at":-1,"dump":"never"}
{"dump":"nor this"})");
  EXPECT_EQ(malformed.status, 1);
  EXPECT_EQ(malformed.lines.size(), 1U);
  EXPECT_THAT(malformed.errors, HasSubstr(":9: "));
  EXPECT_EQ(play(fabric + "{\"start\":true}").status, 1);
  const std::string refused = fabric + R"({"set":"vlanVniMap/Vxlan1/4095","value":5}
{"dump":"after"})";
  const auto ended = play(refused);
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.errors,
              HasSubstr(":8: RangeException: VlanId::value < 1 or > 4094 not allowed"));
  EXPECT_TRUE(ended.lines.empty());
  options.keepGoing = true;
  const auto goneOn = play(refused);
  EXPECT_EQ(goneOn.status, 2);
  EXPECT_EQ(goneOn.lines[0]["line"], 8);
  EXPECT_EQ(goneOn.dump("after")["l2rib"]["hosts"].size(), 1U);
}

TEST_F(ReplayTest, LeavesNoClientWhereItsConstructionFails) {
  options.keepGoing = true;
  const auto played = play(R"({"set":"controller/-1","value":{}}
{"start":true}
{"del":"controller/-1"}
)" + fabric);
  EXPECT_EQ(played.status, 2);
  EXPECT_EQ(played.lines[0]["line"], 2);
  EXPECT_EQ(played.dump("end")["l2rib"]["hosts"].size(), 1U) << "the second start is none too many";
}

TEST_F(ReplayTest, GivesUpOnOneThatDoesNotComeToRest) {
  options.maxProcessTime = 0;
  const auto played = play(fabric + shrink);
  EXPECT_EQ(played.status, 3);
  EXPECT_THAT(played.errors, HasSubstr("does not come to rest"));
  EXPECT_TRUE(played.lines.empty());
  options.timePerRead = 2e-5;  // 25,000 firings a second
  const std::string busy = R"({"at":5,"dump":"still busy"}
{"at":6,"set":"controllerState/c","value":{"convergenceInProgress":true}})";
  EXPECT_EQ(play(fabric + shrink + busy).status, 0) << "a line begins the count anew";
}

TEST_F(ReplayTest, PlaysEachJournalOnAStoreOfItsOwnAndTellsTheFirstFailure) {
  const auto played = play("{\"at\":-1}", R"({"at":7,"dump":"alone"})");
  EXPECT_EQ(played.status, 1);
  EXPECT_EQ(played.dump("alone")["clientView"]["convergenceInProgress"], false);
  EXPECT_EQ(play(fabric, "{}").status, 1);
  EXPECT_EQ(play(fabric, "").dump("end")["l2rib"]["hosts"].size(), 1U);
}

TEST_F(ReplayTest, PrintsWhatItHasWhenInterrupted) {
  options.realtime = true;
  EXPECT_EXIT(
      {
        std::signal(SIGALRM, [](int) { std::raise(SIGTERM); });
        ualarm(20'000, 0);  // when the replay waits for its last line
        const auto played = play(fabric + R"({"at":1000,"dump":"never"})");
        const bool told = played.lines.size() == 1 && played.lines[0]["dump"] == "interrupted" &&
                          played.lines[0]["l2rib"]["hosts"].size() == 1;
        std::exit(told ? played.status : 1);
      },
      testing::ExitedWithCode(128 + SIGTERM), "");
}

TEST(Output, HandsOnEachDumpAtOnce) {
  FlushedText flushed;
  std::ostream out(&flushed);
  Agent::Output output(out, {.format = Agent::Format::json}, "journal");
  output.dump({.label = "one"});
  EXPECT_THAT(flushed.text, HasSubstr("one"));
}

}  // namespace
