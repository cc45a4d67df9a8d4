#include "agent/trace/TraceCommand.h"

#include <algorithm>
#include <limits>
#include <set>
#include <thread>
#include <utility>

#include "agent/base/ExitStatus.h"
#include "agent/base/Text.h"
#include "agent/trace/Follower.h"
#include "agent/trace/RingSource.h"
#include "agent/trace/TracePrinter.h"

namespace Agent {

namespace {

using Ringlog::Contents;

// What does not go together; empty if all does.
std::string wrongUsageOf(const TraceOptions& options) {
  if (options.follow && (options.files.size() != 1 || options.previous))
    return "--follow: expected one file, without --previous";
  if (options.follow && options.files.front() == standardInput)
    return "--follow: expected a file, not the standard input";
  if (std::ranges::count(options.files, standardInput) > 1)
    return "-: the standard input was named more than once";
  return {};
}

class TraceRun {
 public:
  TraceRun(const TraceOptions& options, std::ostream& out, std::ostream& errors)
      : options_(options),
        out_(out),
        errors_(errors),
        paths_(options.previous ? withPredecessors(options.files) : options.files),
        filter_(options.filter),
        printer_({options.json, options.full, paths_.size() > 1, options.context > 0}, out),
        window_(options.context, [this](const ContextWindow::Shown& shown) {
          printer_.print(shown, paths_[shown.ring]);
        }) {}

  int run() {
    if (const std::string why = wrongUsageOf(options_); !why.empty()) return complain(why);
    for (const std::string& path : paths_) rings_.push_back(read(path));
    if (const std::string why = filter_.begin(lastMessage()); !why.empty()) return complain(why);
    if (options_.follow)
      follow();
    else
      printAll();
    return status_;
  }

 private:
  int complain(const std::string& text) {
    errors_ << text << '\n';
    return ExitStatus::wrongUsage;
  }

  // The worst that was met counts; of that, a file that cannot be read at all.
  void failWith(int status) {
    if (status_ != ExitStatus::failed) status_ = status;
  }

  // Nothing if it is not there to be read, or no ring.
  std::optional<Contents> read(const std::string& path) {
    if (const std::string why = whyNotReadable(path); !why.empty()) {
      errors_ << printable(path) << ": " << why << '\n';
      failWith(ExitStatus::failed);
      return std::nullopt;
    }
    auto contents = readRing(path);
    if (isRing(contents)) return contents;
    printProblems(path, contents);
    return std::nullopt;
  }

  void printProblems(const std::string& path, const Contents& contents) {
    for (const std::string& problem : contents.problems) {
      failWith(ExitStatus::refused);
      if (problems_.emplace(identityOf(contents), problem).second)
        errors_ << printable(path) << ": problem: " << printable(problem) << '\n';
    }
  }

  std::int64_t lastMessage() const {
    std::int64_t last = std::numeric_limits<std::int64_t>::min();
    for (const auto& ring : rings_)
      if (ring)
        last = std::max(last, ring->messages.empty() ? ring->openedAt : ring->messages.back().time);
    return last;
  }

  void printAll() {
    std::vector<RingMessage> messages;
    for (std::size_t ring = 0; ring < rings_.size(); ++ring) {
      if (!rings_[ring]) continue;
      printer_.printHead(paths_[ring], ring, *rings_[ring]);
      for (const Ringlog::Message& message : rings_[ring]->messages)
        messages.push_back({&message, ring});
    }
    // Each ring is in the order of time already, and stays in it where times are the same.
    std::ranges::stable_sort(messages, {},
                             [](const RingMessage& each) { return each.message->time; });
    const std::size_t shown = print(messages);
    for (std::size_t ring = 0; ring < rings_.size(); ++ring) {
      if (!rings_[ring]) continue;
      if (rings_[ring]->droppedMessages != 0) printer_.printDropped(rings_[ring]->droppedMessages);
      printProblems(paths_[ring], *rings_[ring]);
    }
    if (shown == 0 && !messages.empty()) printNothing();
  }

  void follow() {
    if (!rings_.front()) return;
    Follower follower(
        paths_.front(), printer_,
        {[this](const auto& news) { print(news); },
         [this](const Contents& contents) { printProblems(paths_.front(), contents); }});
    follower.print(*rings_.front());
    while (out_.flush() && options_.follow(follower.pause())) follower.printNews();
  }

  // Returns how many of them match; the last ones that do of the first time.
  std::size_t print(const std::vector<RingMessage>& messages) {
    std::vector<bool> isMatch(messages.size());
    std::size_t matches = 0;
    for (std::size_t i = messages.size(); i-- > 0;) {
      isMatch[i] = matches < most_ && filter_.matches(*messages[i].message);
      if (isMatch[i]) ++matches;
    }
    most_ = std::numeric_limits<std::size_t>::max();
    for (std::size_t i = 0; i < messages.size(); ++i) window_.take(messages[i], isMatch[i]);
    return matches;
  }

  void printNothing() {
    std::optional<std::int64_t> wholeSince;
    std::size_t rings = 0;
    for (const auto& ring : rings_) {
      if (!ring) continue;
      ++rings;
      wholeSince = std::max(wholeSince, ring->wholeSince(options_.filter.mostLevel));
    }
    if (filter_.since() && wholeSince && *filter_.since() >= *wholeSince) wholeSince.reset();
    printer_.printNothing(wholeSince, rings == 1);
  }

  const TraceOptions& options_;
  std::ostream& out_;
  std::ostream& errors_;
  const std::vector<std::string> paths_;
  MessageFilter filter_;
  TracePrinter printer_;
  ContextWindow window_;
  std::size_t most_ = options_.last.value_or(std::numeric_limits<std::size_t>::max());
  std::vector<std::optional<Contents>> rings_;
  std::set<std::pair<RingIdentity, std::string>> problems_;
  int status_ = ExitStatus::done;
};

}  // namespace

Pause pauseUntil(const std::atomic<bool>& stop) {
  return [&stop](std::chrono::milliseconds interval) {
    if (!stop) std::this_thread::sleep_for(interval);
    return !stop;
  };
}

int traceCommand(const TraceOptions& options, std::ostream& out, std::ostream& errors) {
  return TraceRun(options, out, errors).run();
}

}  // namespace Agent
