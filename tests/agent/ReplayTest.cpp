// Whole replays: what is printed, when clocks fire between lines, and how a replay ends.
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
using testing::ElementsAre;
using testing::HasSubstr;

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
  ~ReplayTest() override { std::filesystem::remove(path_); }

  Played play(const std::string& journal) {
    std::ofstream(path_) << journal;
    std::ostringstream out;
    std::ostringstream errors;
    const int status = Agent::replayCommand({path_}, options, std::nullopt, out, errors);
    Played played{status, {}, errors.str()};
    std::istringstream lines(out.str());
    for (std::string line; std::getline(lines, line);) played.lines.push_back(Json::parse(line));
    return played;
  }

  // A switch in controller mode with VLAN 10 and VNI 10010, and a controller outside convergence.
  const std::string fabric = R"(
{"set":"vti/Vxlan1","value":{"controllerClientMode":true,"localVtepAddr":"10.0.0.1","vccImportVlans":[10]}}
{"set":"vlanVniMap/Vxlan1/10","value":10010}
{"set":"hw/bum","value":{"bumReplicationMode":3}}
{"set":"controllerState/c","value":{"convergenceInProgress":false}}
{"set":"controller/10010/host/02:00:00:00:00:01","value":{"vtep":"10.0.0.2"}}
{"set":"controller/10010/host/02:00:00:00:00:02","value":{"vtep":"10.0.0.2"}}
{"set":"controller/10010/flood/ff:ff:ff:ff:ff:ff","value":["10.0.0.3","10.0.0.2"]}
)";
  const std::string withdrawal =
      R"({"at":2,"set":"controllerState/c","value":{"convergenceInProgress":true}}
{"del":"controller/10010/host/02:00:00:00:00:01"}
{"del":"controller/10010/host/02:00:00:00:00:02"}
{"at":3,"set":"controllerState/c","value":{"convergenceInProgress":false}}
)";

  Agent::ReplayOptions options = [] {
    Agent::ReplayOptions options;
    options.output.format = Agent::Format::json;
    return options;
  }();

 private:
  const std::string path_ =
      std::filesystem::temp_directory_path() / ("replay-test-" + std::to_string(getpid()));
};

TEST_F(ReplayTest, PrintsWhatTheClientHasMade) {
  const auto played = play(fabric + R"({"at":1.5,"dump":"now"})");
  EXPECT_EQ(played.status, 0) << played.errors;
  ASSERT_EQ(played.lines.size(), 2U);
  Json dump = played.lines[0];
  EXPECT_EQ(dump["at"], 1.5);
  const Json expected = Json::parse(R"({"dump":"now","at":1.5,
    "client":{"vxlanControllerClientMode":true,"datapathLearningMode":false,"vccImportVlans":[10],
      "vnis":[10010],"mlagBum":false,"hostTable":{"markedForDelCount":0,"entries":[
        {"mac":"02:00:00:00:00:01","vlan":10,"vti":"Vxlan1","source":10,"vtep":"10.0.0.2",
         "moveCount":0,"time":0.0,"hostKind":16,"markedForDel":false},
        {"mac":"02:00:00:00:00:02","vlan":10,"vti":"Vxlan1","source":10,"vtep":"10.0.0.2",
         "moveCount":0,"time":0.0,"hostKind":16,"markedForDel":false}]}},
    "l2rib":{"hosts":[
        {"mac":"02:00:00:00:00:01","vlan":10,"vti":"Vxlan1","source":10,"vtep":"10.0.0.2",
         "moveCount":0,"time":0.0,"kind":16,"entryType":16},
        {"mac":"02:00:00:00:00:02","vlan":10,"vti":"Vxlan1","source":10,"vtep":"10.0.0.2",
         "moveCount":0,"time":0.0,"kind":16,"entryType":16}],
      "floodSets":[{"vlan":10,"mac":"ff:ff:ff:ff:ff:ff","type":1,"dests":["10.0.0.2","10.0.0.3"]}]},
    "clientView":{"convergenceInProgress":false},
    "convergenceStatus":{"unicastDeferredDeletionInProgress":false,
      "bumDeferredDeletionInProgress":false}})");
  EXPECT_EQ(dump, expected) << Json::diff(dump, expected);
  EXPECT_EQ(played.lines[1]["dump"], "end");
}

TEST_F(ReplayTest, FiresNoClockBetweenLinesOfATime) {
  const auto played = play(fabric + withdrawal + R"({"dump":"same turn"}
{"at":3.001,"dump":"later"})");
  EXPECT_EQ(played.status, 0) << played.errors;
  const auto pending = [&](const char* label) {
    return played.dump(label)["convergenceStatus"]["unicastDeferredDeletionInProgress"];
  };
  EXPECT_EQ(pending("same turn"), true);
  EXPECT_EQ(played.dump("same turn")["client"]["hostTable"]["markedForDelCount"], 2);
  EXPECT_EQ(pending("later"), false);
  EXPECT_TRUE(played.dump("later")["l2rib"]["hosts"].empty());
}

// The flood sets' run, as the hosts' one, comes with the turn behind the convergence.
TEST_F(ReplayTest, RemovesVtepsThatARestartedControllerDoesNotListAgain) {
  const auto played = play(R"({"set":"hw/bum","value":{"bumReplicationMode":3}}
{"start":true})" + fabric + R"(
{"at":2,"set":"controllerState/c","value":{"convergenceInProgress":true}}
{"set":"controller/10010/flood/ff:ff:ff:ff:ff:ff","value":["10.0.0.3","10.0.0.4"]}
{"at":3,"set":"controllerState/c","value":{"convergenceInProgress":false}}
{"dump":"converged"}
{"at":4,"dump":"later"})");
  const auto dests = [&](const char* label) {
    return played.dump(label)["l2rib"]["floodSets"][0]["dests"];
  };
  EXPECT_EQ(dests("converged"), (Json{"10.0.0.2", "10.0.0.3", "10.0.0.4"}));
  EXPECT_EQ(dests("later"), (Json{"10.0.0.3", "10.0.0.4"}));
}

