// The attributes of a message, for libmnl's loops are written for C.
#pragma once

#include <cstddef>
#include <libmnl/libmnl.h>

namespace Agent::Netlink {

// Those behind the family's own header, of `headerSize` bytes.
template <class Take>
void eachAttribute(const nlmsghdr& message, std::size_t headerSize, Take take) {
  const auto* at = static_cast<const nlattr*>(mnl_nlmsg_get_payload_offset(&message, headerSize));
  const auto* const end = static_cast<const char*>(mnl_nlmsg_get_payload_tail(&message));
  for (; mnl_attr_ok(at, static_cast<int>(end - reinterpret_cast<const char*>(at)));
       at = mnl_attr_next(at))
    take(*at);
}

// Those within another.
template <class Take>
void eachNested(const nlattr& nest, Take take) {
  const auto* at = static_cast<const nlattr*>(mnl_attr_get_payload(&nest));
  const char* const end =
      static_cast<const char*>(mnl_attr_get_payload(&nest)) + mnl_attr_get_payload_len(&nest);
  for (; mnl_attr_ok(at, static_cast<int>(end - reinterpret_cast<const char*>(at)));
       at = mnl_attr_next(at))
    take(*at);
}

}  // namespace Agent::Netlink
