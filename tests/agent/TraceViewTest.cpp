// The trace command over ring files, also of processes that come and go, and the trace stream.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <re2/re2.h>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "agent/base/Text.h"
#include "agent/trace/TraceCommand.h"
#include "agent/trace/TraceStream.h"
#include "framework/Moru/Trace.h"

namespace TraceViewTest {

inline constinit Moru::TraceFacility traceFacility{"Test"};

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

void say(const std::string& text) { MORU_TRACE(3, " ", text); }
void whisper(const std::string& text) { MORU_TRACE(8, " ", text); }
const std::string sayText = "void TraceViewTest::say(const std::string&) ";
const std::string whisperText = "void TraceViewTest::whisper(const std::string&) ";
void sayNumbers(int from, int to) {
  for (int i = from; i < to; ++i) say(std::to_string(i));
}

class TraceViewTest : public testing::Test {
 protected:
  TraceViewTest() {
    char name[] = "/tmp/trace-view-test-XXXXXX";
    directory = mkdtemp(name);
    file = directory + "/test.rlg";
    options.files = {file};
    Ringlog::directoryIs(directory);
  }
  ~TraceViewTest() override {
    Ringlog::close();
    Ringlog::directoryIs("");
    std::filesystem::remove_all(directory);
  }

  static void open() { Ringlog::open("test.rlg", std::vector<std::size_t>(10, 4)); }
  // As a process that starts anew does.
  static void reopen() {
    Ringlog::close();
    open();
  }

  // The lines of the output without their times, which are checked, and without what the rings
  // hold.
  std::vector<std::string> lines() {
    std::istringstream in(output());
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
      if (RE2::FullMatch(line, "# (.[0-9]. )?([0-9]+ messages? .*from 20.*|no messages)")) continue;
      if (!line.starts_with('#') && line != "--") {
        EXPECT_THAT(line.substr(0, 27), MatchesRegex("20..-..-.. ..:..:..[.]...... "));
        line.erase(0, 27);
      }
      lines.push_back(line);
    }
    return lines;
  }

  // Each line has the text, and there is no other.
  template <class... Texts>
  void expectShown(const Texts&... texts) {
    EXPECT_THAT(lines(), ElementsAre(HasSubstr(texts)...));
  }

  // Follows the file, with a deed before each further look at it.
  void follow(std::vector<std::function<void()>> turns) {
    options.follow = [this, turns = std::move(turns),
                      turn = std::size_t{0}](std::chrono::milliseconds pause) mutable {
      pauses.push_back(static_cast<int>(pause.count()));
      if (turn == turns.size()) return false;
      turns[turn++]();
      return true;
    };
  }

  std::string header(const std::string& state = "running") const {
    return "# " + file + ": process " + std::to_string(getpid()) + ", " + state;
  }

  std::string output() {
    std::ostringstream out;
    status = traceCommand(options, out, errors);
    return out.str();
  }

  std::string directory;
  std::string file;
  std::vector<int> pauses;  // in ms
  Agent::TraceOptions options;
  std::ostringstream errors;
  int status = -1;
};

