// The process's binary trace ring: the last trace records of each level, in a file that outlives
// the process. Trace statements (framework/Moru/Trace.h) write it; Reader.h renders it.
//
// The file is written only where the host program has named a directory for it:
//
//   Ringlog::directoryIs("/var/log/agent");
//   Ringlog::open("DpxVxlanControllerSm.rlg", sizesInKiB);   // a machine does that, once
//
// A ring that cannot be opened, or not extended for another statement, disturbs nobody: that is
// said once, to the error sink and by error(), and the process goes on.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "framework/Ringlog/Format.h"
#include "framework/Ringlog/Site.h"

namespace Ringlog {

// The time-stamp counter of the processor where it has one, else the steady clock in ns. The file
// tells how it relates to the time of day.
inline std::uint64_t counter() {
#if defined(__x86_64__)
  return __builtin_ia32_rdtsc();
#elif defined(__aarch64__)
  std::uint64_t ticks = 0;
  asm volatile("mrs %0, cntvct_el0" : "=r"(ticks));
  return ticks;
#else
  return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
}

class Ring {
 public:
  // Creates the file, of levelSizes.size() levels of so many KiB. Throws nothing: without a file,
  // error() says why, and records go nowhere.
  Ring(const std::string& path, std::span<const std::size_t> levelSizes);
  Ring(const Ring&) = delete;
  Ring& operator=(const Ring&) = delete;
  ~Ring();

  bool isOpen() const { return header_ != nullptr; }
  const std::string& error() const { return error_; }

  // Enters a statement into the site table and gives its number; Format::filler if there is no
  // room, which is then counted in the file, and the first time is an error().
  std::uint16_t addSite(const Site& site);

  // One more call of a statement that found no room.
  void drop() { ++header_->droppedSites; }

  // Adds a record of `payload` bytes, which `fill(to)` writes. One that is too large for the
  // level's region, or of a level that the ring has not, goes nowhere.
  template <class Fill>
  void record(unsigned level, std::uint16_t site, std::size_t payload, Fill&& fill) {
    constexpr std::size_t unit = Format::alignment;
    const std::size_t size = (sizeof(Format::Record) + payload + unit - 1) / unit * unit;
    if (level >= levels_.size()) return;
    Region& region = levels_[level];
    if (size > region.size / 2) return;
    std::byte* const to = makeRoom(region, size);
    const std::uint64_t now = counter();
    const Format::Record record{sequence_++, site, static_cast<std::uint16_t>(size / unit), now};
    std::memcpy(to, &record, sizeof record);
    fill(to + sizeof record);
    publish(region.level->head, region.level->head + size);
    if (now >= nextAnchor_) [[unlikely]]
      anchor();
  }

  // Notes how counter and time of day relate now, and sets the time for the next.
  void anchor();

 private:
  // Of a level: where it is mapped. A ring with fewer levels has regions of size 0.
  struct Region {
    std::byte* bytes = nullptr;
    std::size_t size = 0;
    Format::Level* level = nullptr;
    std::size_t headPlace = 0;  // head and tail within the region
    std::size_t tailPlace = 0;
  };

  // Whoever reads the file, of a process that may have died at any point, sees what was written
  // before a position once it sees the position.
  static void publish(std::uint64_t& position, std::uint64_t value) {
    std::atomic_ref(position).store(value, std::memory_order_release);
    std::atomic_signal_fence(std::memory_order_seq_cst);
  }

  static std::byte* makeRoom(Region& region, std::size_t size) {
    if (region.headPlace + size > region.size) [[unlikely]]
      fillUp(region);
    free(region, size);
    std::byte* const to = region.bytes + region.headPlace;
    region.headPlace += size;
    if (region.headPlace == region.size) region.headPlace = 0;
    return to;
  }

  // Gives up the oldest records until `size` bytes from the head on are free.
  static void free(Region& region, std::size_t size) {
    Format::Level& level = *region.level;
    std::uint64_t tail = level.tail;
    if (level.head + size <= tail + region.size) return;
    do {
      const std::size_t oldest = recordSize(region, region.tailPlace);
      tail += oldest;
      region.tailPlace += oldest;
      if (region.tailPlace == region.size) region.tailPlace = 0;
    } while (level.head + size > tail + region.size);
    publish(level.tail, tail);
  }

  static std::size_t recordSize(const Region& region, std::size_t place) {
    std::uint16_t units = 0;
    std::memcpy(&units, region.bytes + place + offsetof(Format::Record, size), sizeof units);
    return units * Format::alignment;
  }

  static void fillUp(Region& region);
  std::string create(const std::string& path, std::span<const std::size_t> levelSizes);
  std::string extend(std::size_t size);

  std::string path_;
  std::string error_;
  int file_ = -1;
  Format::Header* header_ = nullptr;
  std::size_t mapped_ = 0;
  std::size_t fileSize_ = 0;
  std::size_t sites_ = 0;
  std::array<Region, mostLevels> levels_;
  std::uint32_t sequence_ = 0;
  std::uint64_t nextAnchor_ = 0;
};

// Where ring files go; nowhere if empty, as at first.
void directoryIs(std::string directory);

// Opens the process's ring as `name` in that directory, with a size in KiB for each level. Does
// nothing if one is open, or without a directory. A file of that name, which an earlier process has
// left, is kept as NAME.prev.
void open(const std::string& name, std::span<const std::size_t> levelSizes);

// A ring that is open when the process exits needs no closing: it takes the records of destructors
// of globals, too.
void close();

// The levels that are wanted in the ring, once it is open: all, if not said.
void levelsIs(Levels levels);
Levels levels();

// What went wrong with the ring, last; empty if nothing did.
const std::string& error();

// Who is told of that, at once and, of the same text, only once; nobody at first.
void errorSinkIs(void (*sink)(const std::string& text));

// Says it, unless it was the last thing said.
void reportError(const std::string& text);

namespace Detail {
inline Ring* ring = nullptr;
inline std::uint32_t generation = 0;
inline Levels levelsOn = 0;
}  // namespace Detail

// The ring that is open, or null, and a number that tells one from the next.
inline Ring* ring() { return Detail::ring; }
inline std::uint32_t generation() { return Detail::generation; }

// The levels that are wanted and can be had.
inline Levels levelsOn() { return Detail::levelsOn; }

}  // namespace Ringlog
