// The links that the kernel needs for the VNIs: a vxlan device each, its bridge, and the access
// ports in that. They are made and kept as they are wanted, or else, adopted, only looked for.
//
// It goes by what the kernel tells: whatever differs from what is wanted is asked for, and the
// kernel's news of it are what makes it so. What is refused is a problem, and tried again later;
// at once, where links change. What nobody wants any more goes when the client is calm.
//
//   VNI 5001, access port p1 in no bridge:  vx5001 -- br5001 -- p1
//   access port p1 in the bridge lan:       vx5001 -- lan -- p1
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/base/Attachments.h"
#include "agent/base/Problems.h"
#include "agent/kernel/LinkRequests.h"
#include "agent/kernel/LinkTable.h"
#include "agent/kernel/PortBindings.h"
#include "agent/netlink/Link.h"
#include "agent/netlink/Requests.h"
#include "model/Vorn/IpAddr.h"
#include "model/Vxlan/VniExt.h"

namespace Agent::Kernel {

struct LinkOptions {
  bool manages = true;  // else: adopts
  std::string mark{};   // the alias of what is ours
};

// The vxlan device of a VNI.
struct Device {
  int index = 0;
  int bridge = 0;  // the index of the bridge that it is a port of; 0: none

  friend bool operator==(const Device&, const Device&) = default;
};

class Links {
 public:
  struct Events {
    // A VNI has a device, another one or another bridge. Nothing: it has none any more.
    std::function<void(const Vxlan::VniExt&, const std::optional<Device>&)> deviceIs;
    std::function<void(const std::string&)> tell;  // what has been made, put right or removed
  };

  Links(LinkOptions options, Netlink::Requests& requests, Problems& problems, Events events);

  // What is wanted. Without the address of our VTEP, or with 0.0.0.0, no device is made.
  void vniIs(const Vxlan::VniExt& vni);
  void vniDel(const Vxlan::VniExt& vni);
  void localAddressIs(const Vorn::IpAddr& address);
  void portsAre(const std::vector<Attachment>& ports);
  void calmIs(bool isCalm);

  // What there is, as the kernel tells it.
  void linkIs(const Netlink::Link& link);
  void linkDel(const Netlink::Link& link);
  void portIs(const Netlink::BridgePort& port);
  void addressIs(const Netlink::Address& address);
  void addressDel(const Netlink::Address& address);

  // Between these two, all that there is is told: the rest is gone. May be begun anew.
  void beginAll();
  void endAll();

  // Asks for what is missing, a piece: some dozen links at most. Returns whether there is more to
  // do at once. What the kernel tells of it is to be handed over before the next call. Does nothing
  // before all there is has been told. Throws std::system_error.
  bool work(double now);

  // When something is tried again that was refused, or undone too often, by the clock of work();
  // nothing: nothing was.
  std::optional<double> due() const;

  // Of a VNI, wanted or not: ours, or in adopt mode the one that has the VNI.
  std::optional<Device> device(const Vxlan::VniExt& vni) const;

  // The VNI of a device, by its index.
  std::optional<Vxlan::VniExt> vniOf(int index) const;

  std::size_t devices() const;  // of the VNIs wanted, those that are there

 private:
  // What was in order, and how, when a VNI was last looked at: what differs from that has been
  // changed by somebody else, and is told when it is put right.
  struct InOrder {
    bool bridge = false;
    bool device = false;
    Vorn::IpAddr local{};
    std::optional<std::uint32_t> mtu{};
    int master = 0;
    std::map<std::string, int> ports{};  // interfaces, and their bridges
  };

  bool isWanted(const Vxlan::VniExt& vni) const { return wanted_.contains(vni); }
  bool isNeeded(const std::string& interface) const;
  bool isOurBridge(const KnownLink& link) const;
  bool isOurSubInterface(const KnownLink& link) const;
  const KnownLink* ourDevice(const Vxlan::VniExt& vni) const;
  const KnownLink* ourBridge(const Vxlan::VniExt& vni) const;
  const KnownLink* bridgeOf(const Vxlan::VniExt& vni) const;
  std::optional<std::uint32_t> underlayMtu() const;

  void touch(const KnownLink& link);
  void touchMembers(int bridge);
  void touchAll();
  void refreshDevice(const Vxlan::VniExt& vni);
  void followUnderlay();
  void keepPace(std::chrono::duration<double> taken);

  void look(const Vxlan::VniExt& vni);
  void lookForDevice(const Vxlan::VniExt& vni);
  void lookAtSubInterfaces();
  void arrange(const Vxlan::VniExt& vni);
  void arrangeBridge(const Vxlan::VniExt& vni, const KnownLink* bridge);
  void arrangeDevice(const Vxlan::VniExt& vni, const KnownLink* bridge);
  void arrangePort(const Vxlan::VniExt& vni, const Attachment& attachment, const KnownLink* bridge);
  void makeSubInterface(const Attachment& attachment, const std::string& place, InOrder& inOrder);
  void removeWhatIsLeft(const Vxlan::VniExt& vni);
  std::vector<const KnownLink*> portsThatLeave(const KnownLink& bridge) const;

  bool mayRemove(const Vxlan::VniExt& vni);
  bool make(const std::string& name, const std::string& place, bool wasInOrder,
            const std::function<void(Netlink::Batch&)>& build);
  void change(const KnownLink& link, const std::string& place, const std::string& how,
              bool wasInOrder, const std::vector<Netlink::LinkChange>& what);
  void remove(const KnownLink& link, const std::string& place);

  // VNIs in a piece of work. A link takes the kernel a millisecond or more, and tells a lot.
  static constexpr int mostAtOnce = 8;

  LinkOptions options_;
  Problems& problems_;
  Events events_;
  LinkTable table_;
  LinkRequests requests_;
  bool isRead_ = false;
  bool isCalm_ = false;
  double now_ = 0;

  std::set<Vxlan::VniExt> wanted_;
  Vorn::IpAddr local_;
  PortBindings bindings_;

  std::optional<std::uint32_t> mtu_;  // of the devices; nothing: no link has the local address
  std::map<Vxlan::VniExt, Device> devices_;
  std::map<Vxlan::VniExt, InOrder> inOrder_;
  std::set<Vxlan::VniExt> dirty_;     // to be looked at
  std::set<Vxlan::VniExt> deferred_;  // to be looked at once the client is calm
  std::set<Vxlan::VniExt> next_;      // to be looked at in the next piece
  int atOnce_ = mostAtOnce;
  int removals_ = 0;             // in this piece
  std::set<int> subInterfaces_;  // ours, that nothing may need any more
};

}  // namespace Agent::Kernel
