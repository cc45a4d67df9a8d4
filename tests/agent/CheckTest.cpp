// The check of whole journals, the files that they are in, and how far a replay is.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include "agent/journal/Check.h"
#include "agent/journal/JournalFile.h"
#include "agent/replay/Progress.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::string> complaints(const std::string& text) {
  std::istringstream in(text);
  Agent::Journal journal(in, "j");
  std::vector<std::string> all;
  const auto result = Agent::check(journal, [&](const Agent::Complaint& complaint) {
    all.push_back("j:" + std::to_string(complaint.line) + ": " + complaint.text);
  });
  EXPECT_EQ(result.malformed + result.refused, all.size());
  EXPECT_EQ(result.lines + all.size(), std::ranges::count(text, '\n')) << text;
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
  EXPECT_THAT(complaints(absent + stop + "x\n" + start + "y\n" + stop + stop),
              ElementsAre(HasSubstr("j:2: stop"), HasSubstr("j:3: not JSON"),
                          HasSubstr("j:5: not JSON"), HasSubstr("j:7: stop")))
      << "in order, though the second is known to be wrong only with the fourth";
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

TEST(Progress, IsShownAFewTimesASecondAndTakenBack) {
  std::ostringstream terminal;
  Agent::Progress::Clock::time_point time;
  const auto now = [&] { return time += std::chrono::milliseconds(100); };
  {
    Agent::Progress progress(terminal, true, now);
    for (const std::uint64_t line : {1024, 1025, 2048, 3072}) progress.update(line, 1.5);
    progress.clear();
    progress.clear();
    progress.update(4096, 2);
    Agent::Progress(terminal, false, now).update(5120, 3);
  }
  EXPECT_EQ(terminal.str(), "\rline 2048, at 1.500000 s\r\x1b[K\rline 4096, at 2.000000 s\r\x1b[K");
}

TEST(JournalFile, ReadsAPipeFromItsBeginningAndLeavesNothingBehind) {
  const std::filesystem::path folder =
      testing::TempDir() + "journal-file-" + std::to_string(getpid());
  std::filesystem::create_directories(folder);
  const std::string pipe = folder / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  ASSERT_EQ(setenv("TMPDIR", folder.c_str(), 1), 0);
  const std::string before = "{\"absent\":[]}\n{\"dump\":\"" + std::string(100'000, 'x') + "\"}\n";
  const std::string start = "{\"start\":true}\n";
  const std::string behind = "{\"dump\":\"" + std::string(200'000, 'y') + "\"}\n";
  std::string whole = before;
  for (const std::string& each : {start, behind}) whole += each;
  for (const std::string& text : {std::string(), before, whole}) {
    std::thread writer([&] { std::ofstream(pipe) << text; });
    Agent::JournalFile file(pipe);
    EXPECT_EQ(file.firstLine(), text.substr(0, text.find('\n')));
    EXPECT_EQ(file.findStart(text == before ? text.size() : 200'000), text.size() > before.size())
        << "only what is before the start line must be kept";
    const std::filesystem::directory_iterator files(folder);
    EXPECT_EQ(std::distance(begin(files), end(files)), 1) << "the pipe";
    EXPECT_EQ(std::string(std::istreambuf_iterator(file.stream()), {}), text);
    writer.join();
  }
  std::signal(SIGPIPE, SIG_IGN);  // for the writer, of which not all is read
  std::thread writer([&] { std::ofstream(pipe) << before + behind; });
  EXPECT_THROW(Agent::JournalFile(pipe).findStart(200'000), std::runtime_error);
  writer.join();
  unsetenv("TMPDIR");
  std::filesystem::remove_all(folder);
}

}  // namespace
