#include "agent/netlink/Requests.h"

#include <cerrno>
#include <cstring>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>

#include "agent/netlink/Attributes.h"

namespace Agent::Netlink {

namespace {

// The error in front of the request that it is about, of which only the header is sent back; behind
// it, attributes.
Refusal refusalOf(const nlmsghdr& message, const nlmsgerr& error) {
  Refusal refusal{-error.error, std::strerror(-error.error)};
  if ((message.nlmsg_flags & NLM_F_ACK_TLVS) == 0) return refusal;
  eachAttribute(message, sizeof error, [&refusal](const nlattr& attribute) {
    if (mnl_attr_get_type(&attribute) == NLMSGERR_ATTR_MSG)
      refusal.text += std::string(": ") + mnl_attr_get_str(&attribute);
  });
  return refusal;
}

}  // namespace

Requests::Requests() : socket_(Socket::Mode::blocking) {
  socket_.optionIs(NETLINK_CAP_ACK, true);
  socket_.optionIs(NETLINK_EXT_ACK, true);
}

// Refusals are told unasked. The last request is acknowledged in any case, and so marks the end.
void Requests::send(Batch& batch,
                    const std::function<void(std::size_t place, const Refusal&)>& refused) {
  if (batch.isEmpty()) return;
  const std::uint32_t first = lastNumber_ + 1;
  auto* request = reinterpret_cast<nlmsghdr*>(batch.buffer_.data());
  for (std::size_t left = batch.size(); left > 0; --left) {
    request->nlmsg_seq = ++lastNumber_;
    if (left == 1) request->nlmsg_flags |= NLM_F_ACK;
    request = reinterpret_cast<nlmsghdr*>(reinterpret_cast<char*>(request) + request->nlmsg_len);
  }
  const std::size_t length = batch.bytes();
  batch.clear();
  socket_.send(batch.buffer_.data(), length);
  bool isAnswered = false;
  const auto take = [&](const nlmsghdr& message) {
    if (message.nlmsg_type != NLMSG_ERROR) return;
    const auto& error = *static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(&message));
    const std::uint32_t place = message.nlmsg_seq - first;
    if (place > lastNumber_ - first) return;  // of an earlier batch
    if (error.error != 0) refused(place, refusalOf(message, error));
    if (message.nlmsg_seq == lastNumber_) isAnswered = true;
  };
  while (!isAnswered)
    if (!socket_.receive(take).value_or(true))
      throw std::system_error(ENOBUFS, std::generic_category(), "replies of netlink are lost");
}

std::optional<Refusal> Requests::send(Batch& batch) {
  std::optional<Refusal> result;
  send(batch, [&result](std::size_t, const Refusal& refusal) { result = refusal; });
  return result;
}

// To delete what cannot be there is either not permitted or not possible.
void requirePermission(Requests& requests) {
  Batch batch;
  nlmsghdr& request = batch.add(RTM_DELNEXTHOP, 0, nhmsg{});
  mnl_attr_put_u32(&request, NHA_ID, UINT32_MAX);
  const auto refusal = requests.send(batch);
  if (refusal && refusal->error == EPERM)
    throw NotPermitted(EPERM, std::generic_category(),
                       "cannot change the network: CAP_NET_ADMIN is needed");
}

}  // namespace Agent::Netlink
