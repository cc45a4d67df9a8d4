// What the framework and the data model throw when they are handed something that they refuse.
// Nothing below the host program catches these: one of them ends the current notification.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace Moru {

class Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;

  // The kind's name, for reports: "RangeException" and so on.
  virtual const char* type() const noexcept = 0;
};

// A value outside the range of its type, or a null where an object is needed.
class RangeException final : public Exception {
 public:
  using Exception::Exception;
  const char* type() const noexcept override { return "RangeException"; }
};

// A key that is in use by a member which was made from other constructor arguments.
class NameInUseException final : public Exception {
 public:
  using Exception::Exception;
  const char* type() const noexcept override { return "NameInUseException"; }
};

// More elements than a list of bounded size can hold.
class SizeException final : public Exception {
 public:
  using Exception::Exception;
  const char* type() const noexcept override { return "SizeException"; }
};

// What every mutator does that adds a member and is handed a null: throws RangeException.
// `collection` is the full name of what it adds to, "Vxlan::VtiStatusDir::vtiStatus".
[[noreturn]] void refuseNull(std::string_view collection);

}  // namespace Moru
