// What the service manager is told, if one has started the agent.
#pragma once

#include <string>

namespace Agent {

void notifyReady();
void notifyStopping();

// The state of now, in a few words.
void notifyStatus(const std::string& text);

}  // namespace Agent
