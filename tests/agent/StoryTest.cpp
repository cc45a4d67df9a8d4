// The story of a MAC, and the verdict on where it is: what `vxlan-agent explain` says of journals.
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "agent/replay/Explain.h"
#include "agent/story/Story.h"
#include "framework/Moru/ActivityFacility.h"

namespace {

using Agent::Event;
using Agent::EventKind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Explanation {
  std::vector<std::string> lines;
  std::string errors;
  int status;
};

Vorn::EthAddr mac(const std::string& text) { return *Vorn::EthAddr::parse(text); }

const Vorn::EthAddr host = mac("02:00:00:00:00:01");

class Explain : public testing::Test {
 protected:
  void TearDown() override {
    std::filesystem::remove(path_);
    Moru::ActivityFacility::currentIs(
        Moru::create<Moru::ActivityFacility>(Moru::create<Moru::SteadyTime>()));
  }

  Explanation explain(const std::string& journal, const Agent::ExplainOptions& options) const {
    std::ofstream(path_) << journal;
    std::ostringstream out;
    std::ostringstream errors;
    const int status = Agent::explain({path_}, options, out, errors);
    std::istringstream in(out.str());
    Explanation explanation{{}, errors.str(), status};
    for (std::string line; std::getline(in, line);) explanation.lines.push_back(line);
    return explanation;
  }

  // What is said behind "now".
  std::vector<std::string> verdict(const std::string& journal,
                                   Agent::ExplainOptions options = {.mac = host}) const {
    const auto lines = explain(journal, options).lines;
    const auto now = std::ranges::find_if(
        lines, [](const std::string& line) { return line.starts_with("now, "); });
    if (now == lines.end()) return {"no verdict"};
    return {now + 1, lines.end()};
  }

 private:
  const std::string path_ = testing::TempDir() + "story.jsonl";
};

// A switch that follows VNI 10010 in VLAN 10.
const std::string follows =
    R"({"set":"hw/bum","value":{"bumReplicationMode":3}}
{"set":"vti/Vxlan1","value":{"controllerClientMode":true,"datapathLearning":false,"localVtepAddr":"10.0.0.1","vArpVtepAddr":"10.0.0.9","vccImportVlans":[10]}}
{"set":"vlanVniMap/Vxlan1/10","value":10010}
{"set":"controllerState/korvo","value":{"convergenceInProgress":false}}
)";
const std::string announced =
    R"({"set":"controller/10010/host/02:00:00:00:00:01","value":{"vtep":"10.0.0.2"}}
)";

TEST_F(Explain, TellsWhatBecameOfAHost) {
  const std::string journal =
      follows + announced +
      R"({"at":1,"set":"controller/10010/host/02:00:00:00:00:01","value":{"vtep":"10.0.0.3","moveCount":1}}
{"at":1,"set":"controller/10010/host/02:00:00:00:00:02","value":{"vtep":"10.0.0.3"}}
{"at":2,"set":"controllerState/korvo","value":{"convergenceInProgress":true}}
{"at":3,"del":"controller/10010/host/02:00:00:00:00:01"}
{"at":4,"set":"controller/10010/host/02:00:00:00:00:01","value":{"vtep":"10.0.0.4"}}
{"at":5,"del":"controller/10010/host/02:00:00:00:00:01"}
{"at":6,"set":"controllerState/korvo","value":{"convergenceInProgress":false}}
{"at":7,"set":"controller/10010/host/02:00:00:00:00:01","value":{"vtep":"10.0.0.4"}}
{"at":8,"set":"controller/10010/host/02:00:00:00:00:01","value":{"vtep":"10.0.0.4"}}
{"at":9,"del":"controller/10010/host/02:00:00:00:00:01"}
)";
  const auto explanation = explain(journal, {.mac = host});
  EXPECT_EQ(explanation.status, 0);
  EXPECT_THAT(
      explanation.lines,
      ElementsAre("02:00:00:00:00:01",
                  "  0.000000 s  line 5  announced in VNI 10010 behind 10.0.0.2",
                  "  0.000000 s  line 5  came to VLAN 10 over Vxlan1 behind 10.0.0.2",
                  "  0.000000 s  line 5  copied into the RIB, VLAN 10 behind 10.0.0.2",
                  "  1.000000 s  line 6  announced in VNI 10010 elsewhere: from 10.0.0.2 to "
                  "10.0.0.3, move count 1",
                  "  1.000000 s  line 6  moved in VLAN 10 from 10.0.0.2 to 10.0.0.3",
                  "  1.000000 s  line 6  copied into the RIB, VLAN 10 behind 10.0.0.3",
                  "  2.000000 s  line 8  convergence 1 begins",
                  "  3.000000 s  line 9  withdrawn from VNI 10010, where it was behind 10.0.0.3",
                  "  3.000000 s  line 9  marked for deletion in VLAN 10, during convergence 1",
                  "  4.000000 s  line 10  announced in VNI 10010 behind 10.0.0.4",
                  "  4.000000 s  line 10  unmarked in VLAN 10, and moved from 10.0.0.3 to "
                  "10.0.0.4, during convergence 1",
                  "  4.000000 s  line 10  copied into the RIB, VLAN 10 behind 10.0.0.4",
                  "  5.000000 s  line 11  withdrawn from VNI 10010, where it was behind 10.0.0.4",
                  "  5.000000 s  line 11  marked for deletion in VLAN 10, during convergence 1",
                  "  6.000000 s  line 12  convergence 1 ends",
                  "  6.000000 s  line 12  deleted from VLAN 10 by the deferred deletion, "
                  "0.000000 s after the end of convergence 1",
                  "  6.000000 s  line 12  left the RIB, VLAN 10",
                  "  7.000000 s  line 13  announced in VNI 10010 behind 10.0.0.4",
                  "  7.000000 s  line 13  came to VLAN 10 over Vxlan1 behind 10.0.0.4",
                  "  7.000000 s  line 13  copied into the RIB, VLAN 10 behind 10.0.0.4",
                  "  8.000000 s  line 14  announced again in VNI 10010 behind 10.0.0.4",
                  "  8.000000 s  line 14  refreshed in VLAN 10 behind 10.0.0.4",
                  "  9.000000 s  line 15  withdrawn from VNI 10010, where it was behind 10.0.0.4",
                  "  9.000000 s  line 15  deleted from VLAN 10 at once",
                  "  9.000000 s  line 15  left the RIB, VLAN 10",  //
                  "now, at 9.000000 s:", "  no VNI announces it"));
}

