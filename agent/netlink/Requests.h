// Sends requests to rtnetlink, and tells which of them were refused, and why. The kernel does them
// while they are being sent: when send() returns, all have been done or refused, and what they have
// changed has been notified.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <system_error>

#include "agent/netlink/Batch.h"
#include "agent/netlink/Socket.h"

namespace Agent::Netlink {

struct Refusal {
  int error;         // an errno
  std::string text;  // what that means, with the kernel's own words if it has given some
};

class Requests {
 public:
  // Throws std::system_error.
  Requests();

  // Sends the batch, and clears it. `refused` is called once for each refused request, by its
  // place in the batch; it must not send. Throws std::system_error where the kernel cannot be
  // asked.
  void send(Batch& batch, const std::function<void(std::size_t place, const Refusal&)>& refused);

  // The same of a batch of one; nothing: it was done.
  std::optional<Refusal> send(Batch& batch);

 private:
  Socket socket_;
  std::uint32_t lastNumber_ = 0;
};

struct NotPermitted : std::system_error {
  using std::system_error::system_error;
};

// Throws NotPermitted if this process may not change the network.
void requirePermission(Requests& requests);

}  // namespace Agent::Netlink
