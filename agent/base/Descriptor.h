// File descriptors, and streams over them. What fails says why: the reason that the system gave
// first, where a standard stream knows of a failure only that there was one.
#pragma once

#include <cstddef>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace Agent {

// Throws the error that errno names.
[[noreturn]] void failWithErrno(const std::string& what);

// Closes it in the end.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor();

  int number() const { return number_; }

 private:
  int number_;
};

// Waits for something to read, and reads it: at most `size` bytes, 0 at the end of the file and
// where the program is to stop. Throws std::system_error, which begins with `what`.
std::size_t readSome(int descriptor, char* to, std::size_t size, const std::string& what);

// Writes it all, or throws std::system_error, which begins with `what`.
void writeAll(int descriptor, std::string_view bytes, const std::string& what);

// Takes the places of standard streams that are closed, so that no other file gets there and is
// written to or read by mistake. To use them still fails. Throws std::system_error.
void occupyStandardDescriptors();

// A stream that writes to a descriptor, which stays open. Whatever it cannot write is given up.
//
// A write that fails throws std::system_error, out of the statement that it is a part of, if
// exceptions() has badbit. Otherwise it sets badbit, and check() throws.
class OutputStream final : public std::ostream {
 public:
  enum class Buffering { blocks, lines };

  OutputStream(int descriptor, const std::string& name, Buffering buffering);

  // Throws the first failure, if there was one.
  void check() const;

 private:
  class Buffer final : public std::streambuf {
   public:
    Buffer(int descriptor, std::string what, Buffering buffering);

    const std::error_code& error() const { return error_; }
    const std::string& what() const { return what_; }

   protected:
    int_type overflow(int_type character) override;
    std::streamsize xsputn(const char* text, std::streamsize length) override;
    int sync() override;

   private:
    const int descriptor_;
    const std::string what_;
    const Buffering buffering_;
    std::error_code error_;
    std::string pending_;
  };

  Buffer buffer_;
};

}  // namespace Agent
