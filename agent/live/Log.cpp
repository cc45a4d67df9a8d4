#include "agent/live/Log.h"

#include <chrono>
#include <cstdlib>
#include <sys/stat.h>

#include "agent/base/Text.h"

namespace Agent {

bool Log::readsJournal(int descriptor) {
  const char* const journal = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  if (journal == nullptr || fstat(descriptor, &status) != 0) return false;
  return journal == std::to_string(status.st_dev) + ':' + std::to_string(status.st_ino);
}

void Log::write(Level level, const std::string& text) {
  if (underJournal_)
    out_ << '<' << static_cast<int>(level) << '>';
  else
    out_ << rfc3339Text(std::chrono::system_clock::now()) << ' ';
  switch (level) {
    case Level::error:
      out_ << "error: ";
      break;
    case Level::warning:
      out_ << "warning: ";
      break;
    case Level::notice:
      out_ << "notice: ";
      break;
  }
  out_ << printable(text) << '\n' << std::flush;
}

}  // namespace Agent
