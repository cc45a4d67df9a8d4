// What a report tells is what dumps tell, in memory that has bounds; and the file that it goes to.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <rapidcheck/gtest.h>
#include <sstream>
#include <sys/resource.h>
#include <unistd.h>

#include "agent/base/InputError.h"
#include "agent/replay/Replay.h"
#include "agent/report/Collector.h"
#include "agent/report/Page.h"
#include "agent/view/Snapshot.h"

namespace Agent {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

Vorn::EthAddr mac(unsigned number) { return Vorn::EthAddr::fromValue(0x020000000000 + number); }
Vorn::IpAddr vtep(unsigned number) { return Vorn::IpAddr(0x0a000000 + number); }

// --- Series ---

RC_GTEST_PROP(SeriesTest, coarserPointsStandForAll, ()) {
  const auto values =
      *rc::gen::container<std::vector<std::uint16_t>>(rc::gen::arbitrary<std::uint16_t>());
  Series<CountPoint> series(8);
  for (std::size_t i = 0; i < values.size(); ++i)
    series.add({Span({static_cast<double>(i), i + 1}), Extent(values[i])});
  std::size_t next = 0;
  for (const CountPoint& point : series.points()) {
    RC_ASSERT(point.span.from == static_cast<double>(next));
    Extent extent(values[next]);
    for (; next < values.size() && static_cast<double>(next) <= point.span.to; ++next)
      extent.merge(Extent(values[next]));
    RC_ASSERT(point.span.line == next);
    RC_ASSERT(point.hosts.last == values[next - 1]);
    RC_ASSERT(point.hosts.least == extent.least);
    RC_ASSERT(point.hosts.most == extent.most);
  }
  RC_ASSERT(next == values.size());
  RC_ASSERT(series.points().size() <= 8u);
  RC_ASSERT(series.points().size() >= std::min<std::size_t>(values.size(), 5));
}

// --- Stories ---

Event announced(unsigned number, double at = 0) {
  return {.at = at, .mac = mac(number), .kind = EventKind::announced, .vni = 10010};
}

std::vector<unsigned> keptBy(const KeptStories& stories) {
  std::vector<unsigned> numbers;
  for (const auto& [each, story] : stories.all())
    numbers.push_back(static_cast<unsigned>(each.value() & 0xff));
  return numbers;
}

TEST(KeptStoriesTest, thoseGoOfWhichThereIsLeastToTell) {
  KeptStories stories(8, 4);
  const auto add = [&stories](unsigned number, Interest interest) {
    stories.add(announced(number), interest);
  };
  add(1, Interest::change);
  for (unsigned number = 2; number < 6; ++number) add(number, Interest::routine);
  for (unsigned number = 6; number < 9; ++number) add(number, Interest::restart);
  EXPECT_TRUE(stories.areAll());
  add(9, Interest::routine);  // the ninth: what is routine goes
  EXPECT_THAT(keptBy(stories), ElementsAre(1, 6, 7, 8, 9));
  EXPECT_FALSE(stories.areAll());
  EXPECT_TRUE(stories.all().front().second.isWhole);
  EXPECT_FALSE(stories.all().back().second.isWhole);
  for (unsigned number = 10; number < 13; ++number) add(number, Interest::change);
  add(13, Interest::change);  // what is routine is too little: those of a restart go as well
  EXPECT_THAT(keptBy(stories), ElementsAre(1, 10, 11, 12, 13));
  for (unsigned number = 14; number < 18; ++number) add(number, Interest::change);
  EXPECT_THAT(keptBy(stories), ElementsAre(1, 10, 11, 12, 13, 14, 15, 16)) << "no more room";
}

TEST(KeptStoriesTest, aStoryThatWentBeginsAnew) {
  KeptStories stories(2, 4);
  for (const unsigned number : {1, 2, 2}) stories.add(announced(number), Interest::routine);
  EXPECT_THAT(keptBy(stories), ElementsAre(2));
  EXPECT_FALSE(stories.all().front().second.isWhole);
}

TEST(KeptStoriesTest, aLongStoryLosesItsBeginning) {
  KeptStories stories(8, 4);
  for (unsigned at = 0; at < 5; ++at) stories.add(announced(1, at), Interest::change);
  const KeptStory story = stories.all().front().second;
  EXPECT_EQ(story.left, 2);
  ASSERT_EQ(story.events.size(), 3);
  EXPECT_EQ(story.events.front().at, 2);
  EXPECT_TRUE(story.isWhole && stories.areAll());
  for (unsigned number = 2; number < 8; ++number) stories.add(announced(number), Interest::change);
  for (unsigned at = 5; at < 100; ++at) stories.add(announced(6, at), Interest::change);
  std::size_t events = 0;
  for (const auto& [each, kept] : stories.all()) events += kept.events.size();
  EXPECT_LE(events, 8);
  EXPECT_EQ(stories.all().back().second.events.back().at, 99);
}

// --- Collector ---

class CollectorTest : public testing::Test {
 protected:
  void rib(EventKind kind, unsigned host, unsigned at, unsigned behind = 0) {
    collector_.take(Event{.at = static_cast<double>(at),
                          .line = at,
                          .mac = mac(host),
                          .vlan = 10,
                          .kind = kind,
                          .vtep = vtep(behind)});
  }

