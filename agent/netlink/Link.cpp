#include "agent/netlink/Link.h"

#include <arpa/inet.h>
#include <linux/if_link.h>
#include <net/if.h>
#include <string_view>
#include <sys/socket.h>

#include "agent/netlink/Attributes.h"

namespace Agent::Netlink {

namespace {

// A text ends with its attribute, or with a zero before that.
std::string textOf(const nlattr& attribute) {
  const std::string_view text(mnl_attr_get_str(&attribute), mnl_attr_get_payload_len(&attribute));
  return std::string(text.substr(0, text.find('\0')));
}

bool flagOf(const nlattr& attribute) { return mnl_attr_get_u8(&attribute) != 0; }

Vorn::IpAddr addressIn(const nlattr& attribute) {
  return Vorn::IpAddr(ntohl(mnl_attr_get_u32(&attribute)));
}

Link::Vxlan vxlanOf(const nlattr& data) {
  Link::Vxlan vxlan;
  eachNested(data, [&vxlan](const nlattr& attribute) {
    switch (mnl_attr_get_type(&attribute)) {
      case IFLA_VXLAN_ID:
        vxlan.vni = mnl_attr_get_u32(&attribute);
        break;
      case IFLA_VXLAN_LOCAL:
        vxlan.local = addressIn(attribute);
        break;
      case IFLA_VXLAN_PORT:
        vxlan.port = ntohs(mnl_attr_get_u16(&attribute));
        break;
      case IFLA_VXLAN_LEARNING:
        vxlan.learns = flagOf(attribute);
        break;
      case IFLA_VXLAN_COLLECT_METADATA:
        vxlan.isExternal = flagOf(attribute);
        break;
      default:
        break;
    }
  });
  return vxlan;
}

// The first attribute of the type within another one, if there is such.
const nlattr* find(const nlattr& nest, int type) {
  const nlattr* found = nullptr;
  eachNested(nest, [&found, type](const nlattr& attribute) {
    if (!found && mnl_attr_get_type(&attribute) == type) found = &attribute;
  });
  return found;
}

void readInfo(const nlattr& info, Link& link) {
  if (const auto* const kind = find(info, IFLA_INFO_KIND)) link.kind = textOf(*kind);
  if (const auto* const data = find(info, IFLA_INFO_DATA)) {
    if (link.kind == "vxlan") link.vxlan = vxlanOf(*data);
    if (link.kind == "vlan")
      if (const auto* const tag = find(*data, IFLA_VLAN_ID)) link.vlan = mnl_attr_get_u16(tag);
  }
  const auto* const masterKind = find(info, IFLA_INFO_SLAVE_KIND);
  const auto* const port = find(info, IFLA_INFO_SLAVE_DATA);
  if (!masterKind || !port || textOf(*masterKind) != "bridge") return;
  if (const auto* const learns = find(*port, IFLA_BRPORT_LEARNING))
    link.portLearns = flagOf(*learns);
}

// Nests attributes while it is in scope.
class Nest {
 public:
  Nest(nlmsghdr& request, std::uint16_t type)
      : request_(request), nest_(mnl_attr_nest_start(&request, type)) {}
  ~Nest() { mnl_attr_nest_end(&request_, nest_); }
  Nest(const Nest&) = delete;
  Nest& operator=(const Nest&) = delete;

 private:
  nlmsghdr& request_;
  nlattr* nest_;
};

void putFlag(nlmsghdr& request, std::uint16_t type, bool value) {
  mnl_attr_put_u8(&request, type, value ? 1 : 0);
}

nlmsghdr& make(Batch& batch, const std::string& name) {
  nlmsghdr& request = batch.add(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL, ifinfomsg{});
  put(request, IFLA_IFNAME, name);
  return request;
}

nlmsghdr& change(Batch& batch, int index, const LinkChange& change) {
  ifinfomsg header{};
  header.ifi_index = index;
  if (change.isUp) header.ifi_change = IFF_UP;
  if (change.isUp && *change.isUp) header.ifi_flags = IFF_UP;
  return batch.add(RTM_NEWLINK, 0, header);
}

void putVxlanChange(nlmsghdr& request, const LinkChange& change) {
  const Nest info(request, IFLA_LINKINFO);
  put(request, IFLA_INFO_KIND, "vxlan");
  const Nest data(request, IFLA_INFO_DATA);
  if (change.learns) putFlag(request, IFLA_VXLAN_LEARNING, *change.learns);
  if (change.local) put(request, IFLA_VXLAN_LOCAL, *change.local);
}

void putPortChange(nlmsghdr& request, bool learns) {
  const Nest info(request, IFLA_LINKINFO);
  put(request, IFLA_INFO_SLAVE_KIND, "bridge");
  const Nest data(request, IFLA_INFO_SLAVE_DATA);
  putFlag(request, IFLA_BRPORT_LEARNING, learns);
}

void putChange(nlmsghdr& request, const LinkChange& change) {
  if (change.alias) put(request, IFLA_IFALIAS, *change.alias);
  if (change.mtu) mnl_attr_put_u32(&request, IFLA_MTU, *change.mtu);
  if (change.master)
    mnl_attr_put_u32(&request, IFLA_MASTER, static_cast<std::uint32_t>(*change.master));
  if (change.learns || change.local) putVxlanChange(request, change);
  if (change.portLearns) putPortChange(request, *change.portLearns);
}

}  // namespace

std::optional<Link> linkOf(const nlmsghdr& message) {
  const auto& header = *static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(&message));
  if (header.ifi_family != AF_UNSPEC) return std::nullopt;
  Link link;
  link.index = header.ifi_index;
  link.isUp = (header.ifi_flags & IFF_UP) != 0;
  bool isLowerHere = true;
  eachAttribute(message, sizeof header, [&](const nlattr& attribute) {
    switch (mnl_attr_get_type(&attribute)) {
      case IFLA_IFNAME:
        link.name = textOf(attribute);
        break;
      case IFLA_IFALIAS:
        link.alias = textOf(attribute);
        break;
      case IFLA_MTU:
        link.mtu = mnl_attr_get_u32(&attribute);
        break;
      case IFLA_MASTER:
        link.master = static_cast<int>(mnl_attr_get_u32(&attribute));
        break;
      case IFLA_LINK:
        link.lower = static_cast<int>(mnl_attr_get_u32(&attribute));
        break;
      case IFLA_LINK_NETNSID:  // the index is one of another namespace
        isLowerHere = false;
        break;
      case IFLA_LINKINFO:
        readInfo(attribute, link);
        break;
      default:
        break;
    }
  });
  if (!isLowerHere) link.lower = 0;
  return link;
}

