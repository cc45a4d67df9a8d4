// Reads a ring file: of a process that runs, has ended, or has died in the middle of anything.
// Nothing in the file is taken on trust. What is sound is read, and the rest is reported.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <vector>

namespace Ringlog {

struct Message {
  std::int64_t time = 0;  // ns since the beginning of 1970, UTC
  std::uint64_t counter = 0;
  std::uint32_t sequence = 0;
  unsigned level = 0;
  std::string facility;
  std::string text;  // signature, labels and values, as the trace stream would have had it

  // Whether it came after `other`, in the same file: for whoever follows one that is being written.
  bool isAfter(const Message& other) const;
};

struct Contents {
  std::uint64_t process = 0;          // the id of the process that wrote the file
  std::uint64_t droppedMessages = 0;  // of statements for which the file had no room
  std::vector<Message> messages;      // of all levels, in the order of time
  std::vector<std::string>
      problems;  // what could not be read: where, what stands there, what should
};

// Never throws; a file that cannot be opened is a problem.
Contents read(const std::string& path);

// The same for the bytes of a file. What has been overwritten by the time that `later` was taken, a
// second copy of its first bytes, is left out: a live file is copied while it is written.
Contents read(std::span<const std::byte> file, std::span<const std::byte> later);

// "2026-11-21 05:10:11.123456789 8 void Vxlan::...", in UTC, with the level before the text.
std::ostream& operator<<(std::ostream& out, const Message& message);

}  // namespace Ringlog
