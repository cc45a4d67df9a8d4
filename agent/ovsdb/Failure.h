// What ends a connection with a database.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "agent/base/Text.h"

namespace Agent::Ovsdb {

class Failure final : public std::runtime_error {
 public:
  // `value` is what came, `why` what was expected: as Problems wants them.
  Failure(std::string value, const std::string& why)
      : std::runtime_error(why), value_(std::move(value)) {}

  const std::string& value() const { return value_; }

 private:
  std::string value_;
};

// The beginning of what came, enough to know it by.
inline std::string excerpt(std::string_view text) {
  constexpr std::size_t most = 120;
  return beginningOf(text, most);
}

}  // namespace Agent::Ovsdb
