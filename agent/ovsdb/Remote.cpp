#include "agent/ovsdb/Remote.h"

#include <algorithm>
#include <cstddef>
#include <sys/un.h>
#include <utility>

#include "agent/base/HostPort.h"
#include "agent/base/InputError.h"

namespace Agent::Ovsdb {

namespace {

constexpr std::size_t maxPathLength = sizeof(sockaddr_un::sun_path) - 1;

[[noreturn]] void refuse(std::string_view remote, const std::string& expected) {
  throw InputError("database \"" + std::string(remote) + "\": expected " + expected);
}

// `text` is the whole remote, for the error; `place` what follows its scheme.
Remote parseHostAndPort(Remote::Kind kind, std::string_view text, std::string_view place) {
  if (place.find(':') == std::string_view::npos) refuse(text, "HOST:PORT behind the first colon");
  try {
    HostPort parsed = parseHostPort(place);
    return {kind, std::move(parsed.host), std::move(parsed.port)};
  } catch (const InputError& error) {
    refuse(text, error.what());
  }
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
  return (kind == Kind::tcp ? "tcp:" : "ssl:") + HostPort{host, port}.text();
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
