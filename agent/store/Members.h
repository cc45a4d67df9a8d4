// Gives a keyed attribute new contents, by as few writes as that takes.
#pragma once

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "agent/store/Change.h"

namespace Agent {

// Removes the keys that `wanted` has not, ascending, then writes those of `wanted` that are not
// there or have another value, ascending. `wanted` is in ascending order of its keys, which is that
// of `less`. The entity must be held by the caller: its watchers may do anything.
template <class Attribute, class Is, class Del, class Key, class Value, class Less = std::less<Key>>
void membersIs(const Attribute& attribute, Is& is, Del& del, const Table<Key, Value>& wanted,
               Less less = {}) {
  std::vector<Key> unwanted;
  for (const auto& [key, value] : attribute())
    if (!std::ranges::binary_search(wanted, key, less, &std::pair<Key, Value>::first))
      unwanted.push_back(key);
  std::ranges::sort(unwanted, less);
  for (const Key& key : unwanted) del(key);
  for (const auto& [key, value] : wanted) {
    const Value* const present = attribute().find(key);
    if (present == nullptr || !(*present == value)) is(key, value);
  }
}

}  // namespace Agent
