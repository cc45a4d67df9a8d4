// How the views write what people read: times, and tables with aligned columns.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Agent {

// Seconds from the start of a recording: "12.000000 s".
std::string secondsText(double seconds);

// Nanoseconds since the beginning of 1970: "2026-11-21 05:10:11.123456", in UTC and cut to
// microseconds.
std::string utcText(std::int64_t nanoseconds);

// The same as programs read it (RFC 3339), to the nanosecond: "2026-11-21T05:10:11.123456789Z".
std::string rfc3339Text(std::int64_t nanoseconds);
std::string rfc3339Text(std::chrono::system_clock::time_point time);

// "on" or "off".
const char* onOff(bool value);

// The same, or "absent".
std::string flagText(const std::optional<bool>& flag);

// Appends to a list within a text: `separator` goes before `item` unless the list is empty.
void appendTo(std::string& list, std::string_view separator, std::string_view item);

// What may go to a terminal of a text from outside: the bytes of control characters (tabs and ends
// of lines, too), and those that are not UTF-8, become \xNN, with two digits of 0 to 9 and A to F.
std::string printable(std::string_view text);

// The beginning of a text from outside, enough to find it by: what is longer than `most` bytes is
// cut in front of a character, and "..." stands for the rest.
std::string beginningOf(std::string_view text, std::size_t most = 80);

enum class Colour { none, added, gone, changed };

// Writes `text` between the terminal's codes of the colour: green, red and yellow.
void printColoured(std::ostream& out, Colour colour, const std::string& text);

// Rows of cells under titles. A column of which all cells are numbers is aligned to the right.
class TextTable {
 public:
  explicit TextTable(std::vector<std::string> titles) : titles_(std::move(titles)) {}

  // As many cells as there are titles. They are made printable.
  void add(std::vector<std::string> cells, Colour colour = Colour::none);

  // Counts rows that are not shown; the last line of the table then is "... 980 more".
  void leaveOut(std::size_t rows) { leftOut_ += rows; }

  // Indents by two blanks. Nothing is written of a table without rows.
  void print(std::ostream& out) const;

 private:
  struct Row {
    std::vector<std::string> cells;
    Colour colour;
  };

  bool isNumeric(std::size_t column) const;
  std::size_t width(std::size_t column) const;

  std::vector<std::string> titles_;
  std::vector<Row> rows_;
  std::size_t leftOut_ = 0;
};

// A title and a table of the first `most` items, for each of which addRow(table, item) adds its
// row; nothing if there are no items.
template <class Items, class AddRow>
void printFirst(std::ostream& out, const std::string& title, std::vector<std::string> columns,
                const Items& items, std::size_t most, AddRow addRow) {
  if (items.empty()) return;
  out << title << '\n';
  TextTable table(std::move(columns));
  std::size_t rows = 0;
  for (const auto& item : items) {
    if (rows == most) break;
    addRow(table, item);
    ++rows;
  }
  table.leaveOut(items.size() - rows);
  table.print(out);
}

}  // namespace Agent
