// Serves metrics over HTTP, at /metrics, on the event loop of whoever has it. It takes GET and HEAD
// of a few connections at a time, and hangs up on one that keeps silent.
#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/steady_timer.hpp>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "agent/metrics/Exposition.h"

struct MHD_Daemon;
struct MHD_Connection;

namespace Agent::Metrics {

using Endpoint = asio::ip::tcp::endpoint;

// HOST:PORT, an address of this machine or "localhost", IPv6 in brackets. PORT alone, with or
// without the colon, is on 127.0.0.1. Throws InputError.
Endpoint parseEndpoint(std::string_view text);

class ScrapeServer {
 public:
  // What is to be served, of the moment. It must not throw.
  using Scrape = std::function<std::string(Dialect)>;

  static constexpr unsigned mostConnections = 16;
  static constexpr unsigned patience = 5;  // seconds of silence: less than a scrape waits

  // `io` must outlive it. Throws std::system_error where it cannot listen.
  ScrapeServer(asio::io_context& io, const Endpoint& endpoint, Scrape scrape);
  ~ScrapeServer();
  ScrapeServer(const ScrapeServer&) = delete;
  ScrapeServer& operator=(const ScrapeServer&) = delete;

 private:
  // What the library knows of us.
  struct Handler;
  struct Stop {
    void operator()(MHD_Daemon* daemon) const;
  };

  void serve();
  void listen();

  const Scrape scrape_;
  std::unique_ptr<MHD_Daemon, Stop> daemon_;
  asio::posix::stream_descriptor news_;  // the daemon's own, which closes it
  asio::steady_timer timer_;
};

}  // namespace Agent::Metrics
