// The lines of a stream, one at a time, in memory that one line bounds and not the stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <memory>
#include <optional>
#include <string_view>

namespace Agent {

class LineReader {
 public:
  // In bytes, without the line's end.
  static constexpr std::size_t maxLineLength = std::size_t{16} << 20;

  // The stream must outlive the reader.
  explicit LineReader(std::istream& in);

  // The next line, or nothing at the end; good until the next call. The memory behind it is padded
  // as the JSON parser needs it. Throws InputError for a line that is too long, and goes on
  // behind it; std::ios_base::failure when the stream cannot be read.
  std::optional<std::string_view> next();

  // That of the line read last; the first is 1.
  std::uint64_t number() const { return number_; }

 private:
  std::size_t readPart(std::size_t length);
  void grow(std::size_t length);

  std::istream& in_;
  std::unique_ptr<char[]> buffer_;
  std::size_t capacity_ = 0;
  std::uint64_t number_ = 0;
};

}  // namespace Agent
