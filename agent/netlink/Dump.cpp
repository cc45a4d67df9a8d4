#include "agent/netlink/Dump.h"

#include <cerrno>
#include <linux/rtnetlink.h>
#include <system_error>
#include <utility>

namespace Agent::Netlink {

// A socket has one dump at a time: what is left of another is left with its socket.
void Dump::send(nlmsghdr& request) {
  if (std::exchange(isUnderWay_, true)) socket_ = Socket(Socket::Mode::blocking);
  request.nlmsg_seq = ++number_;
  isInterrupted_ = false;
  socket_.send(&request, request.nlmsg_len);
}

Dump::State Dump::step(const Handler& handler) {
  bool hasEnded = false;
  const auto take = [&](const nlmsghdr& message) {
    if (message.nlmsg_seq != number_) return;
    if ((message.nlmsg_flags & NLM_F_DUMP_INTR) != 0) isInterrupted_ = true;
    if (message.nlmsg_type == NLMSG_ERROR) {
      const auto& error = *static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(&message));
      throw std::system_error(-error.error, std::generic_category(), "cannot dump");
    }
    if (message.nlmsg_type == NLMSG_DONE)
      hasEnded = true;
    else
      handler(message);
  };
  if (!socket_.receive(take).value_or(true)) return State::interrupted;
  if (!hasEnded) return State::more;
  isUnderWay_ = false;
  return isInterrupted_ ? State::interrupted : State::ended;
}

}  // namespace Agent::Netlink
