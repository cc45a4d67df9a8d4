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
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

void say(const std::string& text) { MORU_TRACE(3, " ", text); }
void whisper(const std::string& text) { MORU_TRACE(8, " ", text); }
const std::string sayText = "void TraceViewTest::say(const std::string&) ";
const std::string whisperText = "void TraceViewTest::whisper(const std::string&) ";

class TraceViewTest : public testing::Test {
 protected:
  TraceViewTest() {
    char name[] = "/tmp/trace-view-test-XXXXXX";
    directory = mkdtemp(name);
    options.file = directory + "/test.rlg";
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

  // The lines of the output without their times, which are checked; headers as "#".
  std::vector<std::string> lines() {
    std::ostringstream out;
    status = traceCommand(options, out, errors);
    std::istringstream in(out.str());
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) {
      if (!line.starts_with('#')) {
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
    options.follow = [turns = std::move(turns), turn = std::size_t{0}]() mutable {
      if (turn == turns.size()) return false;
      turns[turn++]();
      return true;
    };
  }

  std::string header() const {
    return "# " + options.file + ": process " + std::to_string(getpid());
  }

  std::string directory;
  Agent::TraceOptions options;
  std::ostringstream errors;
  int status = -1;
};

TEST_F(TraceViewTest, FiltersByLevelAndText) {
  open();
  say("first");
  whisper("second");
  say("third");
  EXPECT_THAT(lines(),
              ElementsAre(header(), "3 Test " + sayText + "first",
                          "8 Test " + whisperText + "second", "3 Test " + sayText + "third"));
  options.mostLevel = 3;
  expectShown(header(), "first", "third");
  options.mostLevel = 2;
  expectShown(header());
  options.mostLevel = 9;
  options.grep = "say.*(d|e)$";
  expectShown(header(), "third");
  const Ringlog::Site site{3, "Test", "f()", {{Ringlog::Kind::label, 0, std::string(60'000, 'a')}}};
  Ringlog::ring()->record(3, Ringlog::ring()->addSite(site), 0, [](std::byte*) {});
  options.grep = "(a|b)*!";  // a long text takes no stack
  expectShown(header());
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
  EXPECT_EQ(json::parse(first), json({{"file", options.file}, {"process", getpid()}}));
  const auto message = json::parse(second);
  const std::int64_t time = std::stoll(message["ns"].get<std::string>());
  EXPECT_EQ(message, json({{"time", Agent::rfc3339Text(time)},
                           {"ns", std::to_string(time)},
                           {"level", 3},
                           {"facility", "Test"},
                           {"text", sayText + "\"\033[2J\ufffd\n\u009b"}}));
}

TEST_F(TraceViewTest, SaysWhyThereIsNothingToShow) {
  const auto error = [this](int expected) {
    errors.str("");
    EXPECT_THAT(lines(), IsEmpty());
    EXPECT_EQ(status, expected);
    return errors.str();
  };
  options.follow = [] { return true; };  // errors end this, too
  EXPECT_EQ(error(1), options.file + ": No such file or directory\n");
  std::ofstream(options.file) << "no ring at all";
  EXPECT_THAT(error(2), StartsWith(options.file + ": problem: the file's size is 14"));
  options.file = directory;
  EXPECT_EQ(error(1), directory + ": not a regular file\n");
  options.grep = "(";
  EXPECT_THAT(error(64), StartsWith("--grep: the regular expression '(' is not valid: "));
}

TEST_F(TraceViewTest, ShowsWhatIsSoundOfADamagedFile) {
  open();
  say("sound");
  whisper("lost");
  Ringlog::close();
  std::fstream file(options.file, std::ios::in | std::ios::out | std::ios::binary);
  constexpr std::size_t regions = 4096;
  constexpr std::size_t regionSize = 4096;
  file.seekp(regions + 8 * regionSize);
  file.write("\xff\xff\xff\xff\xff\xff\xff\xff", 8);
  file.seekp(40);  // the number of messages of statements without room
  file.write("\x03", 1);
  file.close();
  follow({3, [] {}});
  expectShown(header(), "sound", "# 3 messages were dropped");
  EXPECT_EQ(status, 2);
  const std::string start = options.file + ": problem: level 8: ";
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
  options.grep = "say|9998";
  const auto shown = lines();
  options.grep = "";
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
  const std::string former = options.file + ".prev";
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
          [&] { move(options.file, former); },
          [this] { std::ofstream(options.file) << "half of a hea"; },
          [&] {
            std::filesystem::remove(options.file);
            sayAnew("again");
          },
          [&] { move(former, options.file); },
          [&] {
            sayAnew("second");
            sayAnew("third");
          }});
  // Also of a file that is older than the one before.
  expectShown(header(), "at first", "later", "last of the former", header(), "first of the next",
              header(), "again", "# the file before is gone", header(), "first of the next",
              header(), "second", header(), "third");
  EXPECT_THAT(errors.str(), IsEmpty());
}

TEST(TraceView, PausesUntilItIsToStop) {
  std::atomic<bool> stop = false;
  const Agent::Pause pause = Agent::pauseUntil(stop, std::chrono::milliseconds(0));
  EXPECT_TRUE(pause());
  stop = true;
  EXPECT_FALSE(pause());
}

TEST(TraceStreamTest, PrintsTheLevelsThatAreOnForAsLongAsItLives) {
  std::ostringstream out;
  {
    const Agent::TraceStream stream(out, 3, {&traceFacility}, [] { return "now"; });
    say("shown\a");
    whisper("too low");
  }
  traceFacility.streamLevelsIs(Moru::TraceFacility::allLevels);
  say("to nobody");
  {
    const Agent::TraceStream stream(out, 9, {&traceFacility}, [] { return "then"; });
    whisper("all levels");
  }
  EXPECT_EQ(out.str(), "now 3 " + sayText + "shown\\x07\nthen 8 " + whisperText + "all levels\n");
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
