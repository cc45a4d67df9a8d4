#include "agent/trace/TraceCommand.h"

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <optional>
#include <re2/re2.h>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "agent/base/ExitStatus.h"
#include "agent/base/JsonText.h"
#include "agent/base/Text.h"
#include "framework/Ringlog/File.h"
#include "framework/Ringlog/Reader.h"

namespace Agent {

namespace {

using Ringlog::Contents;

// Tells a file from the one that takes its place.
using Identity = std::pair<std::uint64_t, std::uint64_t>;
Identity identityOf(const Contents& contents) { return {contents.process, contents.opened}; }

// Why a file cannot be read; empty if it can.
std::string whyNotReadable(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0)
    return std::strerror(errno);
  return S_ISREG(status.st_mode) ? "" : "not a regular file";
}

// A file whose header cannot be read names no process, and says why.
bool isRing(const Contents& contents) { return contents.process != 0 || contents.problems.empty(); }

// Prints what is new in a file each time that it is read.
class Follower {
 public:
  Follower(const TraceOptions& options, std::ostream& out, std::ostream& errors)
      : options_(options), out_(out), errors_(errors), grep_(options.grep, RE2::Quiet) {}

  int run() {
    if (!grep_.ok()) {
      errors_ << "--grep: the regular expression '" << printable(options_.grep)
              << "' is not valid: " << printable(grep_.error()) << '\n';
      return ExitStatus::wrongUsage;
    }
    if (const std::string why = whyNotReadable(options_.file); !why.empty()) {
      errors_ << printable(options_.file) << ": " << why << '\n';
      return ExitStatus::failed;
    }
    const auto contents = Ringlog::read(options_.file);
    if (isRing(contents)) {
      print(contents);
      while (options_.follow && out_.flush() && options_.follow()) printNews();
    } else {
      printProblems(contents);
    }
    return problems_.empty() ? ExitStatus::done : ExitStatus::refused;
  }

 private:
  // A file that is not there, or not yet complete, is on its way.
  void printNews() {
    const auto contents = Ringlog::read(options_.file);
    if (!isRing(contents)) return;
    if (identityOf(contents) != identity_) printFormer(identityOf(contents));
    print(contents);
  }

  // What was written since the last reading into the file that was followed, and into those of
  // processes that have come and gone since: they are kept under other names.
  void printFormer(const Identity& newest) {
    std::vector<Contents> formers;
    for (unsigned age = 1; formers.empty() || identityOf(formers.back()) != identity_; ++age) {
      auto former = Ringlog::read(Ringlog::predecessorOf(options_.file, age));
      if (!isRing(former)) {
        note("formerFile", "gone",
             "the file before is gone: what was written to it since is not shown");
        return;
      }
      if (identityOf(former) != newest) formers.push_back(std::move(former));
    }
    for (; !formers.empty(); formers.pop_back()) print(formers.back());
  }

  void print(const Contents& contents) {
    if (identityOf(contents) != identity_) begin(contents);
    std::vector<const Ringlog::Message*> news;
    for (const Ringlog::Message& message : contents.messages)
      if (!last_ || message.isAfter(*last_)) news.push_back(&message);
    if (last_ && !news.empty()) printLost(news.back()->sequence - last_->sequence, news.size());
    for (const Ringlog::Message* const message : news)
      if (message->level <= options_.mostLevel && RE2::PartialMatch(message->text, grep_))
        print(*message);
    if (!news.empty()) last_ = *news.back();
    printDropped(contents.droppedMessages);
    printProblems(contents);
  }

  void begin(const Contents& contents) {
    identity_ = identityOf(contents);
    last_.reset();
    dropped_ = 0;
    if (options_.json)
      printObject({{"file", options_.file}, {"process", contents.process}});
    else
      out_ << "# " << printable(options_.file) << ": process " << contents.process << '\n';
  }

  void print(const Ringlog::Message& message) {
    if (options_.json)
      printObject({{"time", rfc3339Text(message.time)},
                   {"ns", std::to_string(message.time)},
                   {"level", message.level},
                   {"facility", message.facility},
                   {"text", message.text}});
    else
      out_ << utcText(message.time) << ' ' << message.level << ' ' << printable(message.facility)
           << ' ' << printable(message.text) << '\n';
  }

  // Messages are numbered, over all levels.
  void printLost(std::uint32_t written, std::size_t seen) {
    if (written > seen)
      note("lostMessages", written - seen,
           std::to_string(written - seen) +
               " messages were lost: overwritten before they could be read");
  }

  void printDropped(std::uint64_t dropped) {
    if (std::exchange(dropped_, dropped) != dropped)
      note("droppedMessages", dropped,
           std::to_string(dropped) +
               " messages were dropped: the file had no room for their statements");
  }

  template <class Value>
  void note(const char* name, const Value& value, const std::string& text) {
    if (options_.json)
      printObject({{name, value}, {"reason", text}});
    else
      out_ << "# " << text << '\n';
  }

  void printProblems(const Contents& contents) {
    for (const std::string& problem : contents.problems)
      if (problems_.emplace(identityOf(contents), problem).second)
        errors_ << printable(options_.file) << ": problem: " << printable(problem) << '\n';
  }

  // Of ASCII alone: what a terminal acts on is spelled as \u, and so is what is no UTF-8.
  void printObject(const nlohmann::ordered_json& object) { out_ << jsonText(object) << '\n'; }

  const TraceOptions& options_;
  std::ostream& out_;
  std::ostream& errors_;
  RE2 grep_;
  std::optional<Identity> identity_;
  std::optional<Ringlog::Message> last_;
  std::uint64_t dropped_ = 0;
  std::set<std::pair<Identity, std::string>> problems_;
};

}  // namespace

Pause pauseUntil(const std::atomic<bool>& stop, std::chrono::milliseconds interval) {
  return [&stop, interval] {
    if (!stop) std::this_thread::sleep_for(interval);
    return !stop;
  };
}

int traceCommand(const TraceOptions& options, std::ostream& out, std::ostream& errors) {
  return Follower(options, out, errors).run();
}

}  // namespace Agent
