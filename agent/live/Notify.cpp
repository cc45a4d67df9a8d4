#include "agent/live/Notify.h"

#include <systemd/sd-daemon.h>

namespace Agent {

namespace {

void notify(const std::string& state) {
  constexpr int keepEnvironment = 0;
  sd_notify(keepEnvironment, state.c_str());  // without a service manager there is nobody to tell
}

}  // namespace

void notifyReady() { notify("READY=1"); }

void notifyStopping() { notify("STOPPING=1"); }

void notifyStatus(const std::string& text) { notify("STATUS=" + text); }

}  // namespace Agent
