// What links and addresses there are, as the kernel tells of them, and whose they are.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/netlink/Link.h"
#include "model/Vorn/IpAddr.h"
#include "model/Vxlan/VniExt.h"

namespace Agent::Kernel {

struct KnownLink {
  Netlink::Link link{};
  bool isMarked = false;  // made by us: it has our mark, or had it
  int putInto = 0;        // the bridge that we have put it into, even if that is not told yet

  bool isPutIn() const { return putInto != 0 && putInto == link.master; }
};

class LinkTable {
 public:
  // `mark` is the alias of what is ours.
  explicit LinkTable(std::string mark) : mark_(std::move(mark)) {}

  // Returns whether there is anything new in it.
  bool linkIs(const Netlink::Link& link);
  bool portIs(const Netlink::BridgePort& port);
  void linkDel(int index);
  void addressIs(const Netlink::Address& address);
  void addressDel(const Netlink::Address& address);

  // A link of this name has been made and marked. The kernel tells of it before it has the mark,
  // and need not tell of the mark.
  void madeIs(const std::string& name) { made_.insert(name); }
  void putIntoIs(int index, int bridge);

  // What is not told of between the two is gone; the second one returns the links of these, which
  // linkDel() is still to be called for.
  void beginAll();
  std::vector<int> endAll();

  // Nothing: there is none. Valid until there is news of that link.
  const KnownLink* find(int index) const;
  const KnownLink* find(const std::string& name) const;

  // By ascending index: the vxlan devices of a VNI, and what has this master.
  const std::set<int>& vxlans(const Vxlan::VniExt& vni) const;
  const std::set<int>& members(int master) const;

  // The link with this address; nothing: none has it.
  const KnownLink* carrierOf(const Vorn::IpAddr& address) const;

 private:
  struct Entry {
    KnownLink known;
    unsigned round = 0;  // in which it was told of
  };

  void index(const Netlink::Link& link);
  void forget(const Netlink::Link& link);

  std::string mark_;
  std::map<int, Entry> links_;
  std::map<std::string, int> byName_;
  std::map<Vxlan::VniExt, std::set<int>> byVni_;
  std::map<int, std::set<int>> byMaster_;
  std::map<std::pair<Vorn::IpAddr, int>, unsigned> addresses_;  // with their rounds
  std::set<std::string> made_;
  unsigned round_ = 0;
};

// The VNI of a device that takes its VNI from nowhere else.
std::optional<Vxlan::VniExt> vniOf(const Netlink::Link& link);

}  // namespace Agent::Kernel
