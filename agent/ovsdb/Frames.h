// Cuts a stream of bytes into JSON objects, which follow each other without delimiters.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace Agent::Ovsdb {

// Every byte is looked at once, and what is kept is the frame that has begun, as far as it has
// come.
class FrameReader {
 public:
  struct Limits {
    std::size_t size = std::size_t{256} << 20;  // of a frame, in bytes
    std::size_t depth = 100;                    // of objects and arrays in each other
  };

  explicit FrameReader(Limits limits) : limits_(limits) {}
  FrameReader() : FrameReader(Limits()) {}

  // Takes bytes from the front of `bytes`, up to the end of a frame, and gives that frame; nothing
  // when all are taken and the frame goes on. The text has room behind it for the JSON parser's
  // padding. That a frame is JSON, beyond its braces, brackets and strings, is not checked.
  // Throws Failure for what is no frame; then the reader is of no more use.
  std::optional<std::string> next(std::string_view& bytes);

 private:
  void take(std::string_view& bytes, std::size_t length);
  std::size_t scan(std::string_view bytes);
  [[noreturn]] void refuse(std::string_view bytes, const std::string& expected) const;

  Limits limits_;
  std::string frame_;
  std::size_t depth_ = 0;
  bool inString_ = false;
  bool escaped_ = false;
};

}  // namespace Agent::Ovsdb
