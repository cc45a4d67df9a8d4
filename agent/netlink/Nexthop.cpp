#include "agent/netlink/Nexthop.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "agent/netlink/Attributes.h"

namespace Agent::Netlink {

namespace {

std::vector<std::uint32_t> membersOf(const nlattr& attribute) {
  const auto* const first = static_cast<const nexthop_grp*>(mnl_attr_get_payload(&attribute));
  const std::size_t count = mnl_attr_get_payload_len(&attribute) / sizeof(nexthop_grp);
  std::vector<std::uint32_t> members;
  for (std::size_t i = 0; i < count; ++i) members.push_back(first[i].id);
  return members;
}

}  // namespace

Nexthop nexthopOf(const nlmsghdr& message) {
  const auto& header = *static_cast<const nhmsg*>(mnl_nlmsg_get_payload(&message));
  Nexthop nexthop;
  nexthop.isOurs = header.nh_protocol == ourProtocol;
  eachAttribute(message, sizeof header, [&nexthop](const nlattr& attribute) {
    switch (mnl_attr_get_type(&attribute)) {
      case NHA_ID:
        nexthop.id = mnl_attr_get_u32(&attribute);
        break;
      case NHA_GATEWAY:
        if (mnl_attr_get_payload_len(&attribute) == sizeof(std::uint32_t))
          nexthop.via = Vorn::IpAddr(ntohl(mnl_attr_get_u32(&attribute)));
        break;
      case NHA_GROUP:
        nexthop.members = membersOf(attribute);
        break;
      default:
        break;
    }
  });
  return nexthop;
}

void putNexthop(Batch& batch, std::uint16_t flags, const Nexthop& nexthop) {
  nhmsg header{};
  header.nh_family = nexthop.members.empty() ? AF_INET : AF_UNSPEC;
  header.nh_protocol = ourProtocol;
  const auto create = static_cast<std::uint16_t>(NLM_F_CREATE | flags);
  nlmsghdr& request = batch.add(RTM_NEWNEXTHOP, create, header);
  mnl_attr_put_u32(&request, NHA_ID, nexthop.id);
  mnl_attr_put(&request, NHA_FDB, 0, nullptr);
  if (nexthop.members.empty()) {
    put(request, NHA_GATEWAY, nexthop.via);
    return;
  }
  std::vector<nexthop_grp> members(nexthop.members.size());
  for (std::size_t i = 0; i < members.size(); ++i) members[i].id = nexthop.members[i];
  mnl_attr_put(&request, NHA_GROUP, members.size() * sizeof(nexthop_grp), members.data());
}

void deleteNexthop(Batch& batch, std::uint32_t id) {
  nlmsghdr& request = batch.add(RTM_DELNEXTHOP, 0, nhmsg{});
  mnl_attr_put_u32(&request, NHA_ID, id);
}

}  // namespace Agent::Netlink
