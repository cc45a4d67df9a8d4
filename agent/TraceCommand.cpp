#include "agent/TraceCommand.h"

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "agent/Text.h"
#include "framework/Ringlog/Reader.h"

namespace Agent {

namespace {

// Tells a file from the one that takes its place.
using Identity = std::pair<dev_t, ino_t>;

std::optional<Identity> identityOf(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return Identity{status.st_dev, status.st_ino};
}

// Why a file cannot be read; empty if it can.
std::string whyNotReadable(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0)
    return std::strerror(errno);
  return S_ISREG(status.st_mode) ? "" : "not a regular file";
}

struct File {
  Identity identity;
  Ringlog::Contents contents;

  // A file whose header cannot be read names no process, and says why.
  bool isRing() const { return contents.process != 0 || contents.problems.empty(); }
};

// The contents and the identity of one and the same file, which may be replaced at any time; none
// if it is not there.
std::optional<File> readFile(const std::string& path) {
  for (auto before = identityOf(path); before;) {
    File file{*before, Ringlog::read(path)};
    const auto after = identityOf(path);
    if (after == before) return file;
    before = after;
  }
  return std::nullopt;
}

// Prints what is new in a file each time that it is read.
class Follower {
 public:
  Follower(const TraceOptions& options, std::ostream& out, std::ostream& errors)
      : options_(options), out_(out), errors_(errors), grep_(options.grep) {}

  int run() {
    if (const std::string why = whyNotReadable(options_.file); !why.empty()) return fail(why);
    const auto file = readFile(options_.file);
    if (!file) return fail(std::strerror(ENOENT));
    if (!file->isRing()) return fail("not a trace ring file: " + file->contents.problems.front());
    print(*file);
    while (options_.follow && out_.flush() && options_.follow()) printNews();
    return 0;
  }

 private:
  int fail(const std::string& why) {
    errors_ << options_.file << ": " << why << '\n';
    return 1;
  }

  // A file that is not there, or not yet complete, is on its way.
  void printNews() {
    const auto file = readFile(options_.file);
    if (!file || !file->isRing()) return;
    if (file->identity != identity_) printRestOfFormer();
    print(*file);
  }

  // What the process before wrote since the last reading: its file is kept under another name.
  void printRestOfFormer() {
    const auto former = readFile(options_.file + ".prev");
    if (former && former->identity == identity_) print(*former);
  }

  void print(const File& file) {
    if (file.identity != identity_ || file.contents.process != process_) begin(file);
    for (const Ringlog::Message& message : file.contents.messages) {
      if (last_ && !message.isAfter(*last_)) continue;
      if (message.level <= options_.mostLevel && std::regex_search(message.text, grep_))
        print(message);
    }
    if (!file.contents.messages.empty()) last_ = file.contents.messages.back();
    printDropped(file.contents.droppedMessages);
    for (const std::string& problem : file.contents.problems)
      if (problems_.insert(problem).second)
        errors_ << options_.file << ": problem: " << problem << '\n';
  }

  void begin(const File& file) {
    identity_ = file.identity;
    process_ = file.contents.process;
    last_.reset();
    dropped_ = 0;
    problems_.clear();
    if (options_.json)
      printObject({{"file", options_.file}, {"process", process_}});
    else
      out_ << "# " << options_.file << ": process " << process_ << '\n';
  }

  void print(const Ringlog::Message& message) {
    if (options_.json)
      printObject({{"time", utcText(message.time)},
                   {"ns", message.time},
                   {"level", message.level},
                   {"facility", message.facility},
                   {"text", message.text}});
    else
      out_ << utcText(message.time) << ' ' << message.level << ' ' << message.facility << ' '
           << message.text << '\n';
  }

  void printDropped(std::uint64_t dropped) {
    if (dropped == dropped_) return;
    dropped_ = dropped;
    if (options_.json)
      printObject(nlohmann::ordered_json::object({{"droppedMessages", dropped}}));
    else
      out_ << "# " << dropped << " messages were dropped: the file had no room for their statements"
           << '\n';
  }

  // Texts of a damaged file need not be UTF-8.
  void printObject(const nlohmann::ordered_json& object) {
    out_ << object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
  }

  const TraceOptions& options_;
  std::ostream& out_;
  std::ostream& errors_;
  std::regex grep_;
  std::optional<Identity> identity_;
  std::uint64_t process_ = 0;
  std::optional<Ringlog::Message> last_;
  std::uint64_t dropped_ = 0;
  std::set<std::string> problems_;
};

}  // namespace

Pause pauseUntil(const std::atomic<bool>& stop, std::chrono::milliseconds interval) {
  return [&stop, interval] {
    if (!stop) std::this_thread::sleep_for(interval);
    return !stop;
  };
}

int traceCommand(const TraceOptions& options, std::ostream& out, std::ostream& errors) {
  try {
    return Follower(options, out, errors).run();
  } catch (const std::regex_error& error) {
    errors << "the regular expression '" << options.grep << "' is not valid: " << error.what()
           << '\n';
    return 1;
  }
}

}  // namespace Agent
