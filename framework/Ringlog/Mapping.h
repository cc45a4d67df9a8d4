// A file mapped for writing, of which the loss does not end the process.
//
// Whoever may write the file may cut it, as the rotation of logs does, and the kernel answers the
// next touch of a page that is gone with SIGBUS. Nothing that the writer could ask beforehand
// excludes that, and nothing else keeps what is written, at the price of a store, when the process
// is killed. So while a file is mapped, a handler of SIGBUS stands guard: it claims faults within
// the mapping alone, puts empty memory in its place, and the writer goes on as if nothing had been,
// until it looks. All other faults go to the handler that was there before.
//
// A process that installs a handler of its own later has that protection only if it hands on what
// is not its own, as this one does.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Ringlog {

// There is one at a time that has mapped a file.
class Mapping {
 public:
  Mapping() = default;
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  ~Mapping();

  // Maps the first `size` bytes of the file, and installs the handler. `alarm` is set to 0 when the
  // mapping has lost the file. Returns false and sets errno if it cannot be mapped.
  bool map(int file, std::size_t size, std::atomic<std::uint64_t>& alarm);

  std::byte* bytes() const { return bytes_; }

 private:
  std::byte* bytes_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace Ringlog
