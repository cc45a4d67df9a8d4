// Listens to what changes in the network: links, addresses, FDB entries and nexthops, in the order
// in which it happens.
#pragma once

#include <cstddef>

#include "agent/netlink/Socket.h"

namespace Agent::Netlink {

class Monitor {
 public:
  enum class State {
    more,     // there may be further messages
    drained,  // all that has happened has been told
    overrun,  // messages have been lost: what is known must be compared with what there is
  };

  // `bufferSize` is that of the socket in bytes, 0 the system's own. Throws std::system_error.
  explicit Monitor(int bufferSize);

  // Readable when something has happened.
  int descriptor() const { return socket_.descriptor(); }

  // Hands over what has come, some thousand messages at most.
  State drain(const Handler& handler);

  // Passes over what has come. Behind an overrun, before all is read anew: what is left is older
  // than what was lost.
  void forget();

  // Whether news of FDB entries that look like ours go untold. For the time in which there are more
  // of them than the socket could hold.
  void oursAreUntold(bool untold);

 private:
  Socket socket_;
  bool untold_ = false;
};

}  // namespace Agent::Netlink
