// A number of a type and a range of its own. Making one from a number out of its range throws
// RangeException with the type's text; nothing is ever cut to fit.
//
//   class VlanId : public Moru::RangedNumber<VlanId, std::uint16_t, 1, 4094, 1> {
//    public:
//     using RangedNumber::RangedNumber;
//     static constexpr const char* rangeText = "VlanId::value < 1 or > 4094 not allowed";
//   };
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <ostream>

#include "framework/Moru/Exception.h"
#include "framework/Moru/Hash.h"

namespace Moru {

template <class Type, class Rep, Rep Min, Rep Max, Rep Default>
class RangedNumber {
 public:
  static constexpr Rep min = Min;
  static constexpr Rep max = Max;

  constexpr RangedNumber() = default;

  // Takes more than Rep holds, so that a number too large is seen as such.
  explicit constexpr RangedNumber(std::int64_t value) : value_(static_cast<Rep>(value)) {
    if (value < std::int64_t{Min} || value > std::int64_t{Max})
      throw RangeException(Type::rangeText);
  }

  constexpr Rep value() const { return value_; }
  constexpr std::size_t hash() const noexcept { return value_; }

  friend constexpr bool operator==(const RangedNumber&, const RangedNumber&) = default;
  friend constexpr auto operator<=>(const RangedNumber&, const RangedNumber&) = default;
  friend constexpr Rep traceValue(const RangedNumber& number) { return number.value_; }
  friend std::ostream& operator<<(std::ostream& out, const RangedNumber& number) {
    return out << number.value_;
  }

 private:
  Rep value_ = Default;
};

}  // namespace Moru
