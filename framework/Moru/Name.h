// The name of an entity, such as "hostTable" or "10010".
#pragma once

#include <compare>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>

namespace Moru {

class Name {
 public:
  Name() = default;
  Name(std::string text) : text_(std::move(text)) {}
  Name(std::string_view text) : text_(text) {}
  Name(const char* text) : text_(text) {}

  const std::string& stringValue() const { return text_; }
  bool empty() const { return text_.empty(); }

  friend bool operator==(const Name&, const Name&) = default;
  friend auto operator<=>(const Name&, const Name&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Name& name) { return out << name.text_; }
  friend std::string_view traceValue(const Name& name) { return name.text_; }

 private:
  std::string text_;
};

}  // namespace Moru

template <>
struct std::hash<Moru::Name> {
  std::size_t operator()(const Moru::Name& name) const noexcept {
    return std::hash<std::string>()(name.stringValue());
  }
};
