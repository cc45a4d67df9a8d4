#include "agent/ovsdb/Remote.h"

#include <algorithm>
#include <cstddef>
#include <sys/un.h>

#include "agent/base/InputError.h"

namespace Agent::Ovsdb {

namespace {

constexpr std::size_t maxPathLength = sizeof(sockaddr_un::sun_path) - 1;

[[noreturn]] void refuse(std::string_view remote, const std::string& expected) {
  throw InputError("database \"" + std::string(remote) + "\": expected " + expected);
}

bool isPort(std::string_view text) {
  if (text.empty() || text.size() > 5) return false;
  if (!std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
    return false;
  const int port = std::stoi(std::string(text));
  return port > 0 && port <= 65535;
}

// `text` is the whole remote, for the error; `place` what follows its scheme.
Remote parseHostAndPort(Remote::Kind kind, std::string_view text, std::string_view place) {
  const std::size_t colon = place.rfind(':');
  if (colon == std::string_view::npos) refuse(text, "HOST:PORT behind the first colon");
  std::string_view host = place.substr(0, colon);
  const std::string_view port = place.substr(colon + 1);
  if (!isPort(port)) refuse(text, "a port from 1 to 65535 at the end");
  if (host.size() > 2 && host.front() == '[' && host.back() == ']')
    host = host.substr(1, host.size() - 2);
  else if (host.find(':') != std::string_view::npos)
    refuse(text, "an IPv6 address in brackets");
  if (host.empty() || host.find_first_of("[]") != std::string_view::npos)
    refuse(text, "a host's name or address before the port");
  return {kind, std::string(host), std::string(port)};
}

Remote parseRemote(std::string_view text) {
  const std::size_t colon = text.find(':');
  const std::string_view scheme = text.substr(0, colon);
  const std::string_view place = colon == std::string_view::npos ? "" : text.substr(colon + 1);
  if (scheme == "tcp") return parseHostAndPort(Remote::Kind::tcp, text, place);
  if (scheme == "ssl") return parseHostAndPort(Remote::Kind::ssl, text, place);
  if (scheme != "unix" || colon == std::string_view::npos)
    refuse(text, "unix:PATH, tcp:HOST:PORT or ssl:HOST:PORT");
  if (place.empty() || place.size() > maxPathLength)
    refuse(text, "a path of 1 to " + std::to_string(maxPathLength) + " bytes");
  return {Remote::Kind::unix, std::string(place), ""};
}

}  // namespace

std::string Remote::text() const {
  if (kind == Kind::unix) return "unix:" + host;
  const bool brackets = host.find(':') != std::string::npos;
  return (kind == Kind::tcp ? "tcp:" : "ssl:") + (brackets ? "[" + host + "]" : host) + ":" + port;
}

std::vector<Remote> parseRemotes(std::string_view text) {
  std::vector<Remote> remotes;
  for (;;) {
    const std::size_t comma = text.find(',');
    const Remote remote = parseRemote(text.substr(0, comma));
    if (std::find(remotes.begin(), remotes.end(), remote) == remotes.end())
      remotes.push_back(remote);
    if (comma == std::string_view::npos) return remotes;
    text.remove_prefix(comma + 1);
  }
}

}  // namespace Agent::Ovsdb
