// The process's binary trace ring: the last trace records of each level, in a file that outlives
// the process. Trace statements (framework/Moru/Trace.h) write it; Reader.h renders it.
//
// The file is written only where the host program has named a directory for it:
//
//   Ringlog::directoryIs("/var/log/agent");
//   Ringlog::open("DpxVxlanControllerSm.rlg", sizesInKiB);   // a machine does that, once
//
// Nothing that becomes of the file disturbs the process. A ring that cannot be opened, or not
// extended for another statement, is done without; one whose file is renamed, removed, cut or
// written over by others is begun anew, within a second and a record. Either is said once, to the
// error sink and by error().
//
// The file is mapped, so that a record costs a few stores and is kept whenever the process ends.
// While a ring is open, a handler of SIGBUS guards the mapping, see Mapping.h.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "framework/Ringlog/File.h"
#include "framework/Ringlog/Format.h"
#include "framework/Ringlog/Mapping.h"
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

namespace Detail {
// To be called at the time that the ring has set: takes an anchor, and looks after the file. If
// that is lost, another ring takes the place of this one, or none.
void attend();
}  // namespace Detail

// Writes one file. What it needs to know of it, it keeps for itself: the file can be written by
// others, too, and nothing is ever read back from there.
class Ring {
 public:
  // Begins the file, of levelSizes.size() levels of so many KiB, and keeps so many of those before
  // it. Throws nothing: without a file, error() says why, and records go nowhere.
  Ring(const std::string& path, std::span<const std::size_t> levelSizes, unsigned predecessors);
  Ring(const Ring&) = delete;
  Ring& operator=(const Ring&) = delete;
  ~Ring();

  bool isOpen() const { return shared_ != nullptr; }
  const std::string& error() const { return error_; }

  // Of all records so far, also of those that later ones have taken the place of; and of the file.
  std::uint64_t bytesWritten() const;
  std::size_t fileSize() const { return fileSize_; }

  // Enters a statement into the site table and gives its number; Format::filler if there is no
  // room, which is then counted in the file, and the first time is an error().
  std::uint16_t addSite(const Site& site);

  // One more call of a statement that found no room.
  void drop() { publish(shared_->droppedSites, ++header_.droppedSites); }

  // Adds a record of `payload` bytes, which `fill(to)` writes. One that is too large for the
  // level's region, or of a level that the ring has not, goes nowhere. The ring may be gone, or be
  // another one, when this returns.
  template <class Fill>
  void record(unsigned level, std::uint16_t site, std::size_t payload, Fill&& fill) {
    constexpr std::size_t unit = Format::alignment;
    const std::size_t size = (sizeof(Format::Record) + payload + unit - 1) / unit * unit;
    if (level >= levels_.size()) return;
    Region& region = levels_[level];
    if (size > region.size / 2) return;
    std::byte* const to = makeRoom(region, size);
    const std::uint64_t now = counter();
    const Format::Record record{static_cast<std::uint32_t>(written_++), site,
                                static_cast<std::uint16_t>(size / unit), now};
    std::memcpy(to, &record, sizeof record);
    fill(to + sizeof record);
    publish(region.level->head, region.head);
    if (now >= attendAt_.load(std::memory_order_relaxed)) [[unlikely]]
      Detail::attend();
  }

  // Notes how counter and time of day relate now, and how many records there have been, and sets
  // the time for the next.
  void anchor();

  // Notes that nothing but what destructors of globals have to say comes behind this. A process
  // that was forked off cannot say so: it is not its file.
  void end() { endAs(Format::State::closed); }

  // Why the file is lost; empty if it is not.
  std::string whyLost() const;

  // Gives a lost file up, and removes it if it still has the name. Nothing may be recorded behind
  // this.
  void leave() {
    endAs(Format::State::left);
    file_.discard();
  }

