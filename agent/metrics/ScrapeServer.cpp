#include "agent/metrics/ScrapeServer.h"

#include <asio/ip/address.hpp>
#include <chrono>
#include <cstddef>
#include <microhttpd.h>
#include <sstream>
#include <system_error>
#include <utility>

#include "agent/base/HostPort.h"
#include "agent/base/InputError.h"

namespace Agent::Metrics {

namespace {

using Acceptor = asio::ip::tcp::acceptor;

// A socket that listens, which whoever is given it closes.
int listenAt(asio::io_context& io, const Endpoint& endpoint) {
  Acceptor acceptor(io);
  acceptor.open(endpoint.protocol());
  acceptor.set_option(Acceptor::reuse_address(true));
  acceptor.bind(endpoint);
  acceptor.listen();
  acceptor.native_non_blocking(true);
  return acceptor.release();
}

enum MHD_Result answer(MHD_Connection* connection, unsigned status, const std::string& body,
                       std::initializer_list<std::pair<const char*, const char*>> headers) {
  // The library copies the body, and only reads from it.
  MHD_Response* const response = MHD_create_response_from_buffer(
      body.size(), const_cast<char*>(body.data()), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) return MHD_NO;
  for (const auto& [name, value] : headers) MHD_add_response_header(response, name, value);
  const auto result = MHD_queue_response(connection, status, response);
  MHD_destroy_response(response);
  return result;
}

enum MHD_Result refuse(MHD_Connection* connection, unsigned status, const std::string& why) {
  return answer(connection, status, why + "\n",
                {{MHD_HTTP_HEADER_CONTENT_TYPE, "text/plain; charset=utf-8"},
                 {MHD_HTTP_HEADER_ALLOW, "GET, HEAD"}});
}

}  // namespace

Endpoint parseEndpoint(std::string_view text) {
  const auto refused = [&text](const std::string& expected) {
    return InputError("metrics \"" + std::string(text) + "\": expected " + expected);
  };
  const bool isPortAlone = text.rfind(':') == 0 || text.find(':') == std::string_view::npos;
  try {
    const std::string_view port = text.substr(text.starts_with(':') ? 1 : 0);
    const HostPort parsed =
        isPortAlone ? HostPort{"127.0.0.1", parsePort(port)} : parseHostPort(text);
    std::error_code error;
    const auto address =
        asio::ip::make_address(parsed.host == "localhost" ? "127.0.0.1" : parsed.host, error);
    if (error) throw InputError("an IPv4 address, an IPv6 address or localhost before the port");
    return {address, static_cast<asio::ip::port_type>(std::stoi(parsed.port))};
  } catch (const InputError& error) {
    throw refused(error.what());
  }
}

struct ScrapeServer::Handler {
  static enum MHD_Result handle(void* server, MHD_Connection* connection, const char* url,
                                const char* method, const char* version, const char* upload,
                                std::size_t* uploaded, void** request);
};

// It is called once a request: all are answered at once.
enum MHD_Result ScrapeServer::Handler::handle(void* server, MHD_Connection* connection,
                                              const char* url, const char* method, const char*,
                                              const char*, std::size_t*, void**) {
  const std::string_view wanted = method;
  if (wanted != MHD_HTTP_METHOD_GET && wanted != MHD_HTTP_METHOD_HEAD)
    return refuse(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "expected GET or HEAD");
  if (std::string_view(url) != "/metrics")
    return refuse(connection, MHD_HTTP_NOT_FOUND, "there is /metrics, and nothing else");
  const char* const accept =
      MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_ACCEPT);
  const Dialect dialect = dialectFor(accept == nullptr ? "" : accept);
  return answer(connection, MHD_HTTP_OK, static_cast<ScrapeServer*>(server)->scrape_(dialect),
                {{MHD_HTTP_HEADER_CONTENT_TYPE, contentTypeOf(dialect)},
                 {MHD_HTTP_HEADER_VARY, MHD_HTTP_HEADER_ACCEPT},
                 {MHD_HTTP_HEADER_CACHE_CONTROL, "no-store"}});
}

void ScrapeServer::Stop::operator()(MHD_Daemon* daemon) const { MHD_stop_daemon(daemon); }

ScrapeServer::ScrapeServer(asio::io_context& io, const Endpoint& endpoint, Scrape scrape)
    : scrape_(std::move(scrape)), news_(io), timer_(io) {
  const auto place = [&endpoint] {
    std::ostringstream text;
    text << "cannot serve metrics at " << endpoint;
    return text.str();
  };
  try {
    const int listener = listenAt(io, endpoint);
    constexpr unsigned alone = MHD_USE_EPOLL;  // without threads of its own
    daemon_.reset(MHD_start_daemon(alone, 0, nullptr, nullptr, &Handler::handle, this,
                                   MHD_OPTION_LISTEN_SOCKET, listener, MHD_OPTION_CONNECTION_LIMIT,
                                   mostConnections, MHD_OPTION_CONNECTION_TIMEOUT, patience,
                                   MHD_OPTION_END));
  } catch (const std::system_error& error) {
    throw std::system_error(error.code(), place());
  }
  const auto* const info =
      daemon_ ? MHD_get_daemon_info(daemon_.get(), MHD_DAEMON_INFO_EPOLL_FD) : nullptr;
  if (info == nullptr)
    throw std::system_error(std::make_error_code(std::errc::not_enough_memory), place());
  news_.assign(info->epoll_fd);
  serve();
  listen();
}

ScrapeServer::~ScrapeServer() { news_.release(); }

void ScrapeServer::serve() {
  MHD_run(daemon_.get());
  timer_.cancel();
  MHD_UNSIGNED_LONG_LONG left = 0;
  if (MHD_get_timeout(daemon_.get(), &left) != MHD_YES) return;
  timer_.expires_after(std::chrono::milliseconds(left));
  timer_.async_wait([this](const std::error_code& error) {
    if (!error) serve();
  });
}

void ScrapeServer::listen() {
  news_.async_wait(asio::posix::stream_descriptor::wait_read, [this](const std::error_code& error) {
    if (error) return;
    serve();
    listen();
  });
}

}  // namespace Agent::Metrics
