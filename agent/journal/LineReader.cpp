#include "agent/journal/LineReader.h"

#include <algorithm>
#include <limits>
#include <simdjson.h>
#include <string>

#include "agent/base/InputError.h"

namespace Agent {

LineReader::LineReader(std::istream& in) : in_(in) {
  constexpr std::size_t firstCapacity = std::size_t{64} << 10;
  capacity_ = firstCapacity;
  buffer_ = std::make_unique_for_overwrite<char[]>(capacity_ + simdjson::SIMDJSON_PADDING);
}

// Reads up to the line's end or the buffer's. How many characters came, a line's end included.
std::size_t LineReader::readPart(std::size_t length) {
  in_.getline(&buffer_[length], static_cast<std::streamsize>(capacity_ - length));
  if (in_.bad()) throw std::ios_base::failure("the journal cannot be read");
  return static_cast<std::size_t>(in_.gcount());
}

void LineReader::grow(std::size_t length) {
  capacity_ = std::min(capacity_ * 2, maxLineLength + 1);
  auto larger = std::make_unique_for_overwrite<char[]>(capacity_ + simdjson::SIMDJSON_PADDING);
  std::copy_n(buffer_.get(), length, larger.get());
  buffer_ = std::move(larger);
}

std::optional<std::string_view> LineReader::next() {
  std::size_t length = readPart(0);
  if (length == 0 && in_.eof()) return std::nullopt;
  ++number_;
  // A failure that is not the end means that the buffer was full before the line ended.
  while (in_.fail() && !in_.eof()) {
    in_.clear();
    if (length == maxLineLength) {
      in_.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
      throw InputError("the line is too long: expected at most " + std::to_string(maxLineLength) +
                       " bytes");
    }
    grow(length);
    length += readPart(length);
  }
  if (!in_.eof()) --length;
  return std::string_view(buffer_.get(), length);
}

}  // namespace Agent
