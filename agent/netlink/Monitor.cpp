#include "agent/netlink/Monitor.h"

#include <arpa/inet.h>
#include <array>
#include <cstddef>
#include <linux/filter.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "agent/base/Descriptor.h"
#include "agent/netlink/Fdb.h"

namespace Agent::Netlink {

namespace {

constexpr unsigned bitOf(unsigned group) { return 1U << (group - 1); }

constexpr unsigned groups = bitOf(RTNLGRP_LINK) | bitOf(RTNLGRP_NEIGH) | bitOf(RTNLGRP_NEXTHOP) |
                            bitOf(RTNLGRP_IPV4_IFADDR);

// Refuses what is RTM_NEWNEIGH, learnt externally and, if it is of a device and not of a bridge,
// has our state. The filter loads words as the network has them, and the kernel writes them as the
// machine has them.
std::array<sock_filter, 9> filter() {
  constexpr auto at = [](std::size_t offset) {
    return static_cast<std::uint32_t>(sizeof(nlmsghdr) + offset);
  };
  constexpr std::uint32_t all = UINT32_MAX;
  constexpr std::uint16_t load16 = BPF_LD | BPF_H | BPF_ABS;
  constexpr std::uint16_t load8 = BPF_LD | BPF_B | BPF_ABS;
  constexpr std::uint16_t ifEqual = BPF_JMP | BPF_JEQ | BPF_K;
  constexpr std::uint16_t ifBits = BPF_JMP | BPF_JSET | BPF_K;
  constexpr std::uint16_t result = BPF_RET | BPF_K;
  return {{
      {load16, 0, 0, offsetof(nlmsghdr, nlmsg_type)},
      {ifEqual, 0, 6, htons(RTM_NEWNEIGH)},
      {load8, 0, 0, at(offsetof(ndmsg, ndm_flags))},
      {ifBits, 0, 4, NTF_EXT_LEARNED},
      {ifBits, 0, 2, NTF_SELF},
      {load16, 0, 0, at(offsetof(ndmsg, ndm_state))},
      {ifEqual, 0, 1, htons(ourState)},
      {result, 0, 0, 0},
      {result, 0, 0, all},
  }};
}

}  // namespace

Monitor::Monitor(int bufferSize) : socket_(Socket::Mode::nonBlocking, groups) {
  if (bufferSize == 0) return;
  // Who may administer the machine may have more than the system allows others.
  if (setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &bufferSize, sizeof bufferSize) == 0)
    return;
  if (setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUF, &bufferSize, sizeof bufferSize) != 0)
    failWithErrno("cannot set the buffer of a netlink socket");
}

Monitor::State Monitor::drain(const Handler& handler) {
  constexpr int mostAtOnce = 4096;
  for (int i = 0; i < mostAtOnce; ++i) {
    const auto isWhole = socket_.receive(handler);
    if (!isWhole) return State::drained;
    if (!*isWhole) return State::overrun;
  }
  return State::more;
}

void Monitor::forget() {
  constexpr int mostDrains = 64;  // others may never rest
  for (int i = 0; i < mostDrains; ++i)
    if (drain([](const nlmsghdr&) {}) == State::drained) return;
}

void Monitor::oursAreUntold(bool untold) {
  if (untold == untold_) return;
  untold_ = untold;
  auto instructions = filter();
  sock_fprog program{static_cast<unsigned short>(instructions.size()), instructions.data()};
  const int option = untold ? SO_ATTACH_FILTER : SO_DETACH_FILTER;  // the latter reads no program
  const int done = setsockopt(descriptor(), SOL_SOCKET, option, &program, sizeof program);
  if (done != 0) failWithErrno("cannot filter a netlink socket");
}

}  // namespace Agent::Netlink