 private:
  // Of a level: where it is mapped, and what the file is told of it. A ring with fewer levels has
  // regions of size 0.
  struct Region {
    std::byte* bytes = nullptr;
    std::size_t size = 0;
    Format::Level* level = nullptr;
    std::uint64_t head = 0;  // positions
    std::uint64_t tail = 0;
    std::size_t headPlace = 0;  // the same within the region
    std::size_t tailPlace = 0;
    std::vector<std::uint16_t> sizes{};  // of the records, where they begin, in units
  };

  // Whoever reads the file, of a process that may have died at any point, sees what was written
  // before a position once it sees the position.
  template <class T>
  static void publish(T& position, T value) {
    std::atomic_ref(position).store(value, std::memory_order_release);
    std::atomic_signal_fence(std::memory_order_seq_cst);
  }

  // Moves the head on; it is published when the record is there.
  static std::byte* makeRoom(Region& region, std::size_t size) {
    if (region.headPlace + size > region.size) [[unlikely]]
      fillUp(region);
    return advance(region, size);
  }

  static std::byte* advance(Region& region, std::size_t size) {
    free(region, size);
    std::byte* const to = region.bytes + region.headPlace;
    region.sizes[region.headPlace / Format::alignment] =
        static_cast<std::uint16_t>(size / Format::alignment);
    region.head += size;
    region.headPlace += size;
    if (region.headPlace == region.size) region.headPlace = 0;
    return to;
  }

  // Gives up the oldest records until `size` bytes from the head on are free.
  static void free(Region& region, std::size_t size) {
    if (region.head + size <= region.tail + region.size) return;
    do {
      const std::size_t oldest =
          region.sizes[region.tailPlace / Format::alignment] * Format::alignment;
      region.tail += oldest;
      region.tailPlace += oldest;
      if (region.tailPlace == region.size) region.tailPlace = 0;
    } while (region.head + size > region.tail + region.size);
    publish(region.level->tail, region.tail);
  }

  static void fillUp(Region& region);
  void endAs(Format::State state);
  std::string begin(const std::string& path, std::span<const std::size_t> levelSizes,
                    unsigned predecessors);

  std::string path_;
  std::string error_;
  File file_;
  Mapping mapping_;
  Format::Header* shared_ = nullptr;  // in the file; header_ is what it is told
  Format::Header header_{};
  std::size_t fileSize_ = 0;
  std::size_t sites_ = 0;
  std::array<Region, mostLevels> levels_;
  std::uint64_t written_ = 0;  // records
  std::atomic<std::uint64_t> attendAt_ = 0;
};

// Where ring files go; nowhere if empty, as at first.
void directoryIs(std::string directory);

// How many files of earlier processes are kept, as NAME.prev, NAME.prev.2 and so on, the newest
// first; 3 if not said. It counts when a file is begun.
void predecessorsIs(unsigned number);

// Opens the process's ring as `name` in that directory, with a size in KiB for each level. Does
// nothing if one is open, or without a directory. A file of that name that another process is
// writing is left alone, and this one goes without a ring.
void open(const std::string& name, std::span<const std::size_t> levelSizes);

// A ring that is open when the process exits needs no closing: it takes the records of destructors
// of globals, too. The file tells such an end, by exit() or from main(), from a crash.
void close();

// The levels that are wanted in the ring, once it is open: all, if not said.
void levelsIs(Levels levels);
Levels levels();

// What went wrong with the ring, last; empty if nothing did.
const std::string& error();

// Who is told of that, at once and, of the same text, only once; nobody at first. Whatever it does,
// a trace statement included, is allowed.
void errorSinkIs(void (*sink)(const std::string& text));

// Says it, unless it was the last thing said.
void reportError(const std::string& text);

namespace Detail {
inline Ring* ring = nullptr;
inline std::uint32_t generation = 0;
inline Levels levelsOn = 0;
}  // namespace Detail

// The ring that is open, or null, and a number that tells it from those before and after.
inline Ring* ring() { return Detail::ring; }
inline std::uint32_t generation() { return Detail::generation; }

// The levels that are wanted and can be had.
inline Levels levelsOn() { return Detail::levelsOn; }

}  // namespace Ringlog
