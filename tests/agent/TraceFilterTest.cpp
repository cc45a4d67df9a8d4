// What of a ring is asked for: by what messages tell of, and by time; and how methods are named.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

#include "agent/base/Text.h"
#include "agent/trace/MessageFilter.h"
#include "agent/trace/MethodName.h"
#include "framework/Moru/Name.h"
#include "framework/Moru/Trace.h"
#include "model/Bridging/MacVlanPair.h"
#include "model/Vxlan/VniExt.h"

namespace TraceFilterTest {

inline constinit Moru::TraceFacility traceFacility{"Test"};

void handleControllerVniBaseDir(const Moru::Name& name) {
  MORU_TRACE(8, " entry subdir added ", name);
}

// Statements like the client's, one of each level.
void trace() {
  const auto mac = Vorn::EthAddr::parse("02:00:00:00:00:07").value();
  const Bridging::VlanId vlan(10);
  MORU_TRACE(1, "mac: ", mac, " vlan: ", vlan);
  MORU_TRACE(2, " deleting ", (Bridging::MacVlanPair{mac, vlan}));
  MORU_TRACE(3, std::string("vlan 10 host 02:00:00:00:00:07: lost"), std::string("vni 10"));
  MORU_TRACE(4, " vlan flood list count: ", 10U, std::string("02:00:00:00:00:07:08"), 10U);
  MORU_TRACE(5, "vniId: ", Vxlan::VniExt(10), "vlanId  ", Bridging::VlanId(11));
  MORU_TRACE(6, "handleFloodSet", vlan, mac, " vlans ", 10U);
  MORU_TRACE(7, " no vlan-vni map found for vni: ", Vxlan::VniExt(110));
  handleControllerVniBaseDir("10");
  MORU_TRACE(9, " entry subdir added ", Moru::Name("10"), " Vlan=", true);
}

class TraceFilterTest : public testing::Test {
 protected:
  TraceFilterTest() {
    char name[] = "/tmp/trace-filter-test-XXXXXX";
    directory = mkdtemp(name);
    Ringlog::directoryIs(directory);
    Ringlog::open("test.rlg", std::vector<std::size_t>(10, 4));
    trace();
    messages = Ringlog::read(directory + "/test.rlg").messages;
  }
  ~TraceFilterTest() override {
    Ringlog::close();
    Ringlog::directoryIs("");
    std::filesystem::remove_all(directory);
  }

  // The levels of the messages that match.
  std::string levels(const Agent::MessageFilterOptions& options) const {
    Agent::MessageFilter filter(options);
    EXPECT_EQ(filter.begin(messages.back().time), "");
    std::string levels;
    for (const auto& message : messages)
      if (filter.matches(message)) levels += std::to_string(message.level);
    return levels;
  }

  std::string directory;
  std::vector<Ringlog::Message> messages;
};

TEST_F(TraceFilterTest, GoesByWhatAMessageTellsOf) {
  const auto mac = Vorn::EthAddr::parse("02:0:00:00:00:07");
  EXPECT_EQ(levels({}), "123456789");
  EXPECT_EQ(levels({.mac = mac}), "1236");
  EXPECT_EQ(levels({.vlan = 10}), "126");
  EXPECT_EQ(levels({.vlan = 11}), "5");
  EXPECT_EQ(levels({.vni = 10}), "58");
  EXPECT_EQ(levels({.vni = 110}), "7");
  EXPECT_EQ(levels({.mostLevel = 5, .grep = "deleting|vlan:", .mac = mac, .vlan = 10}), "12");
  EXPECT_EQ(levels({.vlan = 11, .vni = 10}), "5");
  EXPECT_EQ(levels({.vlan = 10, .vni = 10}), "");
}

TEST_F(TraceFilterTest, GoesByTime) {
  const auto at = [&](std::size_t level) {
    return Agent::TimeBound::parse(Agent::rfc3339Text(messages.at(level - 1).time));
  };
  EXPECT_EQ(levels({.since = at(2), .until = at(4)}), "234");
  EXPECT_EQ(levels({.since = at(8)}), "89");
  EXPECT_EQ(levels({.until = at(1)}), "1");
  constexpr std::size_t date = sizeof "2026-11-21 " - 1;
  const std::string ofDay = Agent::utcText(messages.back().time).substr(date);
  EXPECT_THAT(levels({.since = Agent::TimeBound::parse(ofDay)}), testing::EndsWith("9"));
  EXPECT_EQ(levels({.until = Agent::TimeBound::parse("00:00")}), "");
}

TEST(TimeBoundTest, TakesTimesInUtcWholeOrInPart) {
  constexpr std::int64_t second = 1'000'000'000, day = 86'400 * second;
  constexpr std::int64_t today = 20'778 * day;  // 2026-11-21
  constexpr std::int64_t minute = today + (5 * 60 + 10) * 60 * second;
  const struct {
    const char* text;
    std::int64_t expected;
  } cases[] = {{"2026-11-21T05:10:11.123Z", minute + 11 * second + 123'000'000},
               {"2026-11-21t05:10:11.123456789z", minute + 11 * second + 123'456'789},
               {"2026-11-21 05:10", minute},
               {"2026-11-20", today - day},
               {"05:10", minute},
               {"05:10:11.5", minute + 11 * second + 500'000'000},
               {"23:59:59", today + day - second}};
  for (const auto& [text, expected] : cases)
    EXPECT_EQ(Agent::TimeBound::parse(text).value().nanoseconds(today + 5), expected) << text;
  for (const char* const text :
       {"", "5:10", "24:00", "05:60", "05:10:60", "05:10:11.", "05:10:11.0123456789", "2026-02-29",
        "2026-11-21T", "2026-11-21T05", "2026-11-21T05:10:11+01:00", "1969-12-31", "2262-01-01",
        "today", "2026-11-21T05:10 "})
    EXPECT_FALSE(Agent::TimeBound::parse(text)) << text;
}

TEST(MethodNameTest, IsWhatTellsAMethod) {
  const struct {
    const char* signature;
    const char* name;
  } cases[] = {{"void Vxlan::A::f(Vorn::EthAddr)", "A::f"},
               {"const std::map<int, B (*)(int)>& Vxlan::A::f(const C&) const", "A::f"},
               {"Vxlan::A::A(const std::string&)", "A::A"},
               {"void Vxlan::(anonymous namespace)::f(int)", "f"},
               {"Moru::Ptr<A> Moru::f() [with A = int]", "Moru::f"},
               {"bool Other::operator<(A, B)", "bool Other::operator<(A, B)"},
               {"main", "main"}};
  for (const auto& [signature, name] : cases)
    EXPECT_EQ(Agent::methodOf(Ringlog::Site{8, "Vxlan", signature, {}}), name);
}

}  // namespace TraceFilterTest
