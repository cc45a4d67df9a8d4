#include "agent/base/StopSignal.h"

#include <csignal>

namespace Agent {

void StopSignal::install() {
  struct sigaction action {};
  action.sa_handler = take;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
}

// By the time that this runs, the signal has its default action again: to end the process.
void StopSignal::take(int signal) {
  if (isSet_.exchange(true))
    std::raise(signal);
  else
    number_ = signal;
}

}  // namespace Agent
