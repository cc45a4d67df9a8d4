// Reads a ring file: of a process that runs, has ended, or has died in the middle of anything.
// Nothing in the file is taken on trust. What is sound is read, and the rest is reported. Whatever
// the file holds, no more than some 400 MiB of memory is used.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "framework/Ringlog/Site.h"

namespace Ringlog {

struct Message {
  std::int64_t time = 0;  // ns since the beginning of 1970, UTC
  std::uint64_t counter = 0;
  std::uint32_t sequence = 0;  // over all levels; wraps around
  unsigned level = 0;
  std::string facility;
  std::string text;  // signature, labels and values, as the trace stream would have had it
  std::shared_ptr<const Site> site;  // its statement
  std::vector<std::byte> record;     // the values as they were recorded

  // Read out of the record at each call.
  std::vector<LabelledValue> values() const { return valuesOf(*site, record); }

  // Whether it came after `other`, in the same file: for whoever follows one that is being written.
  bool isAfter(const Message& other) const;
};

// What has become of who wrote a file.
enum class Writer {
  untold,   // of an earlier version, which did not tell
  running,  // and writes it
  closed,   // it has closed the file, or ended in good order
  left,     // it has gone on in another file: somebody had taken this one away
  gone,     // it has crashed, or was killed
  open      // it had not closed the file; whether it still runs, bytes alone do not tell
};

struct LevelContents {
  std::uint64_t size = 0;         // that it can hold, in bytes
  std::uint64_t written = 0;      // bytes that ever were
  std::uint64_t overwritten = 0;  // bytes of these that are gone
};

struct Contents {
  std::uint64_t process = 0;  // the id of the process that wrote the file
  std::uint64_t opened =
      0;  // when, as a counter value: with the process it tells one file from others
  std::int64_t openedAt = 0;  // the same in ns since the beginning of 1970
  Writer writer = Writer::untold;
  std::array<LevelContents, mostLevels> levels{};
  // Messages that ever were, up to the last of those that are there; nothing if the file does not
  // tell, or is damaged.
  std::optional<std::uint64_t> written{};
  std::uint64_t droppedMessages = 0;  // of statements for which the file had no room
  // Of all levels, in the order of time. Of a live file they are all that were written up to the
  // last of them, but for those overwritten since, and so are without a gap where a later reading
  // goes on.
  std::vector<Message> messages;
  std::vector<std::string>
      problems;  // what could not be read: where, what stands there, what should

  // Messages that older ones have had to make room for; nothing if that is not known.
  std::optional<std::uint64_t> overwritten() const;

  // From when on no message of the levels from 0 to `mostLevel` has been overwritten, in ns since
  // the beginning of 1970; nothing if none ever was.
  std::optional<std::int64_t> wholeSince(unsigned mostLevel = mostLevels - 1) const;
};

// Never throws; a file that cannot be opened is a problem. It is copied, and not mapped: it could
// be cut meanwhile.
Contents read(const std::string& path);

// The same for the bytes of a file. A live file is written while it is copied: `before` and `after`
// are copies of its header from before and after. They tell which messages may be missing among
// later ones, and which have been overwritten; both are left out.
Contents read(std::span<const std::byte> file, std::span<const std::byte> before = {},
              std::span<const std::byte> after = {});

// "2026-11-21 05:10:11.123456789 8 void Vxlan::...", in UTC, with the level before the text.
std::ostream& operator<<(std::ostream& out, const Message& message);

}  // namespace Ringlog
