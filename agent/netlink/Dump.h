// Asks rtnetlink for all there is of a kind, and reads it a piece at a time. One at a time.
#pragma once

#include <cstdint>

#include "agent/netlink/Batch.h"
#include "agent/netlink/Socket.h"

namespace Agent::Netlink {

class Dump {
 public:
  enum class State {
    more,
    ended,
    // Things came and went meanwhile, so that some may be missing: it is to be begun anew.
    interrupted,
  };

  // Throws std::system_error.
  Dump() : socket_(Socket::Mode::blocking) {}

  // `type` is one of RTM_GET...; `header` is its family's own. An earlier one that has not ended is
  // given up.
  template <class Header>
  void begin(std::uint16_t type, const Header& header) {
    request_.clear();
    send(request_.add(type, NLM_F_DUMP, header));
  }

  // Reads a piece, of some hundred messages. Throws std::system_error.
  State step(const Handler& handler);

  // Reads to the end, anew where it is interrupted; `restart` is called before that.
  template <class Header>
  void readAll(std::uint16_t type, const Header& header, const std::function<void()>& restart,
               const Handler& handler) {
    for (State state = State::interrupted; state != State::ended;) {
      if (state == State::interrupted) {
        restart();
        begin(type, header);
      }
      state = step(handler);
    }
  }

 private:
  void send(nlmsghdr& request);

  Socket socket_;
  Batch request_;
  std::uint32_t number_ = 0;
  bool isUnderWay_ = false;
  bool isInterrupted_ = false;
};

}  // namespace Agent::Netlink
