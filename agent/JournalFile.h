// A journal that can be read twice: first for whether it has a start line, then for its lines.
#pragma once

#include <cstdio>
#include <fstream>
#include <istream>
#include <string>

namespace Agent {

class JournalFile {
 public:
  // Opens a file; "-" is the standard input. What cannot be read twice, a pipe for one, is copied
  // to a temporary file first, which goes with this object. Throws std::system_error when a file
  // cannot be opened or written, std::ios_base::failure when it cannot be read.
  explicit JournalFile(const std::string& path);

  // At the first line.
  std::istream& stream() { return file_; }

  // "FILE" of messages.
  const std::string& name() const { return name_; }

  // Whether any of its lines starts a client.
  bool hasStart() const { return hasStart_; }

 private:
  void spool(std::FILE* in);

  const std::string name_;
  std::ifstream file_;
  bool hasStart_ = false;
};

}  // namespace Agent
