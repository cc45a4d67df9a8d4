// The FDB entries of the VNIs' devices: what is wanted and what is programmed, and the requests
// that make one of the other.
//
// Additions and moves go first, deletions last. What is refused is tried again, and told in the
// problems. An entry of ours that others change or remove is put back; theirs are left alone, and
// an entry of theirs in the place of ours is a refusal.
//
// What an agent before us has left is taken over. What of it nobody has asked for stays until the
// client is calm.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/base/Problems.h"
#include "agent/kernel/Backoff.h"
#include "agent/kernel/Groups.h"
#include "agent/kernel/Links.h"
#include "agent/kernel/Route.h"
#include "agent/netlink/Fdb.h"
#include "agent/netlink/Requests.h"
#include "framework/Moru/Collections/HashMap2018.h"

namespace Agent::Kernel {

class Fdb {
 public:
  // Flooded frames: unknown ones by the broadcast address, or those of a multicast group.
  static bool isFlood(const Vorn::EthAddr& mac) { return (mac.value() >> 40 & 1) != 0; }

  // Of unicast entries that are wanted, but for the foreign ones, which are all that are not ours.
  struct Counts {
    std::size_t wanted = 0;
    std::size_t programmed = 0;
    std::size_t refused = 0;
    std::size_t foreign = 0;

    std::size_t waiting() const { return wanted - programmed - refused; }
  };

  enum class Happening : std::uint8_t { programmed, removed, refused, putBack };

  struct Events {
    // An entry that an agent before us has left.
    std::function<void(const Vxlan::VniExt&, const Vorn::EthAddr&, const Vorn::IpAddr&)> known;
    // What becomes of entries, with the VTEP that it is about: 0.0.0.0 where it is a group.
    std::function<void(Happening, const Vxlan::VniExt&, const Vorn::EthAddr&, const Vorn::IpAddr&)>
        happened{};
  };

  Fdb(Netlink::Requests& requests, Groups& groups, Problems& problems, Events events);

