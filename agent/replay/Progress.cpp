#include "agent/replay/Progress.h"

#include <utility>

#include "agent/base/Text.h"

namespace Agent {

void Progress::update(std::uint64_t line, double at) {
  constexpr std::uint64_t linesBetween = 1024;  // to ask the clock only so often
  constexpr auto timeBetween = std::chrono::milliseconds(200);
  if (!isOn_ || line % linesBetween != 0) return;
  const auto now = now_();
  if (now - shown_ < timeBetween) return;
  shown_ = now;
  isShown_ = true;
  terminal_ << "\rline " << line << ", at " << secondsText(at) << std::flush;
}

void Progress::clear() {
  constexpr const char* eraseLine = "\r\x1b[K";
  if (std::exchange(isShown_, false)) terminal_ << eraseLine << std::flush;
}

}  // namespace Agent
