// The example journals, replayed: what is printed of them stands in golden/, a file for each
// journal and view, and a client that is restarted on the way ends as one that is not. The methods
// that a trace may come from stand in golden/handlers: who filters by one of them finds all that it
// tells, and private helpers come and go without a change of recorded traces.
//
// Where a change is meant, this writes the files anew, and `git diff` shows it:
//
//   GOLDEN_UPDATE=1 build/release/bin/agent-golden-tests
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "agent/journal/Journal.h"
#include "agent/journal/JournalWriter.h"
#include "agent/replay/Replay.h"
#include "agent/view/DumpReader.h"
#include "agent/view/JsonView.h"
#include "tests/agent/Golden.h"

namespace {

using Json = nlohmann::json;
namespace fs = std::filesystem;
using AgentTest::Lines;
using AgentTest::linesOf;

constexpr Agent::Format json = Agent::Format::json;
constexpr Agent::Format table = Agent::Format::table;

struct View {
  const char* name;
  Agent::OutputOptions output;
  bool timeline = false;
  bool trace = false;
  bool smallBudget = false;  // deferred deletions take several batches
};

const std::vector<View> views{
    {.name = "json", .output = {.format = json}, .timeline = true},
    {.name = "diff.json", .output = {.format = json, .diff = true}},
    {.name = "diff", .output = {.format = table, .diff = true}},
    {.name = "table", .output = {.format = table}, .timeline = true, .smallBudget = true},
    {.name = "trace", .output = {.format = table}, .trace = true, .smallBudget = true},
};

// Of those there are the tables alone, and a count of each message of the trace.
bool isRecording(const fs::path& journal) { return fs::file_size(journal) > 100'000; }

// Addresses of objects differ from run to run.
std::string masked(const std::string& line) {
  static const std::regex address("0x[0-9a-f]+");
  return std::regex_replace(line, address, "0x-");
}

// How often each message comes, without the times and the values.
Lines counted(const Lines& messages) {
  static const std::regex value(R"(^\S+ s |\b([0-9a-f]{2}:){5}[0-9a-f]{2}|\b\d[\d.]*)");
  std::map<std::string, int> counts;
  for (const std::string& message : messages) ++counts[std::regex_replace(message, value, "-")];
  Lines lines;
  for (const auto& [message, count] : counts) lines.push_back(std::to_string(count) + message);
  return lines;
}

struct Played {
  int status;
  std::string out;
  std::string errors;
};

Played play(const fs::path& journal, const View& view) {
  Agent::ReplayOptions options;
  options.timeline = view.timeline;
  options.keepGoing = true;
  if (view.smallBudget) {
    options.timePerRead = 0.001;
    options.maxProcessTime = 0.003;
  }
  std::ostringstream out;
  std::ostringstream errors;
  const auto trace = view.trace ? std::optional(Agent::TraceStreamOptions{8}) : std::nullopt;
  const int status = Agent::replayCommand({journal}, options, view.output, trace, out, errors);
  return {status, out.str(), errors.str()};
}

std::vector<std::string> journals() {
  std::vector<std::string> names;
  for (const auto& each : fs::directory_iterator(EXAMPLE_JOURNALS))
    if (each.path().extension() == ".jsonl") names.push_back(each.path().stem());
  std::sort(names.begin(), names.end());
  return names;
}

std::string caseName(const testing::TestParamInfo<std::string>& info) {
  std::string name = info.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

// "ZepStateSm::cleanup" of "void Vxlan::ZepStateSm::cleanup() convergence window true"; what is not
// of a method itself, as a lambda, has more behind it.
std::string methodOf(const std::string& message) {
  static const std::regex signature(R"(\bVxlan::([\w:]+)\(.*?\)(::)?)");
  std::smatch found;
  std::regex_search(message, found, signature);
  return found.str(1) + found.str(2);
}

class Golden : public testing::TestWithParam<std::string> {
 protected:
  // Messages name the journal as it was given.
  void SetUp() override { fs::current_path(EXAMPLE_JOURNALS); }

  const std::string journal_ = GetParam() + ".jsonl";
  const Lines handlers_ = AgentTest::golden("handlers");
};

INSTANTIATE_TEST_SUITE_P(Journals, Golden, testing::ValuesIn(journals()), caseName);

TEST_P(Golden, PrintsWhatItHasPrinted) {
  const bool recording = isRecording(journal_);
  for (const View& view : views) {
    if (recording && !view.smallBudget) continue;
    const Played played = play(journal_, view);
    Lines lines = linesOf(std::istringstream(view.trace ? played.errors : played.out));
    if (recording && view.trace) lines = counted(lines);
    std::ranges::transform(lines, lines.begin(), masked);
    AgentTest::expectGolden(GetParam() + '.' + view.name, lines);
    for (const std::string& line : lines)
      EXPECT_TRUE(!view.trace || std::ranges::count(handlers_, methodOf(line)) == 1) << line;
    const bool refused = played.out.find("\"exception\"") != std::string::npos;
    EXPECT_EQ(played.status, refused ? Agent::ExitStatus::refused : Agent::ExitStatus::done);
    EXPECT_TRUE(view.trace || played.errors.empty()) << played.errors;
  }
}

TEST_P(Golden, ReadsItsDumpsAsTheyWerePrinted) {
  const Played played = play(journal_, {.name = "", .output = {.format = json}, .timeline = true});
  for (const std::string& line : linesOf(std::istringstream(played.out))) {
    EXPECT_TRUE(Agent::isOutput(line)) << line;
    const auto dump = Agent::readOutput(line);
    EXPECT_EQ(dump.has_value(), line.find("\"dump\": ") != std::string::npos) << line;
    std::ostringstream again;
    if (dump) printJson(again, *dump);
    EXPECT_EQ(again.str(), dump ? line + '\n' : "");
  }
  for (const std::string& line : linesOf(std::ifstream(journal_)))
    EXPECT_FALSE(Agent::isOutput(line)) << line;
}

// What the client and its outputs are in the end, but for the times at which hosts were read.
Json endOf(const fs::path& journal) {
  const Played played = play(journal, {.name = "", .output = {.format = json}});
  EXPECT_EQ(played.status, Agent::ExitStatus::done) << played.out << played.errors;
  const Json dump = Json::parse(linesOf(std::istringstream(played.out)).back());
  Json end;
  for (const char* const part : {"client", "l2rib", "clientView", "convergenceStatus"})
    end[part] = dump.at(part);
  for (Json* const hosts : {&end["client"]["hostTable"]["entries"], &end["l2rib"]["hosts"]})
    for (Json& host : *hosts) host.erase("time");
  return end;
}

// A file's name for as long as this is there.
struct Scratch {
  ~Scratch() { fs::remove(path); }
  const fs::path path = fs::temp_directory_path() / ("golden-test-" + std::to_string(getpid()));
};

// The end of the journal with a restart of the client, if one runs, behind each line of `where`.
template <class Where>
Json endWithRestarts(const Lines& lines, Where where) {
  const auto is = [](const std::string& line, const char* action) {
    return line.starts_with('{') && line.find(action) != std::string::npos;
  };
  bool running = false;
  const Scratch scratch;
  std::ofstream out(scratch.path);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    out << lines[i] << '\n';
    running = is(lines[i], "\"start\"") || (running && !is(lines[i], "\"stop\""));
    if (running && where(i)) out << "{\"stop\": true}\n{\"start\": true}\n";
  }
  out.close();
  return endOf(scratch.path);
}

TEST_P(Golden, EndsTheSameWhereverTheClientIsRestarted) {
  if (GetParam() == "refusals") return;  // a client cannot be built at every line of it
  Lines lines = linesOf(std::ifstream(journal_));
  std::erase_if(lines, [](const std::string& line) { return !line.starts_with('{'); });
  const Json end = endOf(journal_);
  const Json every = endWithRestarts(lines, [](std::size_t) { return true; });
  EXPECT_EQ(every, end) << "restarted behind every line: " << Json::diff(end, every);
  if (isRecording(journal_)) return;  // each would take a second
  for (std::size_t i = 0; i < lines.size(); ++i) {
    const Json once = endWithRestarts(lines, [i](std::size_t line) { return line == i; });
    EXPECT_EQ(once, end) << "restarted behind " << lines[i] << ": " << Json::diff(end, once);
  }
}

// A journal as the writer has it, and that read and written once more.
TEST_P(Golden, IsWhatItWasWhenItIsWrittenAnew) {
  const bool refuses = GetParam() == "refusals";  // has lines that cannot be read
  const auto rewritten = [&](std::istream&& in) {
    Agent::Journal journal(in, journal_);
    std::string text;
    for (;;) {
      try {
        const auto line = journal.next();
        if (!line) return text;
        text += Agent::lineText(line->at, line->action);
      } catch (const Moru::RangeException&) {
        EXPECT_TRUE(refuses) << journal.place();
      }
    }
  };
  const std::string once = rewritten(std::ifstream(journal_));
  EXPECT_EQ(rewritten(std::istringstream(once)), once);
  if (refuses) return;
  const Scratch scratch;
  std::ofstream(scratch.path) << once;
  EXPECT_EQ(endOf(scratch.path), endOf(journal_));
}

}  // namespace
