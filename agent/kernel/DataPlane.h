// Programs the Linux kernel with the layer-2 RIB: a vxlan device for each VNI that a VLAN stands
// for, FDB entries for the hosts, and where flooded frames go.
//
//   HostInput, SourceDirEntry ──> RibWatch ──> DataPlane ──> Fdb ────> Requests ──> kernel
//   VlanVniMaps, VtiStatusDir ───────┘             ├───────> Groups ──────┤            │
//   Attachments ───────────────────────────────────┴───────> Links ───────┘            │
//                                                  └<──────────────── Monitor, Dump ───┘
//
// It knows nothing of where the RIB comes from, and is told when that is calm: until then, nothing
// is removed that nobody has asked for.
//
// Where news of the kernel have been lost, all there is is read again, a piece at a time.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/base/Attachments.h"
#include "agent/base/Problems.h"
#include "agent/kernel/Fdb.h"
#include "agent/kernel/Groups.h"
#include "agent/kernel/Links.h"
#include "agent/kernel/RibWatch.h"
#include "agent/netlink/Dump.h"
#include "agent/netlink/Monitor.h"
#include "agent/netlink/Requests.h"
#include "framework/Moru/Clock.h"

namespace Agent::Kernel {

struct DataPlaneOptions {
  LinkOptions links{};
  int monitorBuffer = 8 << 20;  // bytes of the socket that listens; the system may allow less
};

class DataPlane {
 public:
  struct Events {
    std::function<void(const std::string&)> tell;  // what a log should have
    // A host that an agent before us has programmed.
    std::function<void(const Vxlan::VniExt&, const Vorn::EthAddr&, const Vorn::IpAddr&)> known;
    // What becomes of entries, see Fdb.h.
    decltype(Fdb::Events::happened) happened{};
  };

  // Reads what there is, and takes over what is ours. Throws std::system_error where the kernel
  // cannot be asked, and with EPERM where it may not be changed.
  DataPlane(const DataPlaneOptions& options, const Rib& rib, Problems& problems, Events events);
  ~DataPlane();
  DataPlane(const DataPlane&) = delete;
  DataPlane& operator=(const DataPlane&) = delete;

  void attachmentsAre(const Attachments& attachments);
  void calmIs(bool isCalm);

  // Readable when the kernel has news.
  int descriptor() const { return monitor_.descriptor(); }

  // Works for about as long. Returns whether there is more to do at once. What is due later has its
  // own clock, of the facility that was current when this was made.
  bool work(double seconds);
  struct Status {
    Fdb::Counts hosts{};
    std::size_t devices = 0;
    std::size_t groups = 0;
    std::size_t waiting = 0;    // entries, of hosts and of flood sets
    std::size_t putBack = 0;    // what others had changed
    std::size_t readAgain = 0;  // how often all was read, for news were lost
  };
  Status status() const;

  // For whoever compares the kernel with the RIB: the VNI of a device, by its index; whether hosts
  // of a VNI belong into a bridge, too; why an entry of the kernel is not what the RIB has, empty
  // if there is no reason; whether somebody else has made an entry.
  std::optional<Vxlan::VniExt> vniOf(int device) const { return links_.vniOf(device); }
  bool usesBridge(const Vxlan::VniExt& vni) const;
  bool isProgrammed(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) const {
    return fdb_.state(vni, mac) == Fdb::State::programmed;
  }
  std::string whyOther(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) const;
  bool isForeign(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const Route& route) const {
    return fdb_.isForeign(vni, mac, route);
  }
  bool isOwnAddress(const Vorn::IpAddr& address) const;

 private:
  class MoruClock;
  using VlanMac = std::pair<Bridging::VlanId, Vorn::EthAddr>;
  using VniMac = std::pair<Vxlan::VniExt, Vorn::EthAddr>;

  // What is being read anew, in this order.
  enum class Reading { links, addresses, nexthops, entries, nothing };

  void takeAll();
  void take(const nlmsghdr& message);
  void beginReading(Reading what);
  void readPiece();
  void endReading();
  void readAgain(const std::string& why);
  bool listen();

  void takeChanges();
  void takeOwnAddresses(RibWatch::Changes& changes);
  void takeMaps(RibWatch::Changes& changes);
  void withdraw(const Bridging::VlanId& vlan, const Vxlan::VniExt& vni, RibWatch::Changes& changes);
  void noteFloodSets(const Bridging::VlanId& vlan, RibWatch::Changes& changes) const;
  void takeHosts(const std::vector<Bridging::MacVlanPair>& keys);
  Route wantedRoute(const Vxlan::VniExt& vni, const Bridging::MacVlanPair& key);
  Route cannot(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const std::string& value,
               const std::string& why);
  void can(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac);
  Moru::Ptr<L2Rib::FloodSet const> floodSetOf(const Bridging::VlanId& vlan,
                                              const Vorn::EthAddr& mac) const;
  Groups::Members vtepsOf(const L2Rib::FloodSet& floodSet) const;
  void takeFloodSets(const std::set<VlanMac>& keys);
  void moveToGroups(std::map<VniMac, Groups::Members>& sets);
  bool step();
  void tellPutBack();
  bool hasBridge(const Vxlan::VniExt& vni) const;
  std::optional<double> due() const;

  const bool managesLinks_;
  const Rib rib_;
  Problems& problems_;
  const Events events_;
  const Moru::Ptr<MoruClock> clock_;

  Netlink::Requests requests_;
  Netlink::Monitor monitor_;
  Netlink::Dump dump_;
  Links links_;
  Groups groups_;
  Fdb fdb_;
  Moru::Ptr<RibWatch> watch_;

  std::map<Bridging::VlanId, Vxlan::VniExt> vnis_;
  std::map<Bridging::VlanId, std::set<Vorn::EthAddr>> unmapped_;  // hosts
  std::set<VniMac> impossible_;                                   // what has no kernel form
  std::vector<Vorn::IpAddr> databaseAddresses_;
  std::vector<Vorn::IpAddr> ownAddresses_;  // ascending; these, and those of the VTIs
  bool isOwnChanged_ = false;
  bool isCalm_ = false;

  Reading reading_ = Reading::nothing;
  std::vector<std::vector<char>> postponed_;  // messages, until all has been read
  std::size_t readAgain_ = 0;
  std::size_t groupsPutBack_ = 0;
  std::size_t toldPutBack_ = 0;
};

}  // namespace Agent::Kernel
