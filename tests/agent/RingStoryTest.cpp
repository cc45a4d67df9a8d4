// The stories that trace rings tell, beside what was witnessed of the journals that wrote the
// rings.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "agent/journal/JournalFile.h"
#include "agent/replay/Replay.h"
#include "agent/story/Story.h"
#include "agent/trace/RingStory.h"
#include "framework/Moru/ActivityFacility.h"
#include "framework/Ringlog/Ring.h"

namespace {

using Agent::Event;
using Agent::EventKind;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using Texts = std::vector<std::string>;

Vorn::EthAddr macOf(const std::string& text) { return *Vorn::EthAddr::parse(text); }

class RingStory : public testing::Test {
 protected:
  RingStory() {
    char name[] = "/tmp/ring-story-test-XXXXXX";
    directory = mkdtemp(name);
    Ringlog::directoryIs(directory);
  }
  ~RingStory() override {
    Ringlog::close();
    Ringlog::directoryIs("");
    std::filesystem::remove_all(directory);
    Moru::ActivityFacility::currentIs(
        Moru::create<Moru::ActivityFacility>(Moru::create<Moru::SteadyTime>()));
  }

  struct Played {
    std::vector<Event> events;
    std::set<std::string> macs;  // that were announced
    std::set<std::string> rib;   // "MAC in the RIB: VLAN 10 behind 10.0.0.2", as in a verdict
    Ringlog::Contents ring;
  };

  Played play(const std::filesystem::path& journal, std::size_t kibibytes) const {
    Ringlog::close();
    Ringlog::open("test.rlg", std::vector<std::size_t>{1, 1, 1, 1, 1, 1, 1, 1, kibibytes, 1});
    Agent::JournalFile file(journal);
    const bool hasStart = file.findStart();
    Played played;
    const auto take = [&played](const Event& event) {
      played.events.push_back(event);
      if (event.kind == EventKind::announced) played.macs.insert(event.mac.stringValue());
    };
    Agent::ReplayOptions options;
    options.watching = {std::nullopt, {.event = take}};
    std::ostringstream errors;
    Agent::Replay replay(file, hasStart, options, nullptr, errors);
    replay.run();
    for (const auto& [key, host] : replay.embedded().store().l2RibZepInput->host())
      played.rib.insert(key.mac.stringValue() + " in the RIB: VLAN " +
                        std::to_string(key.vlan.value()) + " behind " +
                        host.dest.vtepAddr(0).stringValue());
    played.ring = Ringlog::read(directory + "/test.rlg");
    return played;
  }

  static constexpr std::size_t forgetsNothing = 4096;
  std::string directory;
};

// What a story says of a MAC: of the controller, of the client, or of both.
enum class Of { controller, client, both };

Texts textsOf(const std::vector<Event>& events, const std::string& mac, Of of = Of::both) {
  std::vector<Event> its;
  std::ranges::copy_if(events, std::back_inserter(its), [&](const Event& event) {
    return !Agent::hasMac(event.kind) || event.mac.stringValue() == mac;
  });
  Texts texts;
  for (Agent::StoryLine line : Agent::storyOf(its)) {
    const EventKind kind = line.event.kind;
    if (!Agent::hasMac(kind) || kind >= EventKind::destIs) continue;
    if (of != Of::both &&
        (line.event.vlan == 0 || kind == EventKind::ignored) != (of == Of::controller))
      continue;
    if (line.after) line.after = 0;  // the ring has the time of the day, and the journal its own
    line.event.vti = {};
    texts.push_back(textOf(line));
  }
  return texts;
}

std::set<std::string> ribOf(const Agent::RingStory& story, const std::string& mac) {
  std::set<std::string> rib;
  for (const Agent::Finding& finding : story.verdict) {
    const auto at = finding.text.find("in the RIB: ");
    if (finding.gate == "none")
      rib.insert(mac + ' ' + finding.text.substr(at, finding.text.find(',', at) - at));
  }
  return rib;
}

TEST_F(RingStory, IsWhatWasWitnessed) {
  std::size_t hosts = 0;
  for (const auto& entry : std::filesystem::directory_iterator(EXAMPLE_JOURNALS)) {
    // What a client takes in while it is built is not witnessed, but for what it writes.
    const std::string name = entry.path().stem();
    if (entry.path().extension() != ".jsonl" || name == "agent-restart") continue;
    const auto played = play(entry.path(), forgetsNothing);
    std::set<std::string> rib;
    for (const std::string& mac : played.macs) {
      const auto story = Agent::ringStoryOf({played.ring}, macOf(mac));
      auto told = textsOf(story.events, mac, Of::client);
      auto witnessed = textsOf(played.events, mac, Of::client);
      // Two writes within one look as if the first ended behind the second.
      if (name == "learning-modes") std::ranges::sort(told);
      if (name == "learning-modes") std::ranges::sort(witnessed);
      EXPECT_EQ(told, witnessed) << name << ' ' << mac;
      EXPECT_THAT(story.remarks, ElementsAre(HasSubstr("is running")));
      rib.merge(ribOf(story, mac));
      ++hosts;
    }
    EXPECT_TRUE(std::ranges::includes(played.rib, rib)) << name;
    EXPECT_TRUE(rib.size() == played.rib.size() || name == "refusals") << name;
  }
  EXPECT_GT(hosts, 250U);
}

TEST_F(RingStory, TellsWhyAHostIsNotTaken) {
  const auto journal = [](const char* name) {
    return std::filesystem::path(EXAMPLE_JOURNALS) / name;
  };
  const auto local = play(journal("local-hosts.jsonl"), forgetsNothing).ring;
  const std::string mac = "02:00:00:00:00:02";
  const auto story = Agent::ringStoryOf({local}, macOf(mac));
  EXPECT_THAT(textsOf(story.events, mac),
              ElementsAre("announced in VNI 10010 behind 10.0.0.100",
                          "not taken in VLAN 10: 10.0.0.100 is our own VTEP",
                          "came to VLAN 10 behind 10.0.0.100",
                          "copied into the RIB, VLAN 10 behind 10.0.0.100",
                          "announced in VNI 10010 elsewhere: from 10.0.0.100 to 10.0.0.9",
                          "not taken in VLAN 10: 10.0.0.9 is our own VTEP",
                          "deleted from VLAN 10 at once", "left the RIB, VLAN 10"));
  ASSERT_EQ(story.verdict.size(), 1U);
  EXPECT_EQ(story.verdict[0].gate, "ownVtep");
  EXPECT_EQ(story.verdict[0].text,
            "VNI 10010: not in the RIB in VLAN 10: announced behind 10.0.0.9, which is our own "
            "VTEP, as far as the ring tells");
  const auto nobody = Agent::ringStoryOf({local}, macOf("02:00:00:00:00:99"));
  EXPECT_EQ(nobody.verdict.at(0).gate, "notTold");
  const auto gate = [&](const std::filesystem::path& path, const char* host) {
    const auto ring = play(path, forgetsNothing).ring;
    return std::string(Agent::ringStoryOf({ring}, macOf(host)).verdict.at(0).gate);
  };
  EXPECT_EQ(gate(journal("withdrawals.jsonl"), "02:00:00:00:00:02"), "notAnnounced");
  EXPECT_EQ(gate(journal("withdrawals.jsonl"), "02:00:00:00:00:01"), "notFollowed");
  const std::string learning = directory + "/learning.jsonl";
  std::ofstream(learning) <<
      R"({"set":"vti/Vxlan1","value":{"controllerClientMode":true,"datapathLearning":false,"vccImportVlans":[10]}}
{"set":"vlanVniMap/Vxlan1/10","value":10010}
{"set":"controllerState/main","value":{"convergenceInProgress":false}}
{"start":true}
{"set":"controller/10010/host/02:00:00:00:00:01","value":{"vtep":"10.0.0.2"}}
{"at":1,"set":"vti/Vxlan1","value":{"datapathLearning":true}}
{"set":"controller/10010/host/02:00:00:00:00:02","value":{"vtep":"10.0.0.2"}}
)";
  EXPECT_EQ(gate(learning, "02:00:00:00:00:01"), "dataPathLearning") << "deleted";
  EXPECT_EQ(gate(learning, "02:00:00:00:00:02"), "dataPathLearning") << "never taken";
}

