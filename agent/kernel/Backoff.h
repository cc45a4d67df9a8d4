// What was refused is tried again: soon at first, and then less and less often.
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Agent::Kernel {

template <class Key>
class Backoff {
 public:
  static constexpr double first = 0.5;  // seconds
  static constexpr double longest = 30;

  bool isEmpty() const { return refused_.empty(); }
  std::size_t size() const { return refused_.size(); }

  // Why it was refused; null: it was not.
  const std::string* why(const Key& key) const {
    const auto at = refused_.find(key);
    return at == refused_.end() ? nullptr : &at->second.why;
  }

  // True if it was not refused before.
  bool refuse(const Key& key, const std::string& why, double now) {
    const auto [at, isNew] = refused_.try_emplace(key);
    Refused& refused = at->second;
    refused.delay = isNew ? first : std::min(2 * refused.delay, longest);
    refused.due = now + refused.delay;
    refused.why = why;
    due_ = std::min(due_.value_or(*refused.due), *refused.due);
    return isNew;
  }

  // True if it was refused.
  bool forget(const Key& key) { return refused_.erase(key) > 0; }

  // When takeDue() has something to give, in seconds; nothing: never. It may be too early.
  std::optional<double> due() const { return refused_.empty() ? std::nullopt : due_; }

  // Those that are to be tried now. They stay refused until they are forgotten; until then, they
  // are not due again unless they are refused again.
  std::vector<Key> takeDue(double now) {
    std::vector<Key> keys;
    if (!due_ || *due_ > now) return keys;
    due_.reset();
    for (auto& [key, refused] : refused_) {
      if (!refused.due) continue;
      if (*refused.due <= now) {
        keys.push_back(key);
        refused.due.reset();
      } else {
        due_ = std::min(due_.value_or(*refused.due), *refused.due);
      }
    }
    return keys;
  }

 private:
  struct Refused {
    std::optional<double> due{};
    double delay = first;
    std::string why{};
  };
  std::map<Key, Refused> refused_;
  std::optional<double> due_;
};

}  // namespace Agent::Kernel
