#include "agent/netlink/Socket.h"

#include <cerrno>
#include <linux/netlink.h>
#include <sys/socket.h>

#include "agent/base/Descriptor.h"

namespace Agent::Netlink {

namespace {

// The kernel fills no more than 32 KiB at a time.
constexpr std::size_t bufferSize = std::size_t{64} << 10;

}  // namespace

Socket::Socket(Mode mode, unsigned groups) : buffer_(bufferSize) {
  const int flags = SOCK_CLOEXEC | (mode == Mode::nonBlocking ? SOCK_NONBLOCK : 0);
  socket_.reset(mnl_socket_open2(NETLINK_ROUTE, flags));
  if (!socket_) failWithErrno("cannot open a netlink socket");
  if (mnl_socket_bind(socket_.get(), groups, MNL_SOCKET_AUTOPID) != 0)
    failWithErrno("cannot bind a netlink socket");
}

int Socket::descriptor() const { return mnl_socket_get_fd(socket_.get()); }

void Socket::send(const void* bytes, std::size_t length) {
  if (mnl_socket_sendto(socket_.get(), bytes, length) < 0) failWithErrno("cannot send to netlink");
}

std::optional<bool> Socket::receive(const Handler& handler) {
  const ssize_t length = mnl_socket_recvfrom(socket_.get(), buffer_.data(), buffer_.size());
  if (length < 0) {
    if (errno == EAGAIN) return std::nullopt;
    if (errno == ENOBUFS) return false;
    if (errno == EINTR) return true;
    failWithErrno("cannot receive from netlink");
  }
  int left = static_cast<int>(length);
  const auto* message = reinterpret_cast<const nlmsghdr*>(buffer_.data());
  for (; mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) handler(*message);
  return true;
}

void Socket::optionIs(int option, bool isOn) {
  int value = isOn ? 1 : 0;
  mnl_socket_setsockopt(socket_.get(), option, &value, sizeof value);
}

}  // namespace Agent::Netlink
