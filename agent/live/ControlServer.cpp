#include "agent/live/ControlServer.h"

#include <asio/buffer.hpp>
#include <asio/read_until.hpp>
#include <asio/steady_timer.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "agent/base/InputError.h"
#include "agent/live/Question.h"

namespace Agent {

namespace {

using Protocol = asio::local::stream_protocol;

// Throws if another agent answers there, and takes away what one has left behind.
void clear(asio::io_context& io, const std::string& path) {
  std::error_code error;
  if (!std::filesystem::is_socket(path, error)) return;
  Protocol::socket probe(io);
  probe.connect(Protocol::endpoint(path), error);
  if (!error) throw InputError(path + ": another agent answers there: expected one a switch");
  std::filesystem::remove(path);
}

Protocol::endpoint made(asio::io_context& io, const std::string& path) {
  const std::filesystem::path directory = std::filesystem::path(path).parent_path();
  if (!directory.empty()) std::filesystem::create_directories(directory);
  clear(io, path);
  return Protocol::endpoint(path);
}

}  // namespace

// Holds itself for as long as it has something to do.
class ControlServer::Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(Protocol::socket socket, std::shared_ptr<const Ask> ask)
      : socket_(std::move(socket)), limit_(socket_.get_executor()), ask_(std::move(ask)) {}

  void run() {
    armLimit();
    asio::async_read_until(socket_, asio::dynamic_buffer(question_, Question::longest), '\n',
                           [self = shared_from_this()](const std::error_code& error, std::size_t) {
                             if (!error) self->answer();
                           });
  }

 private:
  static constexpr std::chrono::seconds patience{10};

  // Whoever neither asks nor reads is not waited for.
  void armLimit() {
    limit_.expires_after(patience);
    limit_.async_wait([weak = weak_from_this()](const std::error_code& error) {
      if (const auto self = weak.lock(); self && !error) self->socket_.close();
    });
  }

  void answer() {
    try {
      answer_ = (*ask_)(question_);
    } catch (const InputError& error) {
      answer_ = lineAnswer({{"error", error.what()}});
    }
    goOn(true);
  }

  void goOn(bool more) {
    if (!more) {
      limit_.cancel();
      return;
    }
    armLimit();
    piece_.clear();
    more = answer_(piece_);
    asio::async_write(socket_, asio::buffer(piece_),
                      [self = shared_from_this(), more](const std::error_code& error, std::size_t) {
                        self->goOn(more && !error);
                      });
  }

  Protocol::socket socket_;
  asio::steady_timer limit_;
  const std::shared_ptr<const Ask> ask_;
  std::string question_;
  Answer answer_;
  std::string piece_;
};

ControlServer::ControlServer(asio::io_context& io, const std::string& path, Ask ask)
    : path_(path), ask_(std::make_shared<const Ask>(std::move(ask))), acceptor_(io) {
  const Protocol::endpoint endpoint = made(io, path);
  acceptor_.open(endpoint.protocol());
  constexpr mode_t ownerAlone = 0177;
  const mode_t before = umask(ownerAlone);
  std::error_code error;
  acceptor_.bind(endpoint, error);
  umask(before);
  if (error) throw std::system_error(error, "cannot make the control socket " + path);
  acceptor_.listen();
  accept();
}

ControlServer::~ControlServer() { unlink(path_.c_str()); }

void ControlServer::accept() {
  acceptor_.async_accept([this](const std::error_code& error, Protocol::socket socket) {
    if (error == asio::error::operation_aborted) return;
    if (!error) std::make_shared<Connection>(std::move(socket), ask_)->run();
    accept();
  });
}

}  // namespace Agent
