#include "agent/base/Text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <utility>

namespace Agent {

namespace {

const char* codeOf(Colour colour) {
  switch (colour) {
    case Colour::added:
      return "\033[32m";
    case Colour::gone:
      return "\033[31m";
    case Colour::changed:
      return "\033[33m";
    case Colour::none:
      break;
  }
  return "";
}

bool isNumber(const std::string& cell) {
  const auto isDigit = [](unsigned char c) { return std::isdigit(c) != 0; };
  const auto rest = std::find_if_not(cell.begin(), cell.end(), isDigit);
  return rest == cell.end() || (*rest == '.' && std::all_of(rest + 1, cell.end(), isDigit));
}

// The bytes of the character of UTF-8 that the text begins with; 0 if that is a control character,
// of ASCII or of Latin 1, or none at all: spelled too long, half of a pair, beyond the last.
std::size_t printableLength(std::string_view text) {
  const auto byte = [text](std::size_t i) -> unsigned {
    return static_cast<unsigned char>(text[i]);
  };
  const unsigned lead = byte(0);
  if (lead < 0x80) return lead >= ' ' && lead != 0x7f ? 1 : 0;
  const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
  if (lead < 0xc2 || lead > 0xf4 || text.size() < length) return 0;
  unsigned code = lead & (0x7fU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3f);
  }
  constexpr std::array<unsigned, 5> least = {0, 0, 0xa0, 0x800, 0x10000};
  const bool half = 0xd800 <= code && code <= 0xdfff;
  return code >= least[length] && code <= 0x10ffff && !half ? length : 0;
}

struct Column {
  std::size_t width;
  bool numeric;
};

std::string lineOf(const std::vector<std::string>& cells, const std::vector<Column>& columns) {
  std::ostringstream line;
  for (std::size_t i = 0; i < cells.size(); ++i)
    line << "  " << (columns[i].numeric ? std::right : std::left)
         << std::setw(static_cast<int>(columns[i].width)) << cells[i];
  std::string text = std::move(line).str();
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

}  // namespace

std::string secondsText(double seconds) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(6) << seconds << " s";
  return std::move(text).str();
}

std::string utcText(std::int64_t nanoseconds) {
  std::string text = rfc3339Text(nanoseconds);
  text[text.find('T')] = ' ';
  constexpr std::size_t beyondMicroseconds = 4;  // three digits, and the zone
  text.resize(text.size() - beyondMicroseconds);
  return text;
}

std::string rfc3339Text(std::int64_t nanoseconds) {
  constexpr std::int64_t second = 1'000'000'000;
  std::int64_t part = nanoseconds % second;
  if (part < 0) part += second;
  const std::time_t seconds = (nanoseconds - part) / second;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::ostringstream text;
  text << std::put_time(&utc, "%Y-%m-%dT%H:%M:%S") << '.' << std::setfill('0') << std::setw(9)
       << part << 'Z';
  return std::move(text).str();
}

std::string rfc3339Text(std::chrono::system_clock::time_point time) {
  return rfc3339Text(std::chrono::nanoseconds(time.time_since_epoch()).count());
}

const char* onOff(bool value) { return value ? "on" : "off"; }

std::string flagText(const std::optional<bool>& flag) { return flag ? onOff(*flag) : "absent"; }

void appendTo(std::string& list, std::string_view separator, std::string_view item) {
  if (!list.empty()) list += separator;
  list += item;
}

std::string printable(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const std::size_t length = printableLength(text);
    if (length > 0) {
      shown += text.substr(0, length);
    } else {
      constexpr const char* digits = "0123456789ABCDEF";
      const auto byte = static_cast<unsigned char>(text[0]);
      shown += {'\\', 'x', digits[byte >> 4], digits[byte & 0xf]};
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return shown;
}

std::string beginningOf(std::string_view text, std::size_t most) {
  if (text.size() <= most) return std::string(text);
  const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xc0) == 0x80; };
  constexpr std::size_t longestCharacter = 4;
  std::size_t end = most;
  while (end > 0 && most - end + 1 < longestCharacter && continues(text[end])) --end;
  return std::string(text.substr(0, end)) + "...";
}

void printColoured(std::ostream& out, Colour colour, const std::string& text) {
  out << codeOf(colour) << text << (colour == Colour::none ? "" : "\033[0m");
}

void TextTable::add(std::vector<std::string> cells, Colour colour) {
  for (std::string& cell : cells) cell = printable(cell);
  rows_.push_back({std::move(cells), colour});
}

bool TextTable::isNumeric(std::size_t column) const {
  return std::all_of(rows_.begin(), rows_.end(),
                     [&](const Row& row) { return isNumber(row.cells[column]); });
}

std::size_t TextTable::width(std::size_t column) const {
  std::size_t width = titles_[column].size();
  for (const Row& row : rows_) width = std::max(width, row.cells[column].size());
  return width;
}

void TextTable::print(std::ostream& out) const {
  std::vector<Column> columns;
  for (std::size_t i = 0; i < titles_.size(); ++i) columns.push_back({width(i), isNumeric(i)});
  if (!rows_.empty()) out << lineOf(titles_, columns) << '\n';
  for (const Row& row : rows_) {
    printColoured(out, row.colour, lineOf(row.cells, columns));
    out << '\n';
  }
  if (leftOut_ > 0) out << "  ... " << leftOut_ << " more\n";
}

}  // namespace Agent
