#include "agent/JournalFile.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "agent/Journal.h"

namespace Agent {

namespace {

[[noreturn]] void fail(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

}  // namespace

JournalFile::JournalFile(const std::string& path) : name_(path == "-" ? "<stdin>" : path) {
  if (path == "-") {
    spool(stdin);
  } else if (std::filesystem::is_directory(path)) {
    fail(EISDIR, "cannot read " + path);
  } else if (std::filesystem::exists(path) && !std::filesystem::is_regular_file(path)) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> in(std::fopen(path.c_str(), "rb"),
                                                             fclose);
    if (!in) fail(errno, "cannot open " + path);
    spool(in.get());
  } else {
    file_.open(path, std::ios::binary);
    if (!file_) fail(errno, "cannot open " + path);
  }
  hasStart_ = Journal(file_, name_).findStart();
  file_.clear();
  file_.seekg(0);
}

// The copy has no name left by the time that it is written: nothing stays behind, whatever happens.
void JournalFile::spool(std::FILE* in) {
  std::string path = std::filesystem::temp_directory_path() / "journal-XXXXXX";
  const int descriptor = mkstemp(path.data());
  if (descriptor < 0) fail(errno, "cannot make a temporary file " + path);
  close(descriptor);
  std::ofstream copy(path, std::ios::binary);
  file_.open(path, std::ios::binary);
  const int error = errno;
  unlink(path.c_str());
  if (!copy || !file_) fail(error, "cannot open " + path);

  std::vector<char> block(std::size_t{64} << 10);
  while (const std::size_t length = std::fread(block.data(), 1, block.size(), in))
    copy.write(block.data(), static_cast<std::streamsize>(length));
  if (std::ferror(in) != 0) throw std::ios_base::failure("cannot read " + name_);
  if (!copy.flush()) fail(errno, "cannot write a copy of " + name_);
}

}  // namespace Agent
