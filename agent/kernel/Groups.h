// The nexthop objects that FDB entries send through: one for each VTEP, and groups of them, which
// entries with equal VTEPs share. A group can be given other VTEPs, and all that use it follow
// without losing a packet.
//
// A group is there while somebody holds it. Its making comes before the entries that use it, its
// end behind theirs: the kernel deletes entries with their group, without a word.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/base/Problems.h"
#include "agent/kernel/Backoff.h"
#include "agent/kernel/Route.h"
#include "agent/netlink/Nexthop.h"
#include "agent/netlink/Requests.h"

namespace Agent::Kernel {

class Groups {
 public:
  using Members = std::vector<Vorn::IpAddr>;  // ascending, at least one

  // Ours are numbered from here on, past numbers that are taken.
  static constexpr std::uint32_t firstId = 900000001;

  struct Events {
    std::function<void(GroupId)> lost;  // the kernel has it no more, nor the entries that used it
    std::function<void(const std::string& what)> putBack;  // is to be, for others have changed it
  };

  Groups(Netlink::Requests& requests, Problems& problems, Events events);

  // The group of these VTEPs. It goes unless it is held when clean() comes by.
  GroupId of(const Members& members);

  // Gives a group other VTEPs, unless there is one that has them.
  bool repoint(GroupId group, const Members& members);

  void hold(GroupId group);
  void drop(GroupId group);

  // What there is, as the kernel tells it. Between beginAll() and endAll(), all that there is; the
  // rest is gone.
  void nexthopIs(const Netlink::Nexthop& nexthop);
  void nexthopDel(const Netlink::Nexthop& nexthop);
  void beginAll();
  void endAll();

  // Makes what is missing, a piece, and returns whether there is more to do. What the kernel tells
  // of it is to be handed over before the next call.
  bool work(double now);
  // The same for deleting what nobody holds: what is known from before we came only if `isCalm`.
  bool clean(bool isCalm);

  // When something that was refused is tried again.
  std::optional<double> due() const { return refused_.due(); }

  std::size_t size() const { return groups_.size(); }
  // Empty if there is no such group.
  Members members(GroupId group) const;

 private:
  struct Group {
    Members members{};
    std::size_t holds = 0;
    bool isFromBefore = false;
  };
  struct Vtep {
    std::uint32_t id = 0;
    std::size_t groups = 0;
  };

  std::uint32_t newId();
  void join(const Members& members);
  void leave(const Members& members);
  bool isThere(const Vorn::IpAddr& vtep) const;
  bool isRight(GroupId id, const Group& group) const;
  std::vector<std::uint32_t> idsOf(const Members& members) const;
  void check(GroupId id);
  void checkThoseWith(const Vorn::IpAddr& vtep);
  void takeOver();
  void remove(std::map<GroupId, Group>::iterator at);
  void add(GroupId id, const Group& group);
  void send(double now);

  Netlink::Requests& requests_;
  Problems& problems_;
  const Events events_;

  std::map<std::uint32_t, Netlink::Nexthop> kernel_;  // all objects, of others too
  std::map<std::uint32_t, Netlink::Nexthop> former_;  // while all are being told
  bool isTakenOver_ = false;

  std::map<GroupId, Group> groups_;
  std::map<Members, GroupId> byMembers_;
  std::map<Vorn::IpAddr, Vtep> vteps_;
  std::uint32_t nextId_ = firstId;

  std::set<GroupId> dirty_;
  std::set<GroupId> unheld_;
  std::set<std::uint32_t> strays_;  // ours, that nothing needs
  Backoff<GroupId> refused_;

  Netlink::Batch batch_;
  std::vector<GroupId> sent_;  // for which each request of the batch is
};

}  // namespace Agent::Kernel