TEST_F(Explain, NamesTheGateThatAHostDoesNotPass) {
  const auto with = [](const std::string& line) { return follows + announced + line + '\n'; };
  EXPECT_THAT(verdict(with("")), ElementsAre("  VNI 10010: in the RIB: VLAN 10 behind 10.0.0.2"));
  EXPECT_THAT(verdict(follows), ElementsAre("  no VNI announces it"));
  EXPECT_THAT(verdict(with(""), {.mac = host, .filter = {.vnis = {Vxlan::VniExt(10020)}}}),
              ElementsAre("  the controller has no entry for VNI 10020"));
  EXPECT_THAT(verdict(with(R"({"stop":true})")), ElementsAre("  VNI 10010: no client runs",
                                                             "  still in the RIB: VLAN 10 behind "
                                                             "10.0.0.2"));
  EXPECT_THAT(verdict(with(R"({"set":"vti/Vxlan1","value":{"controllerClientMode":false}})")),
              ElementsAre("  VNI 10010: no VTI is in controller mode (Vxlan1: off)"));
  EXPECT_THAT(verdict(R"({"set":"controller/10010","value":{"instantiated":false}})"
                      "\n" +
                      with("")),
              ElementsAre("  VNI 10010: the controller has announced its entry, but not "
                          "instantiated it"));
  EXPECT_THAT(verdict(with(R"({"del":"vlanVniMap/Vxlan1/10"})")),
              ElementsAre("  VNI 10010: no VTI maps it to a VLAN"));
  EXPECT_THAT(verdict(with(R"({"set":"vti/Vxlan1","value":{"vccImportVlans":[5,7,8,9,20]}})"
                           "\n"
                           R"({"set":"vti/Vxlan2","value":{}})")),
              ElementsAre("  VNI 10010: VLAN 10 of Vxlan1 is not imported, and so the VNI is not "
                          "followed: Vxlan1 imports 5, 7 to 9, 20, Vxlan2 imports nothing"));
  EXPECT_THAT(verdict(with(R"({"set":"vti/Vxlan1","value":{"datapathLearning":true}})")),
              ElementsAre("  VNI 10010: announced behind 10.0.0.2, but all VTIs learn in the data "
                          "path"));
  EXPECT_THAT(verdict(with(R"({"set":"vti/Vxlan1","value":{"vArpVtepAddr":"10.0.0.2"}})")),
              ElementsAre("  VNI 10010: announced behind 10.0.0.2, which is our own VTEP: the "
                          "virtual-ARP address of Vxlan1"));
  EXPECT_THAT(verdict(R"({"set":"mlag/vtepTypeAddr/1","value":"10.0.0.2"})"
                      "\n" +
                      with("")),
              ElementsAre("  VNI 10010: announced behind 10.0.0.2, which is the MLAG pair's VTEP"));
  EXPECT_THAT(
      verdict(with(R"({"set":"controllerState/korvo","value":{"convergenceInProgress":true}})"
                   "\n"
                   R"({"del":"controller/10010/host/02:00:00:00:00:01"})")),
      ElementsAre("  still in the RIB: VLAN 10 behind 10.0.0.2, marked for deletion"));
}

