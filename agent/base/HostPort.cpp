#include "agent/base/HostPort.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "agent/base/InputError.h"

namespace Agent {

std::string HostPort::text() const {
  const bool brackets = host.find(':') != std::string::npos;
  return (brackets ? "[" + host + "]" : host) + ":" + port;
}

std::string parsePort(std::string_view text) {
  constexpr std::size_t mostDigits = 5;
  constexpr int most = 65535;
  const bool isNumber = !text.empty() && text.size() <= mostDigits &&
                        std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
  std::string port(text);
  const int number = isNumber ? std::stoi(port) : 0;
  if (number == 0 || number > most) throw InputError("a port from 1 to 65535 at the end");
  return port;
}

HostPort parseHostPort(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) throw InputError("HOST:PORT");
  std::string_view host = text.substr(0, colon);
  std::string port = parsePort(text.substr(colon + 1));
  if (host.size() > 2 && host.front() == '[' && host.back() == ']')
    host = host.substr(1, host.size() - 2);
  else if (host.find(':') != std::string_view::npos)
    throw InputError("an IPv6 address in brackets");
  if (host.empty() || host.find_first_of("[]") != std::string_view::npos)
    throw InputError("a host's name or address before the port");
  return {std::string(host), std::move(port)};
}

}  // namespace Agent