std::optional<BridgePort> bridgePortOf(const nlmsghdr& message) {
  const auto& header = *static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(&message));
  if (header.ifi_family != AF_BRIDGE) return std::nullopt;
  std::optional<BridgePort> port;
  eachAttribute(message, sizeof header, [&](const nlattr& attribute) {
    if (mnl_attr_get_type(&attribute) != IFLA_PROTINFO) return;
    if (const auto* const learns = find(attribute, IFLA_BRPORT_LEARNING))
      port = BridgePort{header.ifi_index, flagOf(*learns)};
  });
  return port;
}

// On a link between two points, IFA_ADDRESS is the other end's.
std::optional<Address> addressOf(const nlmsghdr& message) {
  const auto& header = *static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(&message));
  if (header.ifa_family != AF_INET) return std::nullopt;
  std::optional<Address> address;
  eachAttribute(message, sizeof header, [&](const nlattr& attribute) {
    const auto type = mnl_attr_get_type(&attribute);
    if (type == IFA_LOCAL || (type == IFA_ADDRESS && !address))
      address = Address{static_cast<int>(header.ifa_index), addressIn(attribute)};
  });
  return address;
}

// A checksum is not asked for: left to be done later, it would not survive a forwarder in user
// space.
void makeVxlan(Batch& batch, const std::string& name, const Link::Vxlan& vxlan, std::uint32_t mtu) {
  nlmsghdr& request = make(batch, name);
  mnl_attr_put_u32(&request, IFLA_MTU, mtu);
  const Nest info(request, IFLA_LINKINFO);
  put(request, IFLA_INFO_KIND, "vxlan");
  const Nest data(request, IFLA_INFO_DATA);
  mnl_attr_put_u32(&request, IFLA_VXLAN_ID, vxlan.vni);
  put(request, IFLA_VXLAN_LOCAL, vxlan.local);
  mnl_attr_put_u16(&request, IFLA_VXLAN_PORT, htons(vxlan.port));
  putFlag(request, IFLA_VXLAN_LEARNING, vxlan.learns);
  putFlag(request, IFLA_VXLAN_UDP_CSUM, false);
}

void makeBridge(Batch& batch, const std::string& name) {
  nlmsghdr& request = make(batch, name);
  const Nest info(request, IFLA_LINKINFO);
  put(request, IFLA_INFO_KIND, "bridge");
  const Nest data(request, IFLA_INFO_DATA);
  putFlag(request, IFLA_BR_MCAST_SNOOPING, false);
}

void makeVlan(Batch& batch, const std::string& name, int lower, std::uint16_t tag) {
  nlmsghdr& request = make(batch, name);
  mnl_attr_put_u32(&request, IFLA_LINK, static_cast<std::uint32_t>(lower));
  const Nest info(request, IFLA_LINKINFO);
  put(request, IFLA_INFO_KIND, "vlan");
  const Nest data(request, IFLA_INFO_DATA);
  mnl_attr_put_u16(&request, IFLA_VLAN_ID, tag);
}

void changeLink(Batch& batch, int index, const LinkChange& what) {
  putChange(change(batch, index, what), what);
}

void changeLink(Batch& batch, const std::string& name, const LinkChange& what) {
  nlmsghdr& request = change(batch, 0, what);
  put(request, IFLA_IFNAME, name);
  putChange(request, what);
}

void deleteLink(Batch& batch, int index) {
  ifinfomsg header{};
  header.ifi_index = index;
  batch.add(RTM_DELLINK, 0, header);
}

}  // namespace Agent::Netlink
