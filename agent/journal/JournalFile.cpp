#include "agent/journal/JournalFile.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <streambuf>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

#include "agent/base/Descriptor.h"
#include "agent/base/Text.h"
#include "agent/journal/Journal.h"

namespace Agent {

namespace {

Descriptor opened(const std::string& path, const std::string& name) {
  Descriptor file(path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                              : open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.number() < 0) failWithErrno("cannot open " + name);
  return file;
}

// A file without a name: nothing stays behind, whatever happens.
Descriptor temporaryFile() {
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
  if (error) throw std::system_error(error, "no directory for a temporary file");
  std::string path = folder / "journal-XXXXXX";
  Descriptor file(mkostemp(path.data(), O_CLOEXEC));
  if (file.number() < 0) failWithErrno("cannot make a temporary file in " + folder.string());
  unlink(path.c_str());
  return file;
}

}  // namespace

// Reads the descriptor. Between keep() and back() it keeps what cannot be read again.
class JournalFile::Buffer final : public std::streambuf {
 public:
  Buffer(Descriptor file, std::string name)
      : file_(std::move(file)), name_(std::move(name)), block_(std::size_t{64} << 10) {
    struct stat status {};
    isRegular_ = fstat(file_.number(), &status) == 0 && S_ISREG(status.st_mode);
    if (isRegular_) begin_ = lseek(file_.number(), 0, SEEK_CUR);
  }

  void keep(std::size_t most) {
    if (isRegular_) return;
    if (kept_.number() < 0) kept_ = temporaryFile();
    isKeeping_ = true;
    mostKept_ = most;
  }

  void back() {
    setg(nullptr, nullptr, nullptr);
    isKeeping_ = false;
    const Descriptor& again = isRegular_ ? file_ : kept_;
    if (lseek(again.number(), begin_, SEEK_SET) < 0) failWithErrno("cannot go back in " + name_);
  }

 protected:
  int_type underflow() override {
    const std::size_t length = nextBlock();
    setg(block_.data(), block_.data(), block_.data() + length);
    return length == 0 ? traits_type::eof() : traits_type::to_int_type(block_.front());
  }

 private:
  std::size_t read(const Descriptor& from) {
    return readSome(from.number(), block_.data(), block_.size(), "cannot read " + name_);
  }

  std::size_t nextBlock() {
    if (kept_.number() >= 0) {
      if (const std::size_t length = read(kept_)) return length;
      if (!isKeeping_) kept_ = Descriptor();
    }
    if (hasEnded_) return 0;  // a terminal could be read on
    const std::size_t length = read(file_);
    hasEnded_ = length == 0 && !isRegular_;
    if (isKeeping_) keepBlock({block_.data(), length});
    return length;
  }

  void keepBlock(std::string_view block) {
    keptLength_ += block.size();
    if (keptLength_ > mostKept_)
      throw std::runtime_error(
          name_ +
          " has no start line so far, and no more of it can be kept: " + "expected one, or a file");
    writeAll(kept_.number(), block, "cannot write a copy of " + name_);
  }

  const Descriptor file_;
  const std::string name_;
  std::vector<char> block_;
  bool isRegular_ = false;
  off_t begin_ = 0;

  Descriptor kept_;  // the beginning of what cannot be read again
  bool isKeeping_ = false;
  std::size_t mostKept_ = 0;  // in bytes
  std::size_t keptLength_ = 0;
  bool hasEnded_ = false;
};

JournalFile::JournalFile(const std::string& path)
    : name_(path == "-" ? "<stdin>" : printable(path)),
      buffer_(std::make_unique<Buffer>(opened(path, name_), name_)),
      stream_(buffer_.get()) {
  stream_.exceptions(std::ios::badbit);  // what the buffer throws, with the reason
}

JournalFile::~JournalFile() = default;

std::string JournalFile::firstLine(std::size_t most) {
  buffer_->keep(most);
  std::string line;
  while (std::getline(stream_, line) && isSkipped(line)) {
  }
  stream_.clear();
  buffer_->back();
  return isSkipped(line) ? "" : line;
}

bool JournalFile::findStart(std::size_t most) {
  buffer_->keep(most);
  const bool found = Journal(stream_, name_).findStart();
  stream_.clear();
  buffer_->back();
  return found;
}

}  // namespace Agent
