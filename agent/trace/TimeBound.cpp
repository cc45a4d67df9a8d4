#include "agent/trace/TimeBound.h"

#include <re2/re2.h>

namespace Agent {

namespace {

// Days of which every nanosecond can be told.
constexpr int firstYear = 1970;
constexpr int lastYear = 2261;

std::optional<std::chrono::sys_days> dayOf(int year, unsigned month, unsigned day) {
  const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(month),
                                         std::chrono::day(day)};
  if (!date.ok() || year < firstYear || year > lastYear) return std::nullopt;
  return std::chrono::sys_days(date);
}

}  // namespace

std::optional<TimeBound> TimeBound::parse(const std::string& text) {
  static const RE2 date(R"((\d{4})-(\d{2})-(\d{2})(?:[Tt ](.+))?)");
  static const RE2 time(R"((\d{2}):(\d{2})(?::(\d{2})(?:\.(\d{1,9}))?)?[Zz]?)");
  TimeBound bound;
  std::string ofDay = text;
  if (int year = 0, month = 0, day = 0; RE2::FullMatch(text, date, &year, &month, &day, &ofDay)) {
    bound.day_ = dayOf(year, static_cast<unsigned>(month), static_cast<unsigned>(day));
    if (!bound.day_) return std::nullopt;
    if (ofDay.empty()) return bound;
  }
  unsigned hour = 0;
  unsigned minute = 0;
  std::string second;
  std::string fraction;
  if (!RE2::FullMatch(ofDay, time, &hour, &minute, &second, &fraction)) return std::nullopt;
  constexpr unsigned hours = 24;
  constexpr unsigned sixty = 60;
  const unsigned long seconds = second.empty() ? 0 : std::stoul(second);
  if (hour >= hours || minute >= sixty || seconds >= sixty) return std::nullopt;
  constexpr std::size_t digits = 9;
  fraction.resize(digits, '0');
  bound.ofDay_ = std::chrono::hours(hour) + std::chrono::minutes(minute) +
                 std::chrono::seconds(seconds) + std::chrono::nanoseconds(std::stoul(fraction));
  return bound;
}

std::int64_t TimeBound::nanoseconds(std::int64_t last) const {
  using std::chrono::nanoseconds;
  const std::chrono::sys_time<nanoseconds> lastTime{nanoseconds(last)};
  const auto day = day_.value_or(std::chrono::floor<std::chrono::days>(lastTime));
  return nanoseconds(day.time_since_epoch() + ofDay_).count();
}

}  // namespace Agent
