#include "framework/Ringlog/File.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace Ringlog {

namespace {

constexpr const char* writtenByAnother = "another process is writing it";

std::string errorText(int error) { return std::system_category().message(error); }

// Closes what it has opened.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  operator int() const { return number_; }
  int release() { return std::exchange(number_, -1); }

 private:
  int number_;
};

// Whether the file has that name. If it cannot be looked at, errno says why.
bool isAt(int file, const std::string& path) {
  struct stat mine {};
  struct stat named {};
  if (fstat(file, &mine) != 0 || stat(path.c_str(), &named) != 0) return false;
  errno = 0;
  return mine.st_dev == named.st_dev && mine.st_ino == named.st_ino;
}

// A file system that knows no locks does without. Who reads a file may hold a lock for an instant,
// to see whether somebody writes it: only a lock that stays is a writer's.
bool isLockedByAnother(int file) {
  constexpr int mostAttempts = 50;
  constexpr auto instant = std::chrono::milliseconds(2);
  for (int i = 0; i < mostAttempts; ++i) {
    if (flock(file, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return false;
    std::this_thread::sleep_for(instant);
  }
  return true;
}

std::string rename(const std::string& from, const std::string& to) {
  if (std::rename(from.c_str(), to.c_str()) == 0 || errno == ENOENT) return {};
  return "cannot keep " + from + " as " + to + ": " + errorText(errno);
}

std::string remove(const std::string& path) {
  if (unlink(path.c_str()) == 0 || errno == ENOENT) return {};
  return "cannot remove " + path + ": " + errorText(errno);
}

// The oldest goes first, so that whatever fails nothing is lost.
std::string keep(const std::string& path, unsigned predecessors) {
  for (unsigned age = predecessors; age > 1; --age)
    if (std::string why = rename(predecessorOf(path, age - 1), predecessorOf(path, age));
        !why.empty())
      return why;
  return rename(path, predecessorOf(path, 1));
}

// Clears the name. The former file is locked until it has another one, so that of two processes
// that begin at a time one finds it locked, or gone.
std::string clear(const std::string& path, unsigned predecessors) {
  constexpr int mostAttempts = 10;
  for (int i = 0; i < mostAttempts; ++i) {
    const Descriptor former(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (former < 0) return errno == ENOENT ? "" : errorText(errno);
    if (isLockedByAnother(former)) return writtenByAnother;
    struct stat status {};
    if (!isAt(former, path) || fstat(former, &status) != 0) continue;
    return status.st_size == 0 || predecessors == 0 ? remove(path) : keep(path, predecessors);
  }
  return "other processes replace it all the time";
}

}  // namespace

std::string predecessorOf(const std::string& path, unsigned age) {
  return path + ".prev" + (age > 1 ? '.' + std::to_string(age) : "");
}

File::~File() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

std::string File::begin(const std::string& path, unsigned predecessors) {
  if (std::string why = clear(path, predecessors); !why.empty()) return why;
  Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (file < 0) return errno == EEXIST ? writtenByAnother : errorText(errno);
  if (isLockedByAnother(file)) return writtenByAnother;
  path_ = path;
  descriptor_ = file.release();
  // Where a standard stream is closed, what is printed there would land in the file.
  if (descriptor_ <= STDERR_FILENO) {
    const Descriptor low(descriptor_);
    descriptor_ = fcntl(low, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (descriptor_ < 0) return errorText(errno);
  }
  return {};
}

std::string File::extend(std::size_t size) {
  rlimit limit{};
  if (getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
      size > limit.rlim_cur)
    return "it needs " + std::to_string(size) + " bytes, and the process may write files of " +
           std::to_string(limit.rlim_cur);
  const int error = posix_fallocate(descriptor_, 0, static_cast<off_t>(size));
  if (error != 0) return std::to_string(size) + " bytes: " + errorText(error);
  size_ = size;
  return {};
}

std::string File::write(std::size_t offset, const std::string& bytes) {
  const auto written = pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
  if (written == static_cast<ssize_t>(bytes.size())) return {};
  return written < 0 ? errorText(errno) : "no room for " + std::to_string(bytes.size()) + " bytes";
}

std::string File::whyLost() const {
  if (!isAt(descriptor_, path_)) return errno != 0 ? errorText(errno) : "another file has its name";
  struct stat status {};
  if (fstat(descriptor_, &status) != 0) return errorText(errno);
  if (static_cast<std::size_t>(status.st_size) >= size_) return {};
  return "others have cut it";
}

void File::discard() {
  if (descriptor_ >= 0 && isAt(descriptor_, path_)) unlink(path_.c_str());
}

}  // namespace Ringlog
