// Where something listens on a network: "10.0.0.5:6640", "[2001:db8::5]:6640".
#pragma once

#include <string>
#include <string_view>

namespace Agent {

struct HostPort {
  std::string host;  // a name or an address, IPv6 without brackets
  std::string port;  // 1 to 65535

  // As parseHostPort() reads it.
  std::string text() const;
};

// HOST:PORT, IPv6 addresses in brackets. Throws InputError, whose text is what was expected.
HostPort parseHostPort(std::string_view text);

// PORT alone; as above.
std::string parsePort(std::string_view text);

}  // namespace Agent
