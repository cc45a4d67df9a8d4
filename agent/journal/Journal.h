// The reader of state journals: JSON Lines, each a time and one action.
//
//   Agent::Journal journal(std::cin, "stdin");
//   while (const auto line = journal.next()) ...
//
// It reads line by line, and keeps nothing of a line but its number and its time.
#pragma once

#include <cstdint>
#include <istream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "agent/base/InputError.h"
#include "agent/journal/LineReader.h"
#include "agent/store/Change.h"
#include "agent/store/Inputs.h"

namespace Agent {

// Print the client's state.
struct Dump {
  std::string label;
};

// Build a client.
struct Start {};

// Destroy the client.
struct Stop {};

// Hand these inputs to every client from here on as null.
struct Absent {
  InputSet inputs;
};

using Action = std::variant<Change, Dump, Start, Stop, Absent>;

struct Line {
  std::uint64_t number = 0;  // the first line of the file is 1
  double at = 0;             // seconds from the start of the recording, never less than before
  Action action;
};

// Whether a line is blank, or a comment.
bool isSkipped(std::string_view text);

class Journal {
 public:
  // `name` is the file's, for place(). The stream must outlive the journal.
  Journal(std::istream& in, std::string name);
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  // The next line that is not blank and no comment, or nothing at the end. Throws InputError for
  // a malformed line and Moru::RangeException for a value that the data model refuses; the
  // call after that goes on with the line behind. Throws std::ios_base::failure when the stream
  // cannot be read.
  std::optional<Line> next();

  // Reads on to a line that starts a client, and tells whether there is one. Lines that are
  // malformed are passed over: they are for next() to report.
  bool findStart();

  // Of the line read last, also when it was refused. `at` of a malformed line is that of the line
  // before unless it could be read.
  std::uint64_t number() const { return lines_.number(); }
  double at() const { return at_; }

  // "FILE:LINE" of the line read last, to be put before what is wrong with it.
  std::string place() const;

 private:
  struct Parser;

  Line parse(std::string_view text);

  LineReader lines_;
  std::unique_ptr<Parser> parser_;
  const std::string name_;
  double at_ = 0;
};

}  // namespace Agent
