#include "agent/base/Problems.h"

namespace Agent {

void Problems::raise(const std::string& what, const std::string& value, const std::string& why) {
  const auto present = all_.find(what);
  if (present != all_.end() && present->second.value == value && present->second.why == why) return;
  const Problem& problem = all_[what] = {std::chrono::system_clock::now(), value, why};
  teller_(what, problem);
}

}  // namespace Agent
