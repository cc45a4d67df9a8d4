// A socket of rtnetlink, in the network namespace of the process.
#pragma once

#include <cstddef>
#include <functional>
#include <libmnl/libmnl.h>
#include <memory>
#include <optional>
#include <vector>

namespace Agent::Netlink {

using Handler = std::function<void(const nlmsghdr&)>;

class Socket {
 public:
  enum class Mode { blocking, nonBlocking };

  // A member of the multicast groups in the mask `groups`, (1 << (RTNLGRP_... - 1)).
  // Throws std::system_error.
  explicit Socket(Mode mode, unsigned groups = 0);

  int descriptor() const;

  // Throws std::system_error.
  void send(const void* bytes, std::size_t length);

  // Receives once, and hands over the messages; nothing if there is nothing to receive, for one
  // that does not block. False: messages have been lost (ENOBUFS). Throws std::system_error.
  std::optional<bool> receive(const Handler& handler);

  // Of SOL_NETLINK, as far as the kernel knows it.
  void optionIs(int option, bool isOn);

 private:
  struct Close {
    void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
  };
  std::unique_ptr<mnl_socket, Close> socket_;
  std::vector<char> buffer_;
};

}  // namespace Agent::Netlink
