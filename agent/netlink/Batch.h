// Requests to rtnetlink, one behind the other in a buffer, to be sent together. A batch is no
// transaction: each is done, or refused, for itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <libmnl/libmnl.h>
#include <string>
#include <vector>

#include "model/Vorn/EthAddr.h"
#include "model/Vorn/IpAddr.h"

namespace Agent::Netlink {

class Batch {
 public:
  // That many requests make a send cheap; the replies to them fit into a socket's buffer even when
  // every one is refused.
  static constexpr std::size_t mostRequests = 128;

  // What one request may take, attributes included.
  static constexpr std::size_t mostBytes = std::size_t{64} << 10;

  Batch();

  bool isEmpty() const { return requests_ == 0; }
  bool isFull() const;

  // How many requests there are: the index of the next one.
  std::size_t size() const { return requests_; }

  // Begins a request, which takes attributes until the next one is begun. `flags` beside
  // NLM_F_REQUEST; `header` is the family's own. The batch must not be full.
  template <class Header>
  nlmsghdr& add(std::uint16_t type, std::uint16_t flags, const Header& header) {
    nlmsghdr& request = begin(type, flags);
    *static_cast<Header*>(mnl_nlmsg_put_extra_header(&request, sizeof header)) = header;
    return request;
  }

  void clear();

 private:
  friend class Requests;

  nlmsghdr& begin(std::uint16_t type, std::uint16_t flags);
  std::size_t bytes() const;

  std::vector<char> buffer_;
  nlmsghdr* last_ = nullptr;
  std::size_t requests_ = 0;
};

// Attributes of the data model's types.
void put(nlmsghdr& request, std::uint16_t type, const Vorn::EthAddr& mac);
void put(nlmsghdr& request, std::uint16_t type, const Vorn::IpAddr& address);
void put(nlmsghdr& request, std::uint16_t type, const std::string& text);

}  // namespace Agent::Netlink
