#include "agent/ovsdb/Frames.h"

#include <algorithm>
#include <array>
#include <simdjson.h>
#include <utility>

#include "agent/ovsdb/Failure.h"

namespace Agent::Ovsdb {

namespace {

// By byte: whether the scan has to stop there.
using Stops = std::array<bool, 256>;

constexpr Stops stopsAt(std::string_view characters) {
  Stops stops = {};
  for (const char character : characters) stops[static_cast<unsigned char>(character)] = true;
  return stops;
}

constexpr Stops structure = stopsAt("{}[]\"");
constexpr Stops endsOfString = stopsAt("\"\\");

std::size_t findStop(std::string_view bytes, std::size_t from, const Stops& stops) {
  while (from < bytes.size() && !stops[static_cast<unsigned char>(bytes[from])]) ++from;
  return from;
}

}  // namespace

std::optional<std::string> FrameReader::next(std::string_view& bytes) {
  if (depth_ == 0) {
    bytes.remove_prefix(std::min(bytes.find_first_not_of(" \t\r\n"), bytes.size()));
    if (!bytes.empty() && bytes.front() != '{')
      throw Failure(excerpt(bytes), "expected a JSON object, which begins with {");
  }
  if (bytes.empty()) return std::nullopt;
  take(bytes, scan(bytes));
  if (depth_ != 0) return std::nullopt;
  frame_.reserve(frame_.size() + simdjson::SIMDJSON_PADDING);
  return std::exchange(frame_, {});
}

// How many of the bytes belong to the frame that has begun, or begins with them.
std::size_t FrameReader::scan(std::string_view bytes) {
  std::size_t at = 0;
  if (std::exchange(escaped_, false)) ++at;
  for (;; ++at) {
    at = findStop(bytes, at, inString_ ? endsOfString : structure);
    if (at >= bytes.size()) return bytes.size();
    if (bytes[at] == '\\') {
      if (++at == bytes.size()) escaped_ = true;
    } else if (bytes[at] == '"') {
      inString_ = !inString_;
    } else if (bytes[at] == '}' || bytes[at] == ']') {
      if (--depth_ == 0) return at + 1;
    } else if (++depth_ > limits_.depth) {
      refuse(bytes, "objects and arrays at most " + std::to_string(limits_.depth) + " deep");
    }
  }
}

void FrameReader::take(std::string_view& bytes, std::size_t length) {
  if (length > limits_.size - frame_.size())
    refuse(bytes, "a message of at most " + std::to_string(limits_.size) + " bytes");
  // A large frame is moved once, not again and again to twice the room: what is not written to
  // takes no memory.
  constexpr std::size_t large = std::size_t{4} << 20;
  const std::size_t size = frame_.size() + length;
  if (size > large && size > frame_.capacity())
    frame_.reserve(limits_.size + simdjson::SIMDJSON_PADDING);
  frame_.append(bytes.substr(0, length));
  bytes.remove_prefix(length);
}

void FrameReader::refuse(std::string_view bytes, const std::string& expected) const {
  throw Failure(excerpt(frame_.empty() ? bytes : frame_), "expected " + expected);
}

}  // namespace Agent::Ovsdb