TEST_F(Explain, NamesTheGateThatAFloodSetDoesNotPass) {
  const Agent::ExplainOptions all{.mac = mac("ff:ff:ff:ff:ff:ff")};
  const std::string listed =
      follows +
      R"({"set":"controller/10010/flood/ff:ff:ff:ff:ff:ff","value":{"10.0.0.2":true,"10.0.0.3":true}}
)";
  EXPECT_THAT(verdict(listed, all),
              ElementsAre("  VNI 10010: flooded in VLAN 10, sendToAll, to 10.0.0.2 10.0.0.3"));
  EXPECT_THAT(verdict(listed + R"({"set":"hw/bum","value":{"bumReplicationMode":2}})"
                               "\n",
                      all),
              ElementsAre("  VNI 10010: flooded, but the hardware does not replicate in the "
                          "controller's mode: it is 2"));
  EXPECT_THAT(
      verdict(listed +
                  R"({"set":"controller/10010/multipath/ff:ff:ff:ff:ff:ff","value":["10.0.0.7"]})"
                  "\n",
              all),
      ElementsAre("  VNI 10010: its multipath entry overrides its flood list",
                  "  VNI 10010: flooded in VLAN 10, sendToAny, to 10.0.0.7"));
  EXPECT_THAT(verdict(listed + R"({"set":"mlag/state","value":4})"
                               "\n",
                      all),
              testing::Contains(HasSubstr("MLAG is active")));
}

TEST_F(Explain, SaysWhereAMacIsInNoLine) {
  const auto explanation = explain(follows + announced, {.mac = mac("02:00:00:00:00:77")});
  EXPECT_EQ(explanation.status, 1);
  EXPECT_THAT(explanation.errors, HasSubstr("story.jsonl: says nothing of 02:00:00:00:00:77"));
}

TEST_F(Explain, TellsOfOneVlanOrVniAlone) {
  const std::string journal = follows + announced +
                              R"({"set":"vti/Vxlan1","value":{"vccImportVlans":[10,20]}}
{"set":"vlanVniMap/Vxlan1/20","value":10020}
{"at":1,"set":"controller/10020/host/02:00:00:00:00:01","value":{"vtep":"10.0.0.5"}}
)";
  EXPECT_THAT(verdict(journal), testing::SizeIs(2));
  for (const auto& options :
       {Agent::ExplainOptions{.mac = host, .filter = {.vlans = {Bridging::VlanId(20)}}},
        {.mac = host, .filter = {.vnis = {Vxlan::VniExt(10020)}}}}) {
    const auto lines = explain(journal, options).lines;
    EXPECT_THAT(lines, testing::Contains(HasSubstr("came to VLAN 20")));
    EXPECT_THAT(lines, testing::Each(testing::Not(HasSubstr("10.0.0.2"))));
    EXPECT_THAT(verdict(journal, options),
                ElementsAre("  VNI 10020: in the RIB: VLAN 20 behind 10.0.0.5"));
  }
}

// What happens around a MAC is told where it concerns it, and from its first event on.
TEST(Story, LeavesOutWhatDoesNotConcernTheMac) {
  const auto event = [](EventKind kind) { return Event{.kind = kind}; };
  Event other = event(EventKind::vniIs);
  other.vni = 10020;
  Event shared = event(EventKind::mapIs);
  shared.vlan = 10;
  shared.vni = 10030;
  Event sharedGone = event(EventKind::vniDel);
  sharedGone.vni = 10030;
  Event own = event(EventKind::announced);
  own.mac = host;
  own.vni = 10010;
  Event received = event(EventKind::received);
  received.mac = host;
  received.vlan = 10;
  std::vector<std::string> told;
  for (const Agent::StoryLine& line : Agent::storyOf(
           {event(EventKind::converging), event(EventKind::converged), own, received, other, shared,
            sharedGone, event(EventKind::bumMode), event(EventKind::converging)}))
    told.emplace_back(line.what);
  EXPECT_THAT(told, ElementsAre("announced", "came", "map", "vniRemoved", "converging"));
  EXPECT_THAT(Agent::storyOf({event(EventKind::converging), other}), IsEmpty());
}

}  // namespace
