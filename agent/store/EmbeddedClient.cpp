#include "agent/store/EmbeddedClient.h"

namespace Agent {

void EmbeddedClient::start() {
  client_ = Vxlan::vxlanControllerClientSmFactory(inputs());
  if (maxProcessTime_) client_->maxProcessTimeIs(*maxProcessTime_);
}

}  // namespace Agent
