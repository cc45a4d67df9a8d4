#include "agent/netlink/Fdb.h"

#include <arpa/inet.h>
#include <cstring>
#include <linux/rtnetlink.h>

#include "agent/netlink/Attributes.h"

namespace Agent::Netlink {

namespace {

Vorn::EthAddr macOf(const nlattr& attribute) {
  std::uint64_t value = 0;
  const auto* const bytes = static_cast<const std::uint8_t*>(mnl_attr_get_payload(&attribute));
  if (mnl_attr_get_payload_len(&attribute) == 6)
    for (int i = 0; i < 6; ++i) value = value << 8 | bytes[i];
  return Vorn::EthAddr::fromValue(value);
}

constexpr Vorn::EthAddr broadcast = Vorn::EthAddr::fromValue(0xffffffffffff);

}  // namespace

Vorn::EthAddr kernelMac(const Vorn::EthAddr& mac) {
  return mac == broadcast ? Vorn::EthAddr() : mac;
}

Vorn::EthAddr floodMac(const Vorn::EthAddr& mac) {
  return mac == Vorn::EthAddr() ? broadcast : mac;
}

bool isFdbEntry(const nlmsghdr& message) {
  return static_cast<const ndmsg*>(mnl_nlmsg_get_payload(&message))->ndm_family == AF_BRIDGE;
}

FdbEntry fdbEntryOf(const nlmsghdr& message) {
  const auto& header = *static_cast<const ndmsg*>(mnl_nlmsg_get_payload(&message));
  FdbEntry entry;
  entry.index = header.ndm_ifindex;
  if ((header.ndm_flags & NTF_SELF) == 0) entry.of = FdbEntry::Of::bridge;
  entry.isOurs = (header.ndm_flags & NTF_EXT_LEARNED) != 0 &&
                 (entry.of == FdbEntry::Of::bridge || header.ndm_state == ourState);
  eachAttribute(message, sizeof header, [&entry](const nlattr& attribute) {
    switch (mnl_attr_get_type(&attribute)) {
      case NDA_LLADDR:
        entry.mac = macOf(attribute);
        break;
      case NDA_DST:
        if (mnl_attr_get_payload_len(&attribute) == sizeof(std::uint32_t))
          entry.dst = Vorn::IpAddr(ntohl(mnl_attr_get_u32(&attribute)));
        break;
      case NDA_NH_ID:
        entry.nexthop = mnl_attr_get_u32(&attribute);
        break;
      case NDA_MASTER:
        entry.bridge = static_cast<int>(mnl_attr_get_u32(&attribute));
        break;
      default:
        break;
    }
  });
  return entry;
}

void putFdb(Batch& batch, std::uint16_t type, std::uint16_t flags, const FdbEntry& entry,
            Sides sides) {
  ndmsg header{};
  header.ndm_family = AF_BRIDGE;
  header.ndm_ifindex = entry.index;
  header.ndm_state = ourState;
  header.ndm_flags = static_cast<std::uint8_t>(NTF_EXT_LEARNED | (sides.device ? NTF_SELF : 0) |
                                               (sides.bridge ? NTF_MASTER : 0));
  nlmsghdr& request = batch.add(type, flags, header);
  put(request, NDA_LLADDR, entry.mac);
  if (entry.nexthop != 0)
    mnl_attr_put_u32(&request, NDA_NH_ID, entry.nexthop);
  else if (entry.dst != Vorn::IpAddr())
    put(request, NDA_DST, entry.dst);
}

}  // namespace Agent::Netlink
