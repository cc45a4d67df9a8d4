#include "agent/base/Descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "agent/base/StopSignal.h"

namespace Agent {

namespace {

// Whoever shares the descriptor may have made it one that does not wait.
bool mayTryAgain(int error) { return error == EINTR || error == EAGAIN; }

bool isReadyFor(short events, int descriptor, int milliseconds) {
  pollfd waiting{.fd = descriptor, .events = events, .revents = 0};
  return poll(&waiting, 1, milliseconds) > 0;
}

}  // namespace

void failWithErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

Descriptor::~Descriptor() {
  if (number_ >= 0) close(number_);
}

std::size_t readSome(int descriptor, char* to, std::size_t size, const std::string& what) {
  constexpr int longestWait = 50;  // a signal may come just before the wait, and not end it
  for (;;) {
    while (!isReadyFor(POLLIN, descriptor, longestWait))
      if (StopSignal::number() != 0) return 0;
    const ssize_t got = read(descriptor, to, size);
    if (got >= 0) return static_cast<std::size_t>(got);
    if (!mayTryAgain(errno)) failWithErrno(what);
  }
}

void writeAll(int descriptor, std::string_view bytes, const std::string& what) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written >= 0)
      bytes.remove_prefix(static_cast<std::size_t>(written));
    else if (!mayTryAgain(errno))
      failWithErrno(what);
    else
      isReadyFor(POLLOUT, descriptor, -1);
  }
}

// The null device, opened the wrong way round: to read from where output would go. A new descriptor
// takes the lowest free number.
void occupyStandardDescriptors() {
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(standard, F_GETFD) >= 0) continue;
    if (open("/dev/null", standard == STDIN_FILENO ? O_WRONLY : O_RDONLY) < 0)
      failWithErrno("cannot open /dev/null in the place of a closed standard stream");
  }
}

OutputStream::OutputStream(int descriptor, const std::string& name, Buffering buffering)
    : std::ostream(nullptr), buffer_(descriptor, "cannot write " + name, buffering) {
  rdbuf(&buffer_);
}

void OutputStream::check() const {
  if (buffer_.error()) throw std::system_error(buffer_.error(), buffer_.what());
}

OutputStream::Buffer::Buffer(int descriptor, std::string what, Buffering buffering)
    : descriptor_(descriptor), what_(std::move(what)), buffering_(buffering) {}

// There is no put area: every character comes through here, so that none ends a line unnoticed.
std::streamsize OutputStream::Buffer::xsputn(const char* text, std::streamsize length) {
  constexpr std::size_t block = std::size_t{16} << 10;
  const std::string_view added(text, static_cast<std::size_t>(length));
  pending_ += added;
  const bool endsLine =
      buffering_ == Buffering::lines && added.find('\n') != std::string_view::npos;
  if (endsLine || pending_.size() >= block) sync();
  return length;
}

OutputStream::Buffer::int_type OutputStream::Buffer::overflow(int_type character) {
  const char text = traits_type::to_char_type(character);
  if (character != traits_type::eof()) xsputn(&text, 1);
  return traits_type::not_eof(character);
}

int OutputStream::Buffer::sync() {
  const std::string bytes = std::exchange(pending_, {});
  try {
    writeAll(descriptor_, bytes, what_);
  } catch (const std::system_error& error) {
    if (!error_) error_ = error.code();
    throw;
  }
  return 0;
}

}  // namespace Agent