  void end(unsigned at, std::size_t hosts) {
    collector_.turnEnded({static_cast<double>(at), at}, {.hosts = hosts});
  }

  Collector collector_{0};
};

TEST_F(CollectorTest, movesAreWrittenElsewhereWhileInTheRib) {
  rib(EventKind::copied, 1, 1, 1);
  rib(EventKind::copied, 1, 2, 1);  // a refresh
  rib(EventKind::copied, 1, 3, 2);
  rib(EventKind::removed, 1, 4);
  rib(EventKind::copied, 1, 5, 3);
  end(5, 1);
  const ReportData data = collector_.data();
  EXPECT_EQ(data.movesTotal, 1);
  ASSERT_EQ(data.moves.size(), 1);
  EXPECT_EQ(data.moves[0].formerVtep, vtep(1));
  EXPECT_EQ(data.moves[0].event.vtep, vtep(2));
  EXPECT_EQ(data.moves[0].event.line, 3);
  EXPECT_EQ(data.vteps.total, 3);
  EXPECT_EQ(data.vlans.shown[0].points.back().hosts.last, 1);
  EXPECT_EQ(data.vlans.shown[0].changes, 3);
  EXPECT_EQ(data.state.back().events, 4) << "the refresh is none";
}

TEST_F(CollectorTest, aTurnWithoutNewsIsNoPoint) {
  end(0, 0);
  end(1, 0);
  rib(EventKind::copied, 1, 2, 1);
  end(2, 1);
  end(3, 1);
  collector_.take(Event{.at = 4, .kind = EventKind::holdBegan});
  end(4, 2);
  collector_.take(Event{.at = 5, .kind = EventKind::holdEnded});
  end(5, 1);
  const ReportData data = collector_.data();
  std::vector<double> times;
  for (const StatePoint& point : data.state) times.push_back(point.span.from);
  EXPECT_THAT(times, ElementsAre(2, 4, 5));
  EXPECT_TRUE(data.state[0].last && !data.state[1].last);
  ASSERT_EQ(data.holds.windows().size(), 1);
  EXPECT_EQ(data.holds.windows()[0].from, 4);
  EXPECT_EQ(data.holds.windows()[0].to, 5);
  EXPECT_EQ(data.to, 5);
}

TEST_F(CollectorTest, theSlowestBatchesAreKeptAndAllAreCounted) {
  for (unsigned i = 0; i < 50; ++i)
    collector_.take(
        Batch{.at = 1.0 * i, .seconds = (i * 7 % 50) * 1e-3, .deleted = i, .goesOn = true});
  const ReportData data = collector_.data();
  EXPECT_EQ(data.batchesTotal, 50);
  ASSERT_EQ(data.slowest.size(), 20);
  for (std::size_t i = 0; i < 20; ++i)
    EXPECT_NEAR(data.slowest[i].batch.seconds, (49.0 - static_cast<double>(i)) * 1e-3, 1e-9);
}

// --- A replay's report and its dumps ---

template <class Key, class Records, class KeyOf>
std::map<Key, std::size_t> countBy(const Records& records, KeyOf keyOf) {
  std::map<Key, std::size_t> counts;
  for (const auto& record : records) ++counts[keyOf(record)];
  return counts;
}

template <class Key>
std::map<Key, std::size_t> countsOf(const Parts<Key>& parts) {
  std::map<Key, std::size_t> counts;
  for (const auto& part : parts.shown)
    if (const auto hosts = part.points.back().hosts.last) counts[part.key] = hosts;
  return counts;
}

class ReportOfJournal : public testing::TestWithParam<std::filesystem::path> {};

TEST_P(ReportOfJournal, endsWithTheNumbersOfTheLastDump) {
  Collector collector(0);
  bool isCompared = false;
  const auto compare = [&](const Witness::Moment&, const EmbeddedClient& embedded) {
    const ReportData data = collector.data();
    const Snapshot snapshot = takeSnapshot("", 0, embedded);
    const auto& hosts = embedded.store().l2RibZepInput->host();
    std::vector<L2Rib::Host> all;
    for (const auto& [key, host] : hosts) all.push_back(host);
    std::size_t dests = 0;
    if (snapshot.floodSets)
      for (const auto& each : *snapshot.floodSets)
        if (each.floodSet) dests += each.floodSet->vteps.size();
    const StatePoint last = data.state.empty()
                                ? StatePoint{Span({}), Extent(0), Extent(0), Extent(0)}
                                : data.state.back();
    EXPECT_EQ(last.hosts.last, all.size());
    EXPECT_EQ(last.marked.last, snapshot.client ? snapshot.client->hostTable.markedForDelCount : 0);
    EXPECT_EQ(last.floodDests.last, snapshot.floodSets ? dests : last.floodDests.last);
    EXPECT_EQ(countsOf(data.vlans), countBy<Bridging::VlanId>(all, [](const L2Rib::Host& host) {
                return host.key.vlan;
              }));
    EXPECT_EQ(countsOf(data.vteps), countBy<Vorn::IpAddr>(all, [](const L2Rib::Host& host) {
                return host.dest.vtepAddr(0).ip4();
              }));
    isCompared = true;
  };
  ReplayOptions options;
  options.keepGoing = true;
  options.timePerRead = 0.001;
  options.maxProcessTime = 0.003;
  options.watching =
      Watching{.sinks = {[&](const Event& event) { collector.take(event); },
                         [&](const Batch& batch) { collector.take(batch); }},
               .turnEnded =
                   [&](const Witness::Moment& moment, const EmbeddedClient& embedded) {
                     const auto& client = embedded.client();
                     collector.turnEnded(
                         moment, {.hosts = embedded.store().l2RibZepInput->host().size(),
                                  .marked = client ? client->hostTable()->markedForDelCount() : 0});
                   },
               .ended = compare};
  std::ostringstream out;
  std::ostringstream errors;
  replayCommand({GetParam()}, options, {}, std::nullopt, out, errors);
  EXPECT_TRUE(isCompared);
}

std::vector<std::filesystem::path> journals() {
  std::vector<std::filesystem::path> paths;
  for (const auto& each : std::filesystem::directory_iterator(EXAMPLE_JOURNALS))
    if (each.path().extension() == ".jsonl") paths.push_back(each.path());
  std::ranges::sort(paths);
  return paths;
}

INSTANTIATE_TEST_SUITE_P(All, ReportOfJournal, testing::ValuesIn(journals()), [](const auto& info) {
  std::string name = info.param.stem();
  std::ranges::replace(name, '-', '_');
  return name;
});

// --- The page ---

class PageTest : public testing::Test {
 protected:
  PageTest() { std::filesystem::create_directories(folder_); }
  ~PageTest() override { std::filesystem::remove_all(folder_); }

