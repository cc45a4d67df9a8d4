#include "agent/StopSignal.h"

#include <csignal>

namespace Agent {

void StopSignal::install() {
  struct sigaction action {};
  action.sa_handler = take;
  sigemptyset(&action.sa_mask);
  for (const int signal : {SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
}

}  // namespace Agent
