// Lists that stand for sets.
#pragma once

#include <algorithm>
#include <vector>

namespace Agent {

// Makes them ascending, with nothing twice.
template <class Member>
void sortOnce(std::vector<Member>& members) {
  std::sort(members.begin(), members.end());
  members.erase(std::unique(members.begin(), members.end()), members.end());
}

}  // namespace Agent
