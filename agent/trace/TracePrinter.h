// How rings are printed: a head of each, a line per message, and remarks, as text or as JSON; see
// TraceCommand.h for the form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>
#include <string>

#include "agent/trace/MessageFilter.h"
#include "framework/Ringlog/Reader.h"

namespace Agent {

struct TracePrinterOptions {
  bool json = false;
  bool full = false;          // whole signatures
  bool tellsRing = false;     // at each message
  bool tellsMatches = false;  // whether a message matches or stands around one that does
};

class TracePrinter {
 public:
  TracePrinter(const TracePrinterOptions& options, std::ostream& out)
      : options_(options), out_(out) {}

  // Rings are numbered from 0, by which their messages name them.
  void printHead(const std::string& path, std::size_t ring, const Ringlog::Contents& contents);
  void print(const ContextWindow::Shown& shown, const std::string& path);

  void printLost(std::uint64_t messages);
  void printDropped(std::uint64_t messages);
  void printFormerGone();

  // That nothing matches; and if something that is gone may have: from when all is there.
  void printNothing(std::optional<std::int64_t> wholeSince, bool isOneRing);

 private:
  template <class Value>
  void note(const char* name, const Value& value, const std::string& text);

  const TracePrinterOptions options_;
  std::ostream& out_;
};

}  // namespace Agent
