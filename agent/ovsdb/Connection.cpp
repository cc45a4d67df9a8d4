#include "agent/ovsdb/Connection.h"

#include <asio/connect.hpp>
#include <asio/generic/stream_protocol.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/ssl.hpp>
#include <asio/write.hpp>
#include <cstddef>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "agent/ovsdb/Alarm.h"

namespace Agent::Ovsdb {

namespace {

using asio::ip::tcp;
using Protocol = asio::generic::stream_protocol;
using Endpoints = std::vector<Protocol::endpoint>;

constexpr std::size_t readSize = std::size_t{256} << 10;
constexpr std::size_t mostUnsent = std::size_t{4} << 20;

template <class Use>
void useFile(const std::string& file, const std::string& what, Use use) {
  if (file.empty()) throw Failure("ssl:", "expected a file with the " + what);
  std::error_code error;
  use(file, error);
  if (error)
    throw Failure(file + ": " + error.message(), "expected a file in PEM with the " + what);
}

asio::ssl::context contextOf(const TlsFiles& files) {
  using asio::ssl::context;
  context tls(context::tls_client);
  tls.set_options(context::default_workarounds | context::no_sslv2 | context::no_sslv3 |
                  context::no_tlsv1 | context::no_tlsv1_1);
  tls.set_verify_mode(asio::ssl::verify_peer);
  useFile(
      files.caCertificate, "certificate of the authority",
      [&](const std::string& file, std::error_code& error) { tls.load_verify_file(file, error); });
  useFile(files.certificate, "certificate", [&](const std::string& file, std::error_code& error) {
    tls.use_certificate_chain_file(file, error);
  });
  useFile(files.privateKey, "private key", [&](const std::string& file, std::error_code& error) {
    tls.use_private_key_file(file, context::pem, error);
  });
  return tls;
}

}  // namespace

void checkTlsFiles(const TlsFiles& files) { contextOf(files); }

// Lives as long as Asio has something to call back for; nobody is told once it is closed.
class Connection::Stream : public std::enable_shared_from_this<Stream> {
 public:
  Stream(asio::io_context& io, const Remote& remote, ConnectionListener& listener)
      : remote_(remote),
        socket_(io),
        resolver_(io),
        limit_(io),
        listener_(&listener),
        buffer_(readSize) {}

  void open(const TlsFiles& files, double timeLimit);
  void send(std::string_view text);
  void close();

 private:
  void connect(const Endpoints& endpoints);
  void agree();
  void ready();
  void read();
  void write();
  void end(const Failure& failure);

  // What Asio is to call: end() for an error, and nothing once the connection is closed.
  template <class Action>
  auto then(const char* expected, Action action) {
    return [self = shared_from_this(), expected, action = std::move(action)](
               const std::error_code& error, const auto&... results) {
      if (error)
        self->end(Failure(error.message(), std::string("expected ") + expected));
      else if (self->listener_)
        action(results...);
    };
  }

  const Remote remote_;
  Protocol::socket socket_;
  tcp::resolver resolver_;
  Alarm limit_;
  ConnectionListener* listener_;
  std::optional<asio::ssl::context> context_;
  std::optional<asio::ssl::stream<Protocol::socket&>> tls_;
  std::vector<char> buffer_;
  std::string writing_;
  std::string unsent_;
};

void Connection::Stream::open(const TlsFiles& files, double timeLimit) {
  limit_.set(timeLimit, [this] { end(Failure("no answer", "expected a connection in time")); });
  if (remote_.kind == Remote::Kind::ssl) {
    try {
      tls_.emplace(socket_, context_.emplace(contextOf(files)));
    } catch (const Failure& failure) {
      limit_.set(0, [this, failure] { end(failure); });
      return;
    }
  }
  if (remote_.kind == Remote::Kind::unix) {
    connect({asio::local::stream_protocol::endpoint(remote_.host)});
    return;
  }
  std::error_code isName;
  const auto address = asio::ip::make_address(remote_.host, isName);
  if (!isName) {
    connect({tcp::endpoint(address, static_cast<asio::ip::port_type>(std::stoi(remote_.port)))});
    return;
  }
  resolver_.async_resolve(
      remote_.host, remote_.port,
      then("the address of the host", [this](const tcp::resolver::results_type& results) {
        Endpoints endpoints;
        for (const auto& result : results) endpoints.emplace_back(result.endpoint());
        connect(endpoints);
      }));
}

void Connection::Stream::connect(const Endpoints& endpoints) {
  asio::async_connect(socket_, endpoints,
                      then("a database server", [this](const Protocol::endpoint&) { agree(); }));
}

void Connection::Stream::agree() {
  std::error_code ignored;
  if (remote_.kind != Remote::Kind::unix) socket_.set_option(tcp::no_delay(true), ignored);
  if (tls_)
    tls_->async_handshake(asio::ssl::stream_base::client,
                          then("a TLS server that the authority has certified, and that takes our "
                               "certificate",
                               [this] { ready(); }));
  else
    ready();
}

void Connection::Stream::ready() {
  limit_.cancel();
  read();
  listener_->connected();
}

void Connection::Stream::read() {
  const auto handler = then("the connection to last", [this](std::size_t length) {
    listener_->arrived({buffer_.data(), length});
    if (listener_) read();
  });
  if (tls_)
    tls_->async_read_some(asio::buffer(buffer_), handler);
  else
    socket_.async_read_some(asio::buffer(buffer_), handler);
}

void Connection::Stream::send(std::string_view text) {
  if (!listener_) return;
  if (unsent_.size() > mostUnsent) {
    limit_.set(0, [this] {
      end(Failure("requests and replies pile up", "expected the server to take them"));
    });
    return;
  }
  unsent_ += text;
  if (writing_.empty()) write();
}

void Connection::Stream::write() {
  writing_ = std::exchange(unsent_, {});
  const auto handler = then("the connection to last", [this](std::size_t) {
    writing_.clear();
    if (!unsent_.empty()) write();
  });
  if (tls_)
    asio::async_write(*tls_, asio::buffer(writing_), handler);
  else
    asio::async_write(socket_, asio::buffer(writing_), handler);
}

void Connection::Stream::close() {
  listener_ = nullptr;
  std::error_code ignored;
  socket_.close(ignored);
}

void Connection::Stream::end(const Failure& failure) {
  if (!listener_) return;
  const auto self = shared_from_this();
  ConnectionListener& listener = *listener_;
  close();
  listener.ended(failure);
}

Connection::Connection(asio::io_context& io, const Remote& remote, const TlsFiles& tls,
                       double timeLimit, ConnectionListener& listener)
    : stream_(std::make_shared<Stream>(io, remote, listener)) {
  stream_->open(tls, timeLimit);
}

Connection::~Connection() { stream_->close(); }

void Connection::send(std::string_view text) { stream_->send(text); }

}  // namespace Agent::Ovsdb
