// Where what the client has made is printed: dumps, exceptions, turns of the event loop, in the
// format that was asked for.
#pragma once

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
  bool named = false;  // tables stand below the name of the journal that they are of
  TableOptions table{};
  Filter filter{};
};

class Output {
 public:
  // The stream must outlive this object. A stream that throws when it cannot be written, does so
  // out of each of these.
  Output(std::ostream& out, const OutputOptions& options, const std::string& journal);

  // What the filter leaves of it.
  void dump(Snapshot snapshot);
  void exception(const std::string& type, const std::string& text, const Origin& origin);
  void turn(const Turn& turn, const Origin& origin);

  // Hands on what is buffered.
  void flush() { out_.flush(); }

 private:
  void dumpTable(const Snapshot& snapshot);
  void dumpJson(const Snapshot& snapshot);

  std::ostream& out_;
  const OutputOptions options_;
  std::optional<Snapshot> last_;
  bool timelineBegun_ = false;
};

}  // namespace Agent
