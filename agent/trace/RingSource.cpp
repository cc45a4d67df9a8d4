#include "agent/trace/RingSource.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <exception>
#include <span>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/base/Descriptor.h"
#include "framework/Ringlog/File.h"

namespace Agent {

namespace {

// As much as is read of a file.
constexpr std::size_t mostBytes = std::size_t{64} << 20;

Ringlog::Contents readStandardInput() {
  std::vector<char> bytes;
  std::array<char, 65536> part{};
  while (bytes.size() < mostBytes) {
    const std::size_t size =
        readSome(STDIN_FILENO, part.data(), part.size(), "cannot read the standard input");
    if (size == 0) break;
    bytes.insert(bytes.end(), part.begin(), part.begin() + static_cast<std::ptrdiff_t>(size));
  }
  return Ringlog::read(std::as_bytes(std::span(bytes)));
}

}  // namespace

std::string whyNotReadable(const std::string& path) {
  if (path == standardInput) return {};
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || access(path.c_str(), R_OK) != 0)
    return std::strerror(errno);
  return S_ISREG(status.st_mode) ? "" : "not a regular file";
}

Ringlog::Contents readRing(const std::string& path) {
  if (path != standardInput) return Ringlog::read(path);
  try {
    return readStandardInput();
  } catch (const std::exception& error) {
    Ringlog::Contents contents;
    contents.problems.emplace_back(error.what());
    return contents;
  }
}

// Looked for up to an age that nobody keeps: one may be missing among them.
std::vector<std::string> withPredecessors(const std::vector<std::string>& paths) {
  constexpr unsigned oldest = 99;
  std::vector<std::string> all;
  for (const std::string& path : paths) {
    for (unsigned age = oldest; path != standardInput && age > 0; --age)
      if (const std::string former = Ringlog::predecessorOf(path, age);
          access(former.c_str(), F_OK) == 0)
        all.push_back(former);
    all.push_back(path);
  }
  return all;
}

}  // namespace Agent
