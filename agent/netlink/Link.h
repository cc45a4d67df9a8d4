// Network interfaces and their addresses, as the kernel tells of them.
#pragma once

#include <cstdint>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>
#include <optional>
#include <string>

#include "agent/netlink/Batch.h"
#include "model/Vorn/IpAddr.h"

namespace Agent::Netlink {

struct Link {
  struct Vxlan {
    std::uint32_t vni = 0;
    Vorn::IpAddr local{};
    std::uint16_t port = 0;
    bool learns = false;
    bool isExternal = false;  // takes its VNIs from elsewhere

    friend bool operator==(const Vxlan&, const Vxlan&) = default;
  };

  int index = 0;
  std::string name{};
  std::string kind{};  // "vxlan", "bridge", ...; empty for what is no virtual device
  std::string alias{};
  bool isUp = false;
  std::uint32_t mtu = 0;
  int master = 0;  // the index of the bridge, say; 0: none
  int lower = 0;   // the index of what it stands on; 0: nothing
  std::optional<Vxlan> vxlan{};
  std::optional<std::uint16_t> vlan{};  // of a VLAN sub-interface
  std::optional<bool> portLearns{};     // as a port of a bridge

  friend bool operator==(const Link&, const Link&) = default;
};

// A port of a bridge, as the family AF_BRIDGE tells of it: the only news of `bridge link set`.
struct BridgePort {
  int index = 0;
  bool learns = false;
};

struct Address {
  int index = 0;  // of the interface
  Vorn::IpAddr address{};

  friend auto operator<=>(const Address&, const Address&) = default;
};

// What RTM_NEWLINK or RTM_DELLINK says. The kernel also sends some of the family AF_BRIDGE, about a
// bridge's ports: those say too little, and are passed over (nothing).
std::optional<Link> linkOf(const nlmsghdr& message);

// What RTM_NEWLINK of the family AF_BRIDGE says; nothing if it is of another one, or of no port.
std::optional<BridgePort> bridgePortOf(const nlmsghdr& message);

// What RTM_NEWADDR or RTM_DELADDR says; nothing if that is not about an IPv4 address.
std::optional<Address> addressOf(const nlmsghdr& message);

// Ask for all of them: with RTM_GETLINK and RTM_GETADDR.
inline constexpr ifinfomsg allLinks{};
inline constexpr ifaddrmsg allAddresses{AF_INET, 0, 0, 0, 0};

// Adds a request for a new link, which is refused where the name is taken. No alias can be given to
// a link before there is one.
void makeVxlan(Batch& batch, const std::string& name, const Link::Vxlan& vxlan, std::uint32_t mtu);
void makeBridge(Batch& batch, const std::string& name);  // without multicast snooping
void makeVlan(Batch& batch, const std::string& name, int lower, std::uint16_t tag);

// What is to become of a link: that which has a value.
struct LinkChange {
  std::optional<std::string> alias{};
  std::optional<std::uint32_t> mtu{};
  std::optional<int> master{};  // 0: none
  std::optional<bool> isUp{};
  std::optional<bool> portLearns{};
  std::optional<bool> learns{};         // of a vxlan device, as the next one
  std::optional<Vorn::IpAddr> local{};  // of the underlay's side
};

// Adds a request to change a link. The kernel tells of it, but for a link that is down: of that, it
// tells a change of MTU or master alone.
void changeLink(Batch& batch, int index, const LinkChange& change);
void changeLink(Batch& batch, const std::string& name, const LinkChange& change);

void deleteLink(Batch& batch, int index);

}  // namespace Agent::Netlink
