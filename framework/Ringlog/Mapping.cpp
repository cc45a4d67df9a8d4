#include "framework/Ringlog/Mapping.h"

#include <cerrno>
#include <csignal>
#include <sys/mman.h>

namespace Ringlog {

namespace {

// What the handler knows; `bytes` is null while nothing is mapped.
constinit std::atomic<std::byte*> guardedBytes = nullptr;
constinit std::atomic<std::size_t> guardedSize = 0;
constinit std::atomic<std::atomic<std::uint64_t>*> guardedAlarm = nullptr;
static_assert(std::atomic<std::byte*>::is_always_lock_free &&
              std::atomic<std::uint64_t>::is_always_lock_free);

struct sigaction former {};
bool isInstalled = false;

void* replace(void* bytes, std::size_t size) {
  return mmap(bytes, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
}

// Whether the fault is the mapping's, and mended. The whole of it is replaced: the file is lost
// with any of its pages.
bool isMended(const siginfo_t& info) {
  std::byte* const bytes = guardedBytes;
  const auto offset =
      reinterpret_cast<std::uintptr_t>(info.si_addr) - reinterpret_cast<std::uintptr_t>(bytes);
  // Sent by a process, it has no address.
  if (bytes == nullptr || info.si_code <= 0 || offset >= guardedSize) return false;
  if (replace(bytes, guardedSize) == MAP_FAILED) return false;
  *guardedAlarm.load() = 0;
  return true;
}

void onBusError(int signal, siginfo_t* info, void* context) {
  const int error = errno;
  if (isMended(*info)) {
    errno = error;
  } else if ((former.sa_flags & SA_SIGINFO) != 0) {
    former.sa_sigaction(signal, info, context);
  } else if (former.sa_handler != SIG_DFL && former.sa_handler != SIG_IGN) {
    former.sa_handler(signal);
  } else if (former.sa_handler == SIG_DFL || info->si_code > 0) {
    // Nobody minds it: what is to end the process does so when this returns. A fault cannot be
    // ignored.
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    sigaction(signal, &standard, nullptr);
    raise(signal);
  }
}

void install() {
  if (isInstalled) return;
  sigaction(SIGBUS, nullptr, &former);
  struct sigaction mine = former;  // with its mask, as its handler may be called from within
  mine.sa_flags = SA_SIGINFO | SA_ONSTACK;
  mine.sa_sigaction = onBusError;
  isInstalled = sigaction(SIGBUS, &mine, nullptr) == 0;
}

// Unless somebody else has come in front since, who may call it for ever.
void uninstall() {
  struct sigaction current {};
  if (!isInstalled || sigaction(SIGBUS, nullptr, &current) != 0) return;
  if ((current.sa_flags & SA_SIGINFO) == 0 || current.sa_sigaction != onBusError) return;
  isInstalled = sigaction(SIGBUS, &former, nullptr) != 0;
}

}  // namespace

Mapping::~Mapping() {
  if (bytes_ == nullptr) return;
  guardedBytes = nullptr;
  uninstall();
  munmap(bytes_, size_);
}

bool Mapping::map(int file, std::size_t size, std::atomic<std::uint64_t>& alarm) {
  void* const map = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (map == MAP_FAILED) return false;
  bytes_ = static_cast<std::byte*>(map);
  size_ = size;
  guardedSize = size;
  guardedAlarm = &alarm;
  guardedBytes = bytes_;
  install();
  return true;
}

}  // namespace Ringlog
