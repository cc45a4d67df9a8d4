#include "framework/Ringlog/Ring.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <optional>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Ringlog {

namespace {

// The site table grows by so many bytes.
constexpr std::size_t sitesStep = 65536;

constexpr std::int64_t second = 1'000'000'000;

template <class Clock>
std::int64_t nanoseconds() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
      .count();
}

Format::Anchor anchorNow() {
  return {counter(), nanoseconds<std::chrono::steady_clock>(),
          nanoseconds<std::chrono::system_clock>()};
}

}  // namespace

Ring::Ring(const std::string& path, std::span<const std::size_t> levelSizes, unsigned predecessors)
    : path_(path) {
  if (const std::string why = begin(path, levelSizes, predecessors); !why.empty()) {
    error_ = "trace ring " + path + " is not written: " + why;
    file_.discard();
  }
}

Ring::~Ring() { end(); }

std::string Ring::begin(const std::string& path, std::span<const std::size_t> levelSizes,
                        unsigned predecessors) {
  if (levelSizes.size() > mostLevels)
    return std::to_string(levelSizes.size()) + " levels, expected at most " +
           std::to_string(mostLevels);
  constexpr std::size_t kibibyte = 1024;
  header_.byteOrder = Format::byteOrder;
  header_.levels = static_cast<std::uint32_t>(levelSizes.size());
  header_.process = static_cast<std::uint64_t>(getpid());
  header_.state = Format::State::open;
  header_.sitesOffset = Format::headerSize;
  for (std::size_t level = 0; level < levelSizes.size(); ++level) {
    header_.level[level] = {header_.sitesOffset, levelSizes[level] * kibibyte, 0, 0};
    header_.sitesOffset += header_.level[level].size;
  }

  if (std::string why = file_.begin(path, predecessors); !why.empty()) return why;
  fileSize_ = header_.sitesOffset + sitesStep;
  if (std::string why = file_.extend(fileSize_); !why.empty()) return why;
  if (!mapping_.map(file_.descriptor(), header_.sitesOffset, attendAt_))
    return std::system_category().message(errno);

  shared_ = new (mapping_.bytes()) Format::Header(header_);
  for (std::size_t level = 0; level < levelSizes.size(); ++level) {
    Region& region = levels_[level];
    region.bytes = mapping_.bytes() + header_.level[level].offset;
    region.size = header_.level[level].size;
    region.level = &shared_->level[level];
    region.sizes.resize(region.size / Format::alignment);
  }
  anchor();
  header_.magic = Format::magic;
  shared_->magic = Format::magic;
  return {};
}

std::uint16_t Ring::addSite(const Site& site) {
  std::string entry = serialize(site);
  const auto bodySize = static_cast<Format::SiteSize>(entry.size());
  entry.insert(0, reinterpret_cast<const char*>(&bodySize), sizeof bodySize);
  const std::size_t at = header_.sitesOffset + header_.sitesSize;
  const std::size_t end = at + entry.size();
  std::string why;
  if (sites_ == Format::mostSites) {
    why = "it has all the " + std::to_string(sites_) + " statements that it can have";
  } else if (end > fileSize_) {
    why = file_.extend(end + sitesStep);
    if (why.empty()) fileSize_ = end + sitesStep;
  }
  // Written, not mapped: the table may be moved on by any number of steps.
  if (why.empty()) why = file_.write(at, entry);
  if (!why.empty()) {
    if (error_.empty()) error_ = "trace ring " + path_ + " takes no further statements: " + why;
    return Format::filler;
  }
  publish(shared_->sitesSize, header_.sitesSize += entry.size());
  return static_cast<std::uint16_t>(sites_++);
}

void Ring::fillUp(Region& region) {
  const std::size_t rest = region.size - region.headPlace;
  Format::Record record{};
  record.site = Format::filler;
  record.size = static_cast<std::uint16_t>(rest / Format::alignment);
  std::memcpy(advance(region, rest), &record, Format::alignment);
  publish(region.level->head, region.head);
}

