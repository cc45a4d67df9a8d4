// The file of a ring: how it gets its name, and whether it still has it.
//
// The process that writes a file holds a lock on it (flock), for as long as it lives. A file that
// is locked stays as it is and where it is; any other of that name is kept as a predecessor:
// NAME.prev, the one before it as NAME.prev.2, and so on.
#pragma once

#include <cstddef>
#include <string>

namespace Ringlog {

// The name of the `age`th file before the one of `path`, the newest being the first.
std::string predecessorOf(const std::string& path, unsigned age);

class File {
 public:
  File() = default;
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File();

  // Begins a new, empty file, and keeps that many of the files that have had its name before. All
  // of these functions return why not, or an empty text.
  std::string begin(const std::string& path, unsigned predecessors);

  // Makes the file so long, with room on the disk for all of it: writing into a mapped hole on a
  // full disk would fail, and growing past the process's limit would end it.
  std::string extend(std::size_t size);
  std::string write(std::size_t offset, const std::string& bytes);

  // Why the file is not any more what it was: renamed, removed, replaced, or shorter.
  std::string whyLost() const;

  // Takes the name from the file, if it still has it: nobody has use for it.
  void discard();

  int descriptor() const { return descriptor_; }

 private:
  std::string path_;
  int descriptor_ = -1;
  std::size_t size_ = 0;
};

}  // namespace Ringlog
