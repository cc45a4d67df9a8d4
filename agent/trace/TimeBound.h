// A time as the command line takes it, in UTC: "2026-11-21T05:10:11.123Z", the same with a blank
// for the T and without what is not needed at its end ("2026-11-21 05:10", "2026-11-21"), or the
// time of a day ("05:10", "05:10:11.123").
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Agent {

class TimeBound {
 public:
  static constexpr const char* expected =
      "a time in UTC, as 2026-11-21T05:10:11.123Z, or 05:10[:11[.123]] of the day of the last "
      "message";

  // Nothing if the text is none.
  static std::optional<TimeBound> parse(const std::string& text);

  // Nanoseconds since the beginning of 1970; `last` gives the day where the text did not.
  std::int64_t nanoseconds(std::int64_t last) const;

 private:
  std::optional<std::chrono::sys_days> day_{};
  std::chrono::nanoseconds ofDay_{};
};

}  // namespace Agent