TEST_F(RingStory, SaysThatItsBeginningMayBeGone) {
  const auto played = play(std::filesystem::path(EXAMPLE_JOURNALS) / "fabric-restarts.jsonl", 200);
  std::set<std::string> rib;
  std::size_t deletions = 0;
  for (const std::string& mac : played.macs) {
    const auto story = Agent::ringStoryOf({played.ring}, macOf(mac));
    EXPECT_THAT(story.remarks, Contains(HasSubstr("the story may have begun before")));
    const auto told = textsOf(story.events, mac);
    EXPECT_THAT(told, testing::Not(Contains(HasSubstr("did not have it"))));
    deletions += std::ranges::count_if(told, [](const std::string& text) {
      return text.find("by the deferred deletion, ") != std::string::npos;
    });
    rib.merge(ribOf(story, mac));
  }
  EXPECT_GT(deletions, 0U);
  EXPECT_GT(rib.size(), 10U);
  EXPECT_TRUE(std::ranges::includes(played.rib, rib));
}

TEST_F(RingStory, GoesOnInTheNextRing) {
  const auto journal = std::filesystem::path(EXAMPLE_JOURNALS) / "move.jsonl";
  auto first = play(journal, forgetsNothing).ring;
  const auto second = play(journal, forgetsNothing);
  first.writer = Ringlog::Writer::gone;
  first.problems.emplace_back("some");
  const std::string mac = "02:00:00:00:00:02";  // which stays
  const auto one = Agent::ringStoryOf({second.ring}, macOf(mac));
  const auto both = Agent::ringStoryOf({first, second.ring}, macOf(mac));
  EXPECT_EQ(both.verdict.size(), one.verdict.size());
  EXPECT_EQ(both.now, one.now);
  EXPECT_THAT(both.remarks, ElementsAre(HasSubstr("is damaged"), HasSubstr("is running")));
  const Texts once = textsOf(one.events, mac);
  Texts twice = once;
  twice.emplace_back("left the RIB, VLAN 10");  // when the second client began
  twice.insert(twice.end(), once.begin(), once.end());
  EXPECT_EQ(textsOf(both.events, mac), twice);
  EXPECT_EQ(Agent::ringTimes().text(1'000'000'000.25), "2001-09-09 01:46:40.250000");
  EXPECT_EQ(Agent::ringTimes().rfc3339(1'000'000'000.25), "2001-09-09T01:46:40.250000000Z");
  EXPECT_THAT(Agent::ringStoryOf({first}, macOf(mac)).remarks, Contains(HasSubstr("has crashed")));
  EXPECT_THAT(Agent::ringStoryOf({}, macOf(mac)).remarks, ElementsAre("there is no ring"));
}

}  // namespace