// The intervals double, so that the very first records have precise times too, up to a second.
void Ring::anchor() {
  const Format::Anchor now = anchorNow();
  Format::Anchor& first = header_.anchor[0];
  if (header_.anchors == 0) shared_->anchor[0] = first = now;
  shared_->anchor[1 + (header_.anchors + 1) % 2] = now;
  shared_->written = written_;
  publish(shared_->anchors, ++header_.anchors);
  constexpr std::uint64_t shortestInterval = 4096;
  const std::uint64_t ticks = now.counter - first.counter;
  const auto seconds = static_cast<std::uint64_t>((now.steady - first.steady) / second);
  attendAt_ = now.counter + std::max(ticks / std::max<std::uint64_t>(seconds, 1), shortestInterval);
}

void Ring::endAs(Format::State state) {
  if (!isOpen() || header_.state != Format::State::open ||
      header_.process != static_cast<std::uint64_t>(getpid()))
    return;
  anchor();
  header_.state = state;
  publish(shared_->state, state);
}

std::uint64_t Ring::bytesWritten() const {
  std::uint64_t bytes = 0;
  for (const Region& region : levels_) bytes += region.head;
  return bytes;
}

std::string Ring::whyLost() const {
  if (std::string why = file_.whyLost(); !why.empty()) return why;
  // Up to the size of the site table the header stays as it was at the beginning.
  if (std::memcmp(shared_, &header_, offsetof(Format::Header, sitesSize)) == 0) return {};
  return "others have written over it";
}

namespace {

struct Process {
  std::string directory;
  unsigned predecessors = 3;
  std::string path;
  std::vector<std::size_t> levelSizes;
  std::unique_ptr<Ring> ring;
  std::optional<std::int64_t> renewed;  // when another ring took the place of a lost one
  Levels levels = allLevels;
  std::string error;
  void (*errorSink)(const std::string&) = nullptr;
};

// Never destroyed: destructors of globals may trace.
Process& process() {
  static Process& process = *new Process;
  return process;
}

void ringIs(std::unique_ptr<Ring> ring) {
  Process& mine = process();
  mine.ring = std::move(ring);
  Detail::ring = mine.ring.get();
  Detail::levelsOn = mine.ring ? mine.levels : 0;
  ++Detail::generation;
}

void begin() {
  Process& mine = process();
  auto ring = std::make_unique<Ring>(mine.path, mine.levelSizes, mine.predecessors);
  if (ring->isOpen())
    ringIs(std::move(ring));
  else
    reportError(ring->error());
}

// At a normal exit, and behind the destructors of globals, which may trace, or crash: no handler
// that the standard library takes comes as late.
constexpr int latestPriority = 101;
[[gnu::destructor(latestPriority)]] void endAtExit() {
  if (process().ring) process().ring->end();
}

}  // namespace

void Detail::attend() {
  Process& mine = process();
  mine.ring->anchor();
  const std::string why = mine.ring->whyLost();
  if (why.empty()) return;
  // Whoever takes the file away again and again costs a file a second.
  const auto now = nanoseconds<std::chrono::steady_clock>();
  if (mine.renewed && now - *mine.renewed < second) return;
  mine.renewed = now;
  mine.ring->leave();
  ringIs(nullptr);
  mine.error.clear();
  begin();
  if (mine.ring) reportError("trace ring " + mine.path + " is begun anew: " + why);
}

void directoryIs(std::string directory) { process().directory = std::move(directory); }

void predecessorsIs(unsigned number) { process().predecessors = number; }

void open(const std::string& name, std::span<const std::size_t> levelSizes) {
  Process& mine = process();
  if (mine.ring || mine.directory.empty()) return;
  mine.path = mine.directory + '/' + name;
  mine.levelSizes.assign(levelSizes.begin(), levelSizes.end());
  mine.renewed.reset();
  begin();
}

void close() { ringIs(nullptr); }

void levelsIs(Levels levels) {
  Process& mine = process();
  mine.levels = levels;
  Detail::levelsOn = mine.ring ? levels : 0;
}

Levels levels() { return process().levels; }

void errorSinkIs(void (*sink)(const std::string&)) { process().errorSink = sink; }

void reportError(const std::string& text) {
  Process& mine = process();
  if (mine.error == text) return;  // said before
  mine.error = text;
  if (mine.errorSink != nullptr) mine.errorSink(text);
}

const std::string& error() { return process().error; }

}  // namespace Ringlog
