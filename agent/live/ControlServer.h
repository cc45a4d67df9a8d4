// The control socket: a question (agent/live/Question.h) on each connection; its answer, and the
// end.
//
// A question that cannot be answered gets {"error": "what is wrong with it"}.
#pragma once

#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <functional>
#include <memory>
#include <string>

#include "agent/live/Answers.h"

namespace Agent {

class ControlServer {
 public:
  // May throw InputError for what it does not understand.
  using Ask = std::function<Answer(const std::string& question)>;

  // Makes the socket, for its owner alone, and its directory if there is none. One that is there
  // and that nobody answers at is replaced. Throws std::system_error, or InputError if another
  // agent answers.
  ControlServer(asio::io_context& io, const std::string& path, Ask ask);
  ~ControlServer();
  ControlServer(const ControlServer&) = delete;
  ControlServer& operator=(const ControlServer&) = delete;

 private:
  class Connection;

  void accept();

  const std::string path_;
  const std::shared_ptr<const Ask> ask_;
  asio::local::stream_protocol::acceptor acceptor_;
};

}  // namespace Agent
