#include "model/Vorn/IntfId.h"

#include <deque>
#include <mutex>
#include <unordered_map>

#include "framework/Moru/PtrInterface.h"
#include "model/Vorn/OneAtATime.h"

namespace Vorn {

namespace {

struct Intf {
  explicit Intf(std::string_view intfName) : name(intfName) {
    OneAtATime hasher;
    hasher.text(name);
    hash = hasher.result();
  }

  std::string name;
  std::uint32_t hash = 0;
};

class IntfNames {
 public:
  IntfNames() { number({}); }

  std::uint32_t number(std::string_view name) {
    const auto lock = locked();
    const auto known = numbers_.find(name);
    if (known != numbers_.end()) return known->second;
    const auto number = static_cast<std::uint32_t>(intfs_.size());
    numbers_.emplace(intfs_.emplace_back(name).name, number);
    return number;
  }

  const Intf& intf(std::uint32_t number) {
    const auto lock = locked();
    return intfs_[number];
  }

 private:
  // Alone on one thread, as a rule, where a lock would be all that a lookup costs.
  std::unique_lock<std::mutex> locked() {
    if (!Moru::PtrInterface::threadSafe()) return {};
    return std::unique_lock(mutex_);
  }

  std::mutex mutex_;
  std::deque<Intf> intfs_;  // a deque: what it holds never moves
  std::unordered_map<std::string_view, std::uint32_t> numbers_;
};

// Never destroyed: identifiers may be read until the process ends.
IntfNames& intfNames() {
  static auto& names = *new IntfNames;
  return names;
}

}  // namespace

IntfId::IntfId(std::string_view name) : number_(intfNames().number(name)) {}

const std::string& IntfId::stringValue() const { return intfNames().intf(number_).name; }

std::uint32_t IntfId::hash() const noexcept { return intfNames().intf(number_).hash; }

}  // namespace Vorn
