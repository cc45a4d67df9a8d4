// The text of a journal: a file, a pipe or the standard input. It can be looked through before it
// is read.
#pragma once

#include <cstddef>
#include <istream>
#include <memory>
#include <string>

namespace Agent {

class JournalFile {
 public:
  // The longest beginning of a pipe that is kept to be read again, in bytes.
  static constexpr std::size_t mostKept = std::size_t{1} << 30;

  // Opens a file; "-" is the standard input. Throws std::system_error, as stream() does when it
  // cannot be read.
  explicit JournalFile(const std::string& path);
  ~JournalFile();
  JournalFile(const JournalFile&) = delete;
  JournalFile& operator=(const JournalFile&) = delete;

  // Reads on to a line that starts a client, tells whether there is one, and goes back. To be
  // called before anything is read, unless by firstLine().
  //
  // What cannot be read twice, a pipe for one, is kept up to there in a temporary file, which goes
  // with this object. Throws std::system_error when that cannot be written, and std::runtime_error
  // when it would be longer than `most` bytes.
  bool findStart(std::size_t most = mostKept);

  // Reads the first line that is not blank and no comment, goes back, and returns it; what it keeps
  // meanwhile is kept as above. Empty if there is none.
  std::string firstLine(std::size_t most = mostKept);

  std::istream& stream() { return stream_; }

  // "FILE" of messages.
  const std::string& name() const { return name_; }

 private:
  class Buffer;

  const std::string name_;
  const std::unique_ptr<Buffer> buffer_;
  std::istream stream_;
};

}  // namespace Agent
