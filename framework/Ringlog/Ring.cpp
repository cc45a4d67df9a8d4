#include "framework/Ringlog/Ring.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <sys/mman.h>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Ringlog {

namespace {

// The site table grows by so many bytes.
constexpr std::size_t sitesStep = 65536;

// The longest time between two anchors, in counter units: about a second.
constexpr std::uint64_t longestAnchorInterval = std::uint64_t{1} << 32;

std::string errorText(int error) { return std::system_category().message(error); }

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

Ring::Ring(const std::string& path, std::span<const std::size_t> levelSizes) : path_(path) {
  if (const std::string why = create(path, levelSizes); !why.empty()) {
    error_ = "trace ring " + path + " is not written: " + why;
    if (file_ >= 0) {
      ::close(std::exchange(file_, -1));
      std::remove(path.c_str());
    }
  }
}

Ring::~Ring() {
  if (header_ != nullptr) {
    anchor();
    munmap(header_, mapped_);
  }
  if (file_ >= 0) ::close(file_);
}

std::string Ring::create(const std::string& path, std::span<const std::size_t> levelSizes) {
  if (levelSizes.size() > mostLevels)
    return std::to_string(levelSizes.size()) + " levels, expected at most " +
           std::to_string(mostLevels);
  constexpr std::size_t kibibyte = 1024;
  std::size_t size = Format::headerSize;
  for (const std::size_t levelSize : levelSizes) size += levelSize * kibibyte;

  file_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file_ < 0) return errorText(errno);
  if (std::string why = extend(size + sitesStep); !why.empty()) return why;
  void* const map = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0);
  if (map == MAP_FAILED) return errorText(errno);

  mapped_ = size;
  header_ = new (map) Format::Header{};
  header_->byteOrder = Format::byteOrder;
  header_->levels = static_cast<std::uint32_t>(levelSizes.size());
  header_->process = static_cast<std::uint64_t>(getpid());
  header_->sitesOffset = size;
  std::size_t offset = Format::headerSize;
  for (std::size_t level = 0; level < levelSizes.size(); ++level) {
    header_->level[level] = {offset, levelSizes[level] * kibibyte, 0, 0};
    levels_[level].bytes = static_cast<std::byte*>(map) + offset;
    levels_[level].size = levelSizes[level] * kibibyte;
    levels_[level].level = &header_->level[level];
    offset += levels_[level].size;
  }
  anchor();
  header_->magic = Format::magic;
  return {};
}

// Makes the file so long, with room on the disk for all of it: writing into a mapped hole on a full
// disk would end the process, and so would growing past its limit.
std::string Ring::extend(std::size_t size) {
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
      size > limit.rlim_cur)
    return "it needs " + std::to_string(size) + " bytes, and the process may write files of " +
           std::to_string(limit.rlim_cur);
  const int error = posix_fallocate(file_, 0, static_cast<off_t>(size));
  if (error != 0) return std::to_string(size) + " bytes: " + errorText(error);
  fileSize_ = size;
  return {};
}

std::uint16_t Ring::addSite(const Site& site) {
  const std::string body = serialize(site);
  const auto bodySize = static_cast<Format::SiteSize>(body.size());
  const std::size_t at = header_->sitesOffset + header_->sitesSize;
  const std::size_t end = at + sizeof bodySize + body.size();
  std::string why;
  if (sites_ == Format::mostSites)
    why = "it has all the " + std::to_string(sites_) + " statements that it can have";
  else if (end > fileSize_)
    why = extend(end + sitesStep);
  if (why.empty()) {
    // Written, not mapped: the table may be moved on by any number of steps.
    const auto offset = static_cast<off_t>(at);
    if (pwrite(file_, &bodySize, sizeof bodySize, offset) != sizeof bodySize ||
        pwrite(file_, body.data(), body.size(), offset + static_cast<off_t>(sizeof bodySize)) !=
            static_cast<ssize_t>(body.size()))
      why = errorText(errno);
  }
  if (!why.empty()) {
    if (error_.empty()) error_ = "trace ring " + path_ + " takes no further statements: " + why;
    return Format::filler;
  }
  publish(header_->sitesSize, end - header_->sitesOffset);
  return static_cast<std::uint16_t>(sites_++);
}

void Ring::fillUp(Region& region) {
  const std::size_t rest = region.size - region.headPlace;
  free(region, rest);
  Format::Record record{};
  record.site = Format::filler;
  record.size = static_cast<std::uint16_t>(rest / Format::alignment);
  std::memcpy(region.bytes + region.headPlace, &record, Format::alignment);
  publish(region.level->head, region.level->head + rest);
  region.headPlace = 0;
}

// The intervals double, so that the very first records have precise times too.
void Ring::anchor() {
  const Format::Anchor now = anchorNow();
  const std::uint64_t count = header_->anchors;
  if (count == 0) header_->anchor[0] = now;
  header_->anchor[1 + (count + 1) % 2] = now;
  publish(header_->anchors, count + 1);
  const std::uint64_t sinceFirst = now.counter - header_->anchor[0].counter;
  constexpr std::uint64_t shortestAnchorInterval = 4096;
  nextAnchor_ = now.counter + std::clamp(sinceFirst, shortestAnchorInterval, longestAnchorInterval);
}

namespace {

struct Process {
  std::string directory;
  std::unique_ptr<Ring> ring;
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

// What the last records say of the time is as good as what the first say.
void anchorAtExit() {
  if (process().ring) process().ring->anchor();
}

}  // namespace

void directoryIs(std::string directory) { process().directory = std::move(directory); }

void open(const std::string& name, std::span<const std::size_t> levelSizes) {
  Process& mine = process();
  if (mine.ring || mine.directory.empty()) return;
  static const int registered [[maybe_unused]] = std::atexit(anchorAtExit);
  const std::string path = mine.directory + '/' + name;
  std::rename(path.c_str(), (path + ".prev").c_str());  // there may be none
  auto ring = std::make_unique<Ring>(path, levelSizes);
  if (ring->isOpen())
    ringIs(std::move(ring));
  else
    reportError(ring->error());
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
