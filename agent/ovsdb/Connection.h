// A connection with one server: bytes in, bytes out.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "agent/ovsdb/Failure.h"
#include "agent/ovsdb/Remote.h"

namespace asio {
class io_context;
}

namespace Agent::Ovsdb {

// Names of files in PEM. Who is spoken to is who has a certificate of that authority: names in
// certificates are not looked at.
struct TlsFiles {
  std::string privateKey;
  std::string certificate;
  std::string caCertificate;
};

// Throws Failure if they cannot be used.
void checkTlsFiles(const TlsFiles& files);

// Called from the event loop, never from within the connection's methods. May destroy the
// connection.
struct ConnectionListener {
  virtual void connected() = 0;
  // At most 256 KiB at a time.
  virtual void arrived(std::string_view bytes) = 0;
  // It could not be made, or has ended; it is closed.
  virtual void ended(const Failure& failure) = 0;

 protected:
  ~ConnectionListener() = default;
};

class Connection {
 public:
  // Connects within `timeLimit` seconds: addresses looked up, and TLS agreed on, where need be.
  // `tls` is used for ssl: alone.
  Connection(asio::io_context& io, const Remote& remote, const TlsFiles& tls, double timeLimit,
             ConnectionListener& listener);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Once connected. What is waiting to be sent is bounded: a server that does not take it is given
  // up.
  void send(std::string_view text);

 private:
  class Stream;
  std::shared_ptr<Stream> stream_;
};

}  // namespace Agent::Ovsdb
