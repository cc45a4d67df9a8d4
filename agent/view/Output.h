// Where a replay prints what the client has made: dumps, exceptions, turns of the event loop, in
// the format that was asked for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

#include "agent/view/Snapshot.h"
#include "agent/view/TableView.h"
#include "agent/view/TimelineView.h"

namespace Agent {

enum class Format { table, json };

struct OutputOptions {
  Format format = Format::table;
  bool diff = false;   // dumps show only what has changed since the one before
  bool named = false;  // says which journal it is of
  TableOptions table{};
};

class Output {
 public:
  // The stream must outlive this object. A stream that throws when it cannot be written, does so
  // out of each of these.
  Output(std::ostream& out, const OutputOptions& options, std::string journal);

  void dump(Snapshot snapshot);
  void exception(const std::string& type, std::uint64_t line, const std::string& text);
  void turn(const Turn& turn);

  // Hands on what is buffered.
  void flush() { out_.flush(); }

 private:
  void dumpTable(const Snapshot& snapshot);
  void dumpJson(const Snapshot& snapshot);

  std::ostream& out_;
  const OutputOptions options_;
  const std::string journal_;  // its name for JSON; empty if it is not to be told
  std::optional<Snapshot> last_;
  bool timelineBegun_ = false;
};

}  // namespace Agent