TEST_F(TraceViewTest, FiltersByLevelAndText) {
  open();
  say("first");
  whisper("second");
  say("third");
  EXPECT_THAT(lines(), ElementsAre(header(), "3 Test TraceViewTest::say first",
                                   "8 Test TraceViewTest::whisper second",
                                   "3 Test TraceViewTest::say third"));
  options.filter.mostLevel = 3;
  options.full = true;
  EXPECT_THAT(lines(),
              ElementsAre(header(), "3 Test " + sayText + "first", "3 Test " + sayText + "third"));
  options.filter.mostLevel = 9;
  options.filter.grep = "void TraceViewTest::say.*(d|e)$";
  expectShown(header(), "third");
  const Ringlog::Site site{3, "Test", "f()", {{Ringlog::Kind::label, 0, std::string(60'000, 'a')}}};
  Ringlog::ring()->record(3, Ringlog::ring()->addSite(site), 0, [](std::byte*) {});
  options.filter.grep = "(a|b)*!";  // a long text takes no stack
  expectShown(header(), "nothing matches");
  EXPECT_EQ(status, 0);
  EXPECT_THAT(errors.str(), IsEmpty());
}

TEST_F(TraceViewTest, PrintsWhatNoTerminalActsOn) {
  open();
  say("\"\033[2J\xff\n\xc2\x9b");
  expectShown(header(), "\"\\x1B[2J\\xFF\\x0A\\xC2\\x9B");
  options.json = true;
  std::ostringstream out;
  EXPECT_EQ(traceCommand(options, out, errors), 0);
  EXPECT_TRUE(std::ranges::none_of(
      out.str(), [](char c) { return c >= 0x7f || c < 0 || (c < ' ' && c != '\n'); }));
  std::istringstream in(out.str());
  std::string first;
  std::string second;
  EXPECT_TRUE(std::getline(in, first) && std::getline(in, second) && in.peek() == EOF);
  using nlohmann::json;
  const auto message = json::parse(second);
  EXPECT_EQ(json::parse(first), json({{"file", file},
                                      {"process", getpid()},
                                      {"state", "running"},
                                      {"messages", 1},
                                      {"levels", {{"3", 1}}},
                                      {"overwritten", 0},
                                      {"from", message["time"]},
                                      {"to", message["time"]},
                                      {"wholeFrom", nullptr}}));
  const std::int64_t time = std::stoll(message["ns"].get<std::string>());
  EXPECT_EQ(message, json({{"time", Agent::rfc3339Text(time)},
                           {"ns", std::to_string(time)},
                           {"level", 3},
                           {"facility", "Test"},
                           {"method", "TraceViewTest::say"},
                           {"text", sayText + "\"\033[2J\ufffd\n\u009b"}}));
}

TEST_F(TraceViewTest, SaysWhyThereIsNothingToShow) {
  const auto error = [this](int expected) {
    errors.str("");
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_EQ(status, expected);
    return errors.str();
  };
  options.follow = [](auto) { return true; };  // errors end this, too
  EXPECT_EQ(error(1), file + ": No such file or directory\n");
  std::ofstream(file) << "no ring at all";
  EXPECT_THAT(error(2), StartsWith(file + ": problem: the file's size is 14"));
  options.files = {file, file};
  EXPECT_THAT(error(64), StartsWith("--follow: expected one file"));
  options.files = {"-"};
  EXPECT_THAT(error(64), StartsWith("--follow: expected a file, not the standard input"));
  options.files = {file};
  options.previous = true;
  EXPECT_THAT(error(64), StartsWith("--follow: expected one file"));
  options.follow = nullptr;
  options.files = {directory};
  EXPECT_EQ(error(1), directory + ": not a regular file\n");
  options.files = {"-", file, "-"};
  EXPECT_THAT(error(64), StartsWith("-: the standard input was named more than once"));
  options = {.files = {file, directory, file}};
  EXPECT_THAT(error(1), HasSubstr(": problem: ")) << "what cannot be read at all counts more";
  options.filter.since = Agent::TimeBound::parse("2026-11-21 05:10");
  options.filter.until = Agent::TimeBound::parse("2026-11-21 05:09");
  EXPECT_THAT(error(64), HasSubstr("--until: 2026-11-21 05:09:00.000000 is before --since: "));
  options.filter = {.grep = "("};
  EXPECT_THAT(error(64), HasSubstr("--grep: the regular expression '(' is not valid: "));
}

TEST_F(TraceViewTest, ShowsWhatIsSoundOfADamagedFile) {
  open();
  say("sound");
  whisper("lost");
  Ringlog::close();
  std::fstream damaged(file, std::ios::in | std::ios::out | std::ios::binary);
  constexpr std::size_t regions = 4096;
  constexpr std::size_t regionSize = 4096;
  damaged.seekp(regions + 8 * regionSize);
  damaged.write("\xff\xff\xff\xff\xff\xff\xff\xff", 8);
  damaged.seekp(40);  // the number of messages of statements without room
  damaged.write("\x03", 1);
  damaged.close();
  follow({3, [] {}});
  expectShown(header("ended well"), "sound", "# 3 messages were dropped");
  EXPECT_EQ(status, 2);
  const std::string start = file + ": problem: level 8: ";
  EXPECT_THAT(errors.str(), StartsWith(start));
  EXPECT_EQ(errors.str().rfind(start), 0U) << "said once, though the file is read four times";
}

TEST_F(TraceViewTest, CountsWhatABurstHasOverwritten) {
  open();
  say("at first");
  const auto burst = [](int messages) {
    for (int i = 0; i < messages; ++i) whisper(std::to_string(i));
  };
  follow({[] { say("between"); }, [&] { burst(10); }, [&] { burst(10'000); }, [] {}});
  options.filter.grep = "say|9998";
  const auto shown = lines();
  options.filter.grep = "";
  follow({});
  const std::size_t kept = lines().size() - 3;
  EXPECT_THAT(shown, ElementsAre(header(), HasSubstr("at first"), HasSubstr("between"),
                                 "# " + std::to_string(10'000 - kept) +
                                     " messages were lost: overwritten before they could be read",
                                 HasSubstr(" 9998")));
}

TEST_F(TraceViewTest, FollowsTheFileAndTheOneThatTakesItsPlace) {
  open();
  say("at first");
  const std::string former = file + ".prev";
  const auto move = [](const std::string& from, const std::string& to) {
    Ringlog::close();
    std::filesystem::rename(from, to);
  };
  const auto sayAnew = [](const std::string& text) {
    reopen();
    say(text);
  };
  follow({[] { say("later"); }, [] {},
          [&] {
            say("last of the former");
            sayAnew("first of the next");
          },
          [&] { move(file, former); }, [this] { std::ofstream(file) << "half of a hea"; },
          [&] {
            std::filesystem::remove(file);
            sayAnew("again");
          },
          [&] { move(former, file); },
          [&] {
            sayAnew("second");
            sayAnew("third");
          }});
  // Also of a file that is older than the one before.
  const std::string ended = header("ended well");
  expectShown(header(), "at first", "later", "last of the former", header(), "first of the next",
              header(), "again", "# the file before is gone", ended, "first of the next", ended,
              "second", header(), "third");
  EXPECT_THAT(errors.str(), IsEmpty());
}

TEST_F(TraceViewTest, ReadsSoonerTheMoreAReadingBrought) {
  open();
  const auto fill = [](std::size_t sixteenths) {  // of a level
    const Ringlog::Site site{3, "Test", "f()", {}};
    const auto number = Ringlog::ring()->addSite(site);
    for (std::size_t i = 0; i < sixteenths; ++i)
      Ringlog::ring()->record(3, number, 256 - 16, [](std::byte*) {});
  };
  options.filter.mostLevel = 0;
  follow({[] {}, [] {}, [] {}, [] {}, [] {}, [] {}, [&] { fill(4); }, [&] { fill(16 * 40); },
          [&] { fill(1); }, [] {}});
  lines();
  EXPECT_THAT(pauses, ElementsAre(10, 20, 40, 80, 160, 200, 200, 100, 5, 10, 20));
}

// What the ring holds, and what not any more; "|" where a time stands.
TEST_F(TraceViewTest, TellsWhatARingCovers) {
  const auto told = [&] {
    std::string text = output();
    RE2::GlobalReplace(&text, "20..-..-.. ..:..:..[.]......", "|");
    text.erase(0, text.find('\n') + 1);
    return text.substr(0, text.find('\n'));
  };
  const auto whisperOften = [] {
    for (int i = 0; i < 1000; ++i) whisper("often");
  };
  open();
  EXPECT_EQ(told(), "# no messages");
  say("once");
  EXPECT_EQ(told(), "# 1 message from | to |");
  whisper("seldom");
  EXPECT_EQ(told(), "# 2 messages (level 3: 1, level 8: 1) from | to |");
  whisperOften();
  EXPECT_THAT(told(),
              MatchesRegex("# [0-9]+ messages [(]level 3: 1, level 8: [0-9]+[)] from . to .; "
                           "[0-9]+ others were overwritten, all before ."));
  reopen();
  whisperOften();
  EXPECT_THAT(told(), MatchesRegex("# [0-9]+ messages from . to .; [0-9]+ older ones were "
                                   "overwritten"));
  // In the level that has lost some, and at times that are not all there, something may have stood.
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const auto later = Agent::rfc3339Text(std::chrono::nanoseconds(now).count());
  const std::string gone =
      "# nothing matches, but older messages were overwritten: the ring is whole since 20";
  const std::string none = "# nothing matches, and nothing was overwritten that might have";
  const struct {
    unsigned level;
    std::string since, expected;
  } cases[] = {
      {9, "", gone}, {8, "", gone}, {7, "", none}, {9, later, none}, {9, "1999-12-31", gone}};
  for (const auto& [level, since, expected] : cases) {
    options.filter = {
        .mostLevel = level, .grep = "nowhere", .since = Agent::TimeBound::parse(since)};
    EXPECT_THAT(lines(), ElementsAre(header(), StartsWith(expected))) << level << since;
    EXPECT_EQ(status, 0);
  }
}

TEST_F(TraceViewTest, ShowsTheLastAndWhatStandsAroundThem) {
  open();
  sayNumbers(0, 10);
  const auto shown = [this] {
    std::string all;
    for (const std::string& line : lines())
      if (!line.starts_with('#')) all += line == "--" ? '|' : line.back();
    return all;
  };
  options.filter.grep = " [238]$";
  EXPECT_EQ(shown(), "238");
  options.context = 1;
  EXPECT_EQ(shown(), "1234|789");
  options.context = 2;
  EXPECT_EQ(shown(), "0123456789") << "without a gap";
  options.last = 2;
  options.context = 1;
  EXPECT_EQ(shown(), "234|789");
  options.json = true;
  std::string matches;
  std::istringstream in(output());
  for (std::string line; std::getline(in, line);)
    if (const auto object = nlohmann::json::parse(line); object.contains("match"))
      matches += object["match"] ? '+' : '-';
  EXPECT_EQ(matches, "-+--+-");
  options.json = false;
  options.last = 1;
  options.filter.grep = " [0-9]*[05]$";
  // The last of what is there, and all that comes; around them, too.
  follow({[] { sayNumbers(10, 15); }, [] { sayNumbers(15, 16); }, [] { sayNumbers(16, 19); }});
  EXPECT_EQ(shown(), "456|901|456");
}

TEST_F(TraceViewTest, MergesRingsByTime) {
  for (const char* const text : {"first", "second", "third"}) {
    reopen();
    say(text);
  }
  options.previous = true;
  const auto head = [this](int number, const std::string& age, const std::string& state) {
    return "# [" + std::to_string(number) + "] " + file + age + ": process " +
           std::to_string(getpid()) + ", " + state;
  };
  EXPECT_THAT(lines(), ElementsAre(head(1, ".prev.2", "ended well"), head(2, ".prev", "ended well"),
                                   head(3, "", "running"), "[1] 3 Test TraceViewTest::say first",
                                   "[2] 3 Test TraceViewTest::say second",
                                   "[3] 3 Test TraceViewTest::say third"));
  options.previous = false;
  options.files = {file, file + ".prev.2", file + ".prev"};
  options.filter.grep = "third|first";
  EXPECT_THAT(lines(), ElementsAre(StartsWith("# [1]"), StartsWith("# [2]"), StartsWith("# [3]"),
                                   "[2] 3 Test TraceViewTest::say first",
                                   "[1] 3 Test TraceViewTest::say third"));
  options.filter.grep = "none";
  for (int i = 0; i < 1000; ++i) whisper("often");
  EXPECT_THAT(lines().back(), HasSubstr("the rings are whole since"));
  options.json = true;
  EXPECT_THAT(output(), HasSubstr(R"({"matches":0,"wholeFrom":"20)"));
  options.filter.grep = "first";
  EXPECT_THAT(output(), EndsWith(R"("file":")" + file + ".prev.2\"}\n"));
}

TEST(TraceView, PausesUntilItIsToStop) {
  std::atomic<bool> stop = false;
  const Agent::Pause pause = Agent::pauseUntil(stop);
  EXPECT_TRUE(pause(std::chrono::milliseconds(0)));
  stop = true;
  EXPECT_FALSE(pause(std::chrono::hours(1)));
}

auto moment(const char* time) {
  return [time] { return Agent::TraceMoment{.time = time}; };
}

TEST(TraceStreamTest, PrintsTheLevelsThatAreOnForAsLongAsItLives) {
  std::ostringstream out;
  {
    const Agent::TraceStream stream(out, {3}, {&traceFacility}, moment("now"));
    say("shown\a");
    whisper("too low");
  }
  traceFacility.streamLevelsIs(Moru::TraceFacility::allLevels);
  say("to nobody");
  {
    const Agent::TraceStream stream(out, {9, true}, {&traceFacility}, moment("then"));
    whisper("all\alevels");
  }
  EXPECT_EQ(out.str(), "now 3 " + sayText + "shown\\x07\n" +
                           R"({"time":"then","level":8,"facility":")" + traceFacility.name() +
                           R"(","text":")" + whisperText + R"(all\u0007levels"})" + "\n");
  EXPECT_EQ(traceFacility.streamLevels(), 0U);
}

TEST(TextTest, GivesTimesAlsoBefore1970) {
  EXPECT_EQ(Agent::utcText(1'000'000'000'999'999'999), "2001-09-09 01:46:40.999999");
  EXPECT_EQ(Agent::rfc3339Text(1'000'000'000'012'345'678), "2001-09-09T01:46:40.012345678Z");
  EXPECT_EQ(Agent::utcText(-1), "1969-12-31 23:59:59.999999");
}

TEST(TextTest, PrintsNothingThatATerminalActsOn) {
  const std::string sound = "a ~\xc2\xa0\xc3\xa9 \xe2\x82\xac \xed\x9f\xbf \xf4\x8f\xbf\xbf";
  EXPECT_EQ(Agent::printable(sound), sound);
  EXPECT_EQ(Agent::printable("\033[2J\t\n\x7f\xc2\x9b \xff \x80 \xc3" + std::string(1, '\0')),
            R"(\x1B[2J\x09\x0A\x7F\xC2\x9B \xFF \x80 \xC3\x00)");
  // Spelled too long, half of a pair, beyond the last, and broken off by another character.
  EXPECT_EQ(Agent::printable("\xc1\x81 \xe0\x9f\xbf \xf0\x8f\xbf\xbf \xed\xa0\x80 "
                             "\xed\xbf\xbf \xf4\x90\x80\x80 \xe2\x82. \xe2\x82"),
            R"(\xC1\x81 \xE0\x9F\xBF \xF0\x8F\xBF\xBF \xED\xA0\x80 )"
            R"(\xED\xBF\xBF \xF4\x90\x80\x80 \xE2\x82. \xE2\x82)");
}

}  // namespace TraceViewTest
