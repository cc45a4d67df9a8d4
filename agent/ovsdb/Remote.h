// Where a database is served.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Agent::Ovsdb {

struct Remote {
  enum class Kind : std::uint8_t { unix, tcp, ssl };

  Kind kind = Kind::unix;
  std::string host;  // a name or an address, IPv6 without brackets; the path of a unix socket
  std::string port;  // empty for a unix socket

  // As parseRemotes() reads it.
  std::string text() const;

  friend bool operator==(const Remote&, const Remote&) = default;
};

// The members of a cluster, separated by commas: each unix:PATH, tcp:HOST:PORT or ssl:HOST:PORT,
// IPv6 addresses in brackets. Throws InputError.
std::vector<Remote> parseRemotes(std::string_view text);

}  // namespace Agent::Ovsdb