TEST_F(ReplayTest, MakesBudgetsRepeatable) {
  options.timePerRead = 0.4;
  options.maxProcessTime = 0.5;  // one entry a batch
  const auto played = play(fabric + withdrawal + R"({"at":3.5,"dump":"between"})");
  // At 3 two clocks are armed, each reading moves the time, and what is armed anew at the time of
  // its last reading is due no more by 3.5.
  EXPECT_EQ(played.dump("between")["client"]["hostTable"]["markedForDelCount"], 1);
  EXPECT_EQ(played.dump("end")["client"]["hostTable"]["markedForDelCount"], 0);
}

TEST_F(ReplayTest, RestartsTheClientOverTheStoreAsItStands) {
  const auto played = play(R"({"set":"l2rib/host/02:00:00:00:00:09/10","value":{"vtep":"10.0.0.9"}}
{"dump":"none"}
{"absent":["zepStateClientView"]}
)" + fabric + R"({"start":true}
{"dump":"first"}
{"stop":true}
{"dump":"between"}
{"del":"controller/10010/host/02:00:00:00:00:02"}
{"start":true})");
  EXPECT_EQ(played.status, 0) << played.errors;
  EXPECT_EQ(played.dump("none")["client"], nullptr);
  EXPECT_EQ(played.dump("first")["clientView"], nullptr);
  EXPECT_EQ(played.dump("first")["l2rib"]["hosts"].size(), 2U) << "the stale host is gone";
  EXPECT_EQ(played.dump("between")["client"], nullptr);
  EXPECT_EQ(played.dump("between")["l2rib"]["hosts"].size(), 2U);
  EXPECT_EQ(played.dump("end")["l2rib"]["hosts"].size(), 1U);
}

TEST_F(ReplayTest, EndsAtAMalformedLine) {
  const auto played = play(fabric + R"({"dump":"before"}
{"at":-1,"dump":"never"}
{"dump":"nor this"})");
  EXPECT_EQ(played.status, 1);
  EXPECT_EQ(played.lines.size(), 1U);
  EXPECT_THAT(played.errors, HasSubstr(":10: "));
  EXPECT_EQ(play(R"({"start":true}
{"start":true})")
                .status,
            1);
}

TEST_F(ReplayTest, TellsExceptionsAndGoesOnIfItIsTo) {
  const std::string journal = fabric + R"({"set":"vlanVniMap/Vxlan1/4095","value":5}
{"set":"controller/-1","value":{}}
{"dump":"after"})";
  const auto ended = play(journal);
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.errors,
              HasSubstr(":9: RangeException: VlanId::value < 1 or > 4094 not allowed"));
  EXPECT_TRUE(ended.lines.empty());
  options.keepGoing = true;
  const auto goneOn = play(journal);
  EXPECT_EQ(goneOn.status, 2);
  ASSERT_EQ(goneOn.lines.size(), 4U);
  EXPECT_EQ(goneOn.lines[0], Json::parse(R"({"exception":"RangeException","line":9,
      "text":"VlanId::value < 1 or > 4094 not allowed"})"));
  EXPECT_EQ(goneOn.lines[1]["line"], 10);
  EXPECT_EQ(goneOn.lines[2]["l2rib"]["hosts"].size(), 2U);
}

TEST_F(ReplayTest, LeavesNoClientWhereItsConstructionFails) {
  options.keepGoing = true;
  const auto played = play(fabric + R"({"set":"controller/-1","value":{}}
{"start":true}
{"del":"controller/-1"}
{"start":true})");
  EXPECT_EQ(played.status, 2);
  EXPECT_EQ(played.lines[0]["line"], 10);
  EXPECT_EQ(played.dump("end")["l2rib"]["hosts"].size(), 2U) << "the second start is none too many";
}

TEST_F(ReplayTest, GivesUpOnOneThatDoesNotComeToRest) {
  options.maxProcessTime = 0;
  const auto played = play(fabric + withdrawal);
  EXPECT_EQ(played.status, 3);
  EXPECT_THAT(played.errors, HasSubstr("does not come to rest"));
  EXPECT_TRUE(played.lines.empty());
}

TEST_F(ReplayTest, ShowsDifferencesAndTurns) {
  options.output.diff = true;
  options.timeline = true;
  const auto played = play(fabric + R"({"dump":"one"}
)" + withdrawal);
  const auto& last = played.lines.back();
  EXPECT_EQ(last["diff"], "end");
  EXPECT_EQ(last["since"]["dump"], "one");
  EXPECT_EQ(last["hosts"]["gone"].size(), 2U);
  int deleted = 0;
  for (const Json& line : played.lines) deleted += line.value("deleted", 0);
  EXPECT_EQ(deleted, 2);
}

TEST_F(ReplayTest, PrintsWhatItHasWhenInterrupted) {
  options.realtime = true;
  EXPECT_EXIT(
      {
        std::signal(SIGALRM, [](int) { std::raise(SIGTERM); });
        ualarm(20'000, 0);  // when the replay waits for its last line
        const auto played = play(fabric + R"({"at":1000,"dump":"never"})");
        const bool told = played.lines.size() == 1 && played.lines[0]["dump"] == "interrupted" &&
                          played.lines[0]["l2rib"]["hosts"].size() == 2;
        std::exit(told ? played.status : 1);
      },
      testing::ExitedWithCode(128 + SIGTERM), "");
}

}  // namespace
