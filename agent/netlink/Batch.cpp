#include "agent/netlink/Batch.h"

#include <arpa/inet.h>
#include <array>

namespace Agent::Netlink {

Batch::Batch() : buffer_(2 * mostBytes) {}

bool Batch::isFull() const { return requests_ == mostRequests || bytes() > mostBytes; }

std::size_t Batch::bytes() const {
  if (!last_) return 0;
  const char* const end = reinterpret_cast<const char*>(last_) + last_->nlmsg_len;
  return static_cast<std::size_t>(end - buffer_.data());
}

nlmsghdr& Batch::begin(std::uint16_t type, std::uint16_t flags) {
  last_ = mnl_nlmsg_put_header(buffer_.data() + bytes());
  last_->nlmsg_type = type;
  last_->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
  ++requests_;
  return *last_;
}

void Batch::clear() {
  last_ = nullptr;
  requests_ = 0;
}

void put(nlmsghdr& request, std::uint16_t type, const Vorn::EthAddr& mac) {
  const std::uint64_t value = mac.value();
  std::array<std::uint8_t, 6> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<std::uint8_t>(value >> (8 * (bytes.size() - 1 - i)));
  mnl_attr_put(&request, type, bytes.size(), bytes.data());
}

void put(nlmsghdr& request, std::uint16_t type, const Vorn::IpAddr& address) {
  mnl_attr_put_u32(&request, type, htonl(address.value()));
}

void put(nlmsghdr& request, std::uint16_t type, const std::string& text) {
  mnl_attr_put_strz(&request, type, text.c_str());
}

}  // namespace Agent::Netlink