  // What is wanted; a route that is none takes the entry away.
  void unicastIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const Route& route);
  void floodIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const FloodRoute& route);
  // The MACs of a VNI that are wanted.
  std::vector<Vorn::EthAddr> wanted(const Vxlan::VniExt& vni) const;
  // Those whose entries want a group, each with its VNI; and the one that an entry wants.
  std::size_t wanters(GroupId group) const;
  GroupId wantedGroup(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) const;

  // Where the entries of a VNI are; nothing: nowhere, as long as it has no device.
  void deviceIs(const Vxlan::VniExt& vni, const std::optional<Device>& device);
  // A group is gone, and with it the entries that used it.
  void groupLost(GroupId group);

  // What there is, as the kernel tells it; the device must be known by then. Between beginAll() and
  // endAll(), all that there is; the rest is gone. No work() meanwhile.
  void entryIs(const Netlink::FdbEntry& entry);
  void entryDel(const Netlink::FdbEntry& entry);
  void beginAll();
  void endAll();
  // All that has happened has been told: what differs from what was programmed is put back.
  void judge(double now);

  // What is left over from before goes.
  void calmIs(bool isCalm);

  // Sends one batch of what is to be changed, if there is anything. What the kernel tells of it is
  // to be handed over before the next call, or never.
  void work(double now);
  std::size_t waiting() const { return changes_.size() + deletions_.size(); }
  std::optional<double> due() const { return refused_.due(); }

  const Counts& counts() const { return counts_; }
  // How many entries have been put back, and which was the last.
  std::size_t putBack() const { return putBack_; }
  const std::pair<Vxlan::VniExt, Vorn::EthAddr>& lastPutBack() const { return lastPutBack_; }
  enum class State {
    unknown,   // neither wanted nor ours
    noDevice,  // nor is anything else of the VNI
    waiting,
    programmed,
    left,  // from before, and nobody has asked for it
  };
  State state(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) const;
  bool isForeign(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const Route& route) const;
  // The kernel's words; null if it is not refused.
  const std::string* refusal(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) const {
    return refused_.why({vni, mac});
  }

 private:
  using Key = std::pair<Vxlan::VniExt, Vorn::EthAddr>;

  struct Unicast {
    Route wanted{};
    Route programmed{};
    bool isInBridge = false;
    bool isMarked = true;  // as ours, where it is programmed
    bool isQueued = false;
    bool isRefused = false;
    std::uint8_t seen = 0;  // in which telling of all
    std::uint8_t seenInBridge = 0;
  };

  struct Flood {
    FloodRoute wanted{};
    FloodRoute programmed{};
    bool isQueued = false;
    bool isRefused = false;
  };

  struct Vni {
    std::optional<Device> device{};
    Moru::HashMap2018<Vorn::EthAddr, Unicast> unicasts{};
    std::map<Vorn::EthAddr, Flood> floods{};
    std::set<std::pair<Vorn::EthAddr, Route>> foreign{};
    std::size_t refused = 0;
  };

  // What has been told of an entry since the last judgement.
  struct News {
    std::optional<Route> route{};  // none: it is gone
    bool isMarked = true;
    std::optional<bool> isInBridge{};
  };

  // A request of the batch, and what was there before.
  struct Sent {
    Key key;
    Vni* vni;
    bool isDeletion;
    Netlink::Sides sides;
    Route before;
    Route route;  // that it sets, or of a flood entry deletes
  };

  template <class Change>
  void change(Unicast& entry, Change change);
  void count(const Unicast& entry, int by);
  void hold(GroupId from, GroupId to);
  void wantGroup(GroupId from, GroupId to);

  static Unicast& unicastOf(Vni& vni, const Vorn::EthAddr& mac);
  template <class Vnis, class Visit>
  static void visit(Vnis& vnis, const Key& key, Visit visit);
  Vni* vniAt(int device);
  template <class Entry>
  void enqueue(const Key& key, Entry& entry);
  void enqueueAll(const Vxlan::VniExt& vni, Vni& entry);
  void loseAll(const Vxlan::VniExt& name, Vni& vni);

  bool isLeftByUs(const Netlink::FdbEntry& told) const;
  void unicastIsThere(const Vxlan::VniExt& vni, Vni& entry, const Netlink::FdbEntry& told);
  void floodIsThere(const Vxlan::VniExt& vni, Vni& entry, const Netlink::FdbEntry& told);
  void inBridgeIs(const Netlink::FdbEntry& told, bool isThere);
  void foreignIs(Vni& vni, const Vorn::EthAddr& mac, const Route& route, bool isThere);
  bool isDeviceThere(const Vxlan::VniExt& vni);
  void judgeUnicast(const Key& key, const News& news, double now);
  void judgeFlood(const Key& key, const FloodRoute& told, double now);
  template <class Entry>
  void putBack(const Key& key, Entry& entry, double now);

  void next(std::deque<Key>& queue, bool isDeletion);
  void program(const Key& key, Vni& vni, Unicast& entry);
  bool program(const Key& key, Vni& vni, Flood& entry, bool isDeletion);
  void add(Sent sent, std::uint16_t flags);
  void send(double now);
  void refused(const Sent& sent, const Netlink::Refusal& refusal, double now);
  void refusedIs(Unicast& entry, bool isRefused);
  static void refusedIs(Flood& entry, bool isRefused) { entry.isRefused = isRefused; }
  void refuse(const Key& key, const std::string& why, double now);
  void tell(Happening what, const Key& key, const Vorn::IpAddr& vtep = {}) const;
  void accept(const Key& key);

  Netlink::Requests& requests_;
  Groups& groups_;
  Problems& problems_;
  const Events events_;

  std::map<Vxlan::VniExt, Vni> vnis_;
  std::map<int, Vxlan::VniExt> devices_;
  std::multimap<int, Vxlan::VniExt> bridges_;
  std::map<GroupId, std::size_t> wanters_;

  std::deque<Key> changes_;
  std::deque<Key> deletions_;
  std::vector<Key> leftovers_;
  Backoff<Key> refused_;
  Counts counts_;

  std::map<Key, News> news_;
  std::map<Key, FloodRoute> floodNews_;
  bool isTellingAll_ = false;
  bool isTakenOver_ = false;
  std::uint8_t telling_ = 0;
  std::size_t putBack_ = 0;
  Key lastPutBack_;
  struct PutBack {
    double since = 0;
    int times = 0;
  };
  std::map<Key, PutBack> putBacks_;

  Netlink::Batch batch_;
  std::vector<Sent> sent_;
};

}  // namespace Agent::Kernel
