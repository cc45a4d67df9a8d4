// The check of whole journals, the files that they are in, and when a client runs.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "agent/Check.h"
#include "agent/Lifecycle.h"
#include "agent/Progress.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::string> complaints(const std::string& text) {
  std::istringstream scanned(text);
  const bool hasStart = Agent::Journal(scanned, "j").findStart();
  std::istringstream in(text);
  Agent::Journal journal(in, "j");
  std::vector<std::string> all;
  Agent::check(journal, hasStart, [&](const std::string& complaint) { all.push_back(complaint); });
  return all;
}

TEST(Check, FindsLifecycleLinesThatAreOutOfPlace) {
  const std::string start = "{\"start\":true}\n";
  const std::string stop = "{\"stop\":true}\n";
  const std::string absent = "{\"absent\":[\"zepSde\"]}\n";
  EXPECT_THAT(complaints(""), IsEmpty());
  EXPECT_THAT(complaints(absent + start + stop + absent + start + stop), IsEmpty());
  EXPECT_THAT(complaints(stop + absent), IsEmpty()) << "without a start line a client runs";
  EXPECT_THAT(complaints(absent), ElementsAre(HasSubstr("j:1: absent while a client runs")));
  EXPECT_THAT(complaints(stop + stop), ElementsAre(HasSubstr("j:2: stop while no client runs")));
  EXPECT_THAT(complaints(stop + start), ElementsAre(HasSubstr("j:1: stop while no client runs")))
      << "a start line further down means that none runs here";
  EXPECT_THAT(complaints(start + absent + start),
              ElementsAre(HasSubstr("j:2: absent"), HasSubstr("j:3: start while a client runs")));
}

TEST(Check, GoesOnBehindWhatIsWrong) {
  EXPECT_THAT(complaints("{\"at\":5,\"dump\":\"a\"}\nnonsense\n{\"at\":4,\"dump\":\"b\"}\n"
                         "{\"set\":\"vlanVniMap/Vxlan1/4095\",\"value\":1}\n"
                         "{\"set\":\"controller/1\",\"value\":{\"type\":\"other\"}}\n"
                         "{\"set\":\"controller/1/multipath/2:0:0:0:0:1\",\"value\":[]}\n"),
              ElementsAre(HasSubstr("j:2: not JSON"), HasSubstr("j:3: at is 4"),
                          "j:4: RangeException: VlanId::value < 1 or > 4094 not allowed",
                          HasSubstr("j:6: controller/1 is of another type")));
}

TEST(Lifecycle, GathersWhatIsAbsentAndForgetsAClientThatFailed) {
  Agent::Lifecycle lifecycle(true);
  EXPECT_FALSE(lifecycle.running());
  for (const Agent::Input input : {Agent::Input::zepSde, Agent::Input::mlagStatus}) {
    Agent::Absent absent;
    absent.inputs.set(bitOf(input));
    lifecycle.follow(absent);
  }
  EXPECT_EQ(lifecycle.absent().to_ulong(), 1U << 8 | 1U << 4);
  lifecycle.follow(Agent::Start());
  EXPECT_THROW(lifecycle.follow(Agent::Absent()), Agent::JournalError);
  lifecycle.clientFailed();
  EXPECT_THROW(lifecycle.follow(Agent::Stop()), Agent::JournalError);
  lifecycle.follow(Agent::Start());
  EXPECT_TRUE(lifecycle.running());
}

TEST(Progress, IsShownAFewTimesASecondAndTakenBack) {
  std::ostringstream terminal;
  Agent::Progress::Clock::time_point now;
  const auto shown = [&] { return std::exchange(terminal, std::ostringstream()).str(); };
  {
    Agent::Progress progress(terminal, true, [&] { return now; });
    progress.update(1024, 1);
    now += std::chrono::milliseconds(200);
    progress.update(1025, 1);
    EXPECT_EQ(shown(), "") << "too soon, and not worth a look at the clock";
    progress.update(2048, 1.5);
    progress.update(3072, 2);
    EXPECT_EQ(shown(), "\rline 2048, at 1.500000 s");
    progress.clear();
    progress.clear();
    EXPECT_EQ(shown(), "\r\x1b[K");
    now += std::chrono::milliseconds(200);
    progress.update(4096, 2);
    shown();
  }
  EXPECT_EQ(shown(), "\r\x1b[K") << "gone with its owner";
  Agent::Progress(terminal, false, [&] { return now += std::chrono::hours(1); }).update(1024, 1);
  EXPECT_EQ(shown(), "");
}

TEST(JournalFile, ReadsEveryExampleWithoutComplaint) {
  std::size_t journals = 0;
  for (const auto& each : std::filesystem::directory_iterator(EXAMPLE_JOURNALS)) {
    if (each.path().extension() != ".jsonl") continue;
    Agent::JournalFile file(each.path());
    const auto result =
        Agent::check(file, [](const std::string& complaint) { ADD_FAILURE() << complaint; });
    EXPECT_GT(result.lines, 0U) << each.path();
    EXPECT_EQ(result.malformed + result.refused, 0U) << each.path();
    ++journals;
  }
  EXPECT_GE(journals, 5U);
}

TEST(JournalFile, ReadsAPipeTwiceAndLeavesNothingBehind) {
  const std::filesystem::path folder =
      testing::TempDir() + "journal-file-" + std::to_string(getpid());
  std::filesystem::create_directories(folder);
  const std::string pipe = folder / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  ASSERT_EQ(setenv("TMPDIR", folder.c_str(), 1), 0);
  for (const bool empty : {false, true}) {
    std::thread writer([&] {
      std::ofstream out(pipe);
      if (!empty)
        out << "{\"absent\":[]}\n{\"start\":true}\n{\"dump\":\"" << std::string(100000, 'x')
            << "\"}\n";
    });
    Agent::JournalFile file(pipe);
    writer.join();
    EXPECT_EQ(file.hasStart(), !empty);
    const auto result = Agent::check(file, [](const std::string& text) { ADD_FAILURE() << text; });
    EXPECT_EQ(result.lines, empty ? 0U : 3U);
    const std::filesystem::directory_iterator files(folder);
    EXPECT_EQ(std::distance(begin(files), end(files)), 1) << "the pipe";
  }
  unsetenv("TMPDIR");
  std::filesystem::remove_all(folder);
  EXPECT_THROW(Agent::JournalFile{pipe}, std::system_error);
  EXPECT_THROW(Agent::JournalFile{testing::TempDir()}, std::system_error);
}

}  // namespace
