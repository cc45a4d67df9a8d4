// The identifier of an interface: its name ("Vxlan1"), at the price of a number.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

namespace Vorn {

// Ordered by name. The default is the interface without a name.
//
// The names are kept once for the process, for as long as it lives: there are as many as there are
// interfaces. Making an identifier from a name and reading the name may be done on any thread of a
// process that has asked for thread-safe pointers (Moru::PtrInterface::threadSafeIs).
class IntfId {
 public:
  IntfId() = default;
  explicit IntfId(std::string_view name);

  const std::string& stringValue() const;

  // One-at-a-time hash of the name's bytes: the same in every process.
  std::uint32_t hash() const noexcept;

  // Tells identifiers apart within the process; numbered in the order of their first use.
  std::uint32_t number() const { return number_; }

  friend bool operator==(const IntfId&, const IntfId&) = default;
  friend std::strong_ordering operator<=>(const IntfId& left, const IntfId& right) {
    return left.stringValue() <=> right.stringValue();
  }
  friend std::ostream& operator<<(std::ostream& out, const IntfId& intf) {
    return out << intf.stringValue();
  }
  friend std::string_view traceValue(const IntfId& intf) { return intf.stringValue(); }

 private:
  std::uint32_t number_ = 0;
};

}  // namespace Vorn

// By number, so that a table keyed by interfaces need not look the name up.
template <>
struct std::hash<Vorn::IntfId> {
  std::size_t operator()(const Vorn::IntfId& intf) const noexcept { return intf.number(); }
};