  static std::string contentOf(const std::string& file) {
    std::ostringstream content;
    content << std::ifstream(file).rdbuf();
    return content.str();
  }

  std::size_t files() const {
    const std::filesystem::directory_iterator all(folder_);
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
  }

  const std::string folder_ = testing::TempDir() + "report-" + std::to_string(getpid());
  const std::string page_ = folder_ + "/page.html";
};

TEST_F(PageTest, theDataEndsNoScript) {
  writePage(page_, R"({"title":"</script><!--<script>"})");
  const std::string text = contentOf(page_);
  EXPECT_THAT(text, HasSubstr(R"({"title":"\u003c/script>\u003c!--\u003cscript>"})"));
  EXPECT_THAT(text, testing::StartsWith("<!doctype html>"));
  EXPECT_THAT(text, testing::Not(HasSubstr("'unsafe-inline'")));
}

TEST_F(PageTest, takesOnlyThePlaceOfAPage) {
  writePage(page_, "1");
  std::filesystem::create_symlink("page.html", folder_ + "/link.html");
  writePage(folder_ + "/link.html", "2");
  EXPECT_TRUE(std::filesystem::is_symlink(folder_ + "/link.html"));
  EXPECT_THAT(contentOf(page_), HasSubstr(R"(id="data">2<)"));
  std::ofstream(folder_ + "/journal.jsonl") << "{}";
  for (const std::string& file : {folder_, folder_ + "/journal.jsonl", std::string("/dev/null")})
    EXPECT_THROW(writePage(file, "3"), InputError) << file;
  EXPECT_THROW(writePage(folder_ + "/none/page.html", "3"), std::system_error);
  EXPECT_EQ(contentOf(folder_ + "/journal.jsonl"), "{}");
}

TEST_F(PageTest, aPageThatCannotBeWrittenLeavesTheOldOne) {
  writePage(page_, "1");
  const std::string before = contentOf(page_);
  rlimit usual{};
  getrlimit(RLIMIT_FSIZE, &usual);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit little{1000, usual.rlim_max};
  setrlimit(RLIMIT_FSIZE, &little);
  EXPECT_THROW(writePage(page_, "2"), std::system_error);
  setrlimit(RLIMIT_FSIZE, &usual);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(contentOf(page_), before);
  EXPECT_EQ(files(), 1) << "nothing is left beside it";
}

}  // namespace
}  // namespace Agent
