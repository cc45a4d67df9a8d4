// The layout of a ring file; docs/ring-format.md explains it. Inside the library only.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "framework/Ringlog/Site.h"

namespace Ringlog::Format {

inline constexpr std::array<char, 8> magic = {'R', 'I', 'N', 'G', 'L', 'O', 'G', '1'};
inline constexpr std::uint32_t byteOrder = 0x01020304;
inline constexpr std::size_t headerSize = 4096;

// When a counter value was, by the steady clock and by the calendar, in ns.
struct Anchor {
  std::uint64_t counter;
  std::int64_t steady;
  std::int64_t realtime;
};

// Positions count the bytes that have ever been written to the level: position % size is the place.
// What stands from tail up to head is whole.
struct Level {
  std::uint64_t offset;  // of the region in the file
  std::uint64_t size;    // in bytes, a multiple of the alignment
  std::uint64_t tail;
  std::uint64_t head;
};

// What has become of a file, as its writer tells. A file of a writer that does not has a zero.
enum class State : std::uint64_t {
  untold = 0,
  open = 1,
  closed = 2,  // by the ring's closing, or by the normal exit of the process
  left = 3     // others had taken the file away: the process has gone on in another one
};

struct Header {
  std::array<char, 8> magic;
  std::uint32_t byteOrder;
  std::uint32_t levels;
  std::uint64_t process;
  std::uint64_t sitesOffset;   // the site table goes from here
  std::uint64_t sitesSize;     // for so many bytes
  std::uint64_t droppedSites;  // statements that found no room in the table
  std::uint64_t anchors;       // how many there have been; the first is anchor[0], the last
                               // anchor[1 + anchors % 2]
  std::array<Anchor, 3> anchor;
  std::array<Level, mostLevels> level;
  std::uint64_t written;  // records over all levels, up to the last anchor
  State state;
};
static_assert(sizeof(Header) <= headerSize);

// A record begins with this; its payload follows, up to the next multiple of the alignment. A
// filler at the end of a region consists of its first eight bytes and nothing that counts.
struct Record {
  std::uint32_t sequence;  // over all levels; the lower half of a count
  std::uint16_t site;
  std::uint16_t size;  // of the whole record, in units of the alignment
  std::uint64_t counter;
};
inline constexpr std::size_t alignment = 8;
inline constexpr std::uint16_t filler = 0xffff;
inline constexpr std::size_t mostSites = filler;

// An entry of the site table: the size of what follows, and the serialized site, numbered from 0.
using SiteSize = std::uint32_t;

}  // namespace Ringlog::Format
