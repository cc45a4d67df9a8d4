#include "agent/ovsdb/Rounds.h"

#include <algorithm>
#include <utility>

namespace Agent::Ovsdb {

double Rounds::failed(double inSync) {
  if (inSync > wait_) {
    wait_ = shortest_;
    failed_ = 0;
  }
  member_ = (member_ + 1) % members_;
  if (++failed_ < members_) return 0;
  failed_ = 0;
  return std::exchange(wait_, std::min(wait_ * 2, longest_));
}

}  // namespace Agent::Ovsdb
