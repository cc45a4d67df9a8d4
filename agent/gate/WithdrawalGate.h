// Stands between a source of state and the store, and keeps calm: what is announced goes through at
// once, what is withdrawn waits for its re-announcement. A move is hitless, a flap is nothing.
//
// A controller that restarts takes everything back and announces it anew. When so much is withdrawn
// that it looks like that, a hold begins: the client is told that the controller converges, and
// then given the withdrawals, so that it marks the hosts and keeps them. When the hold ends, the
// client deletes what has not come back. VNIs and whole lists, which the client would give up at
// once, stay as they are until then.
//
// It may take back everything row by row, for longer than a withdrawal waits. So when more hosts
// wait than a hold needs at least, none of them goes through while others keep coming: either that
// becomes a hold, or the stream ends. The longest wait is `longestWait` times the usual one.
//
// While the source is not in sync nothing is withdrawn at all, however long that lasts.
//
// Times are seconds of the activity facility. The gate's clock calls it back to let through what is
// due, a bounded number at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/gate/Announcements.h"
#include "agent/store/Change.h"
#include "framework/Moru/Clock.h"
#include "framework/Moru/Collections/HashMap2018.h"

namespace Agent {

struct GateOptions {
  double withdrawDelay = 1;  // seconds that a withdrawal waits; 0: none
  // More hosts than this share of all, and more than this number, begin a hold when they wait.
  double holdAbove = 0.3;
  std::size_t holdMin = 20;
  double holdTime = 300;  // seconds after which a hold ends by itself; 0: never
  double settle = 5;      // seconds without a change that end the hold of a controller that is back
};

class WithdrawalGate final : public Announcements {
 public:
  // Takes the changes in the order in which they are to be applied. It must not call the gate.
  using Sink = std::function<void(Change)>;

  // What whoever tells the story of a host is told. Must not call the gate; each may be empty.
  struct Events {
    // Its withdrawal waits; `isHeld`: in a hold.
    std::function<void(const Vxlan::VniExt&, const Vorn::EthAddr&, bool isHeld)> waits{};
    // It has come back before that went through.
    std::function<void(const Vxlan::VniExt&, const Vorn::EthAddr&)> cameBack{};
    std::function<void(bool isHold)> hold{};
  };

  // The controller whose state is written.
  static constexpr const char* controllerName = "controller";

  // How many withdrawals go through before everything else has its turn.
  static constexpr std::size_t slice = 4096;

  static constexpr double longestWait = 10;

  // Converging, and not in sync. Its clock is of the facility that is current by now.
  WithdrawalGate(const GateOptions& options, Sink sink);
  ~WithdrawalGate() override;
  WithdrawalGate(const WithdrawalGate&) = delete;
  WithdrawalGate& operator=(const WithdrawalGate&) = delete;

  void eventsAre(Events events) { events_ = std::move(events); }

  // A host that is known from before, as if it had been announced, but nothing is emitted. If it
  // has not been announced when the source is in sync, it is withdrawn. Before the first
  // inSyncIs(true).
  void adopt(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const Vorn::IpAddr& vtep);

  // What the source of state says, item by item, VNIs before what they have; a batch ends with
  // commit(). What is said already goes no further. No withdrawal goes through within a batch.
  //
  // A VNI that is withdrawn takes its hosts and lists with it when that goes through; when it comes
  // back, they are to be said anew. Only hosts that are withdrawn themselves can begin a hold. One
  // that is announced with another VLAN, or for another's VLAN, takes that place at once: what it
  // had there is withdrawn, and set again in the new one.
  void vniIs(const Vxlan::VniExt& vni, const Bridging::VlanId& vlan) override;
  void vniDel(const Vxlan::VniExt& vni, Cause cause) override;
  void hostIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac,
              const Vorn::IpAddr& vtep) override;
  void hostDel(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, Cause cause) override;
  void listIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const FloodList& list) override;
  void listDel(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, Cause cause) override;
  void commit() override;

  // Whether the source is connected and has told all of its state, the commit() of it included.
  void inSyncIs(bool inSync);

  // Ends a hold; where the source is not in sync, when it is again.
  void release();

  struct Hold {
    double since;
    std::size_t waiting;         // hosts that have not come back
    std::optional<double> ends;  // as things stand
  };
  std::optional<Hold> hold() const;
  std::size_t holds() const { return holds_; }  // that have begun so far
  bool converging() const { return converging_; }
  double convergingSince() const { return convergingSince_; }  // or when it last began to be
  bool inSync() const { return inSync_; }

  // Of the hosts that the store has, and the adopted ones: all, and those whose withdrawal waits.
  std::size_t hosts() const { return hosts_; }
  std::size_t waiting() const { return waiting_; }
  bool isWaiting(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) const;
  // Of a list or of one of its VTEPs.
  bool isListWaiting(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) const;

 private:
  class MoruClock;

  // The number of a withdrawal that waits. One that is forgotten leaves its place in the queue
  // behind, where it is told by the number.
  using Withdrawal = std::uint32_t;
  static constexpr Withdrawal none = 0;

  struct Host {
    Vorn::IpAddr vtep{};
    Withdrawal withdrawal = none;
    Cause cause = Cause::controller;
    bool adopted = false;  // the store does not have it
  };

  struct Member {
    Vorn::IpAddr vtep{};
    Withdrawal withdrawal = none;
  };

  // As it is written, with the members that wait to leave it. At least one does not.
  struct List {
    L2Rib::FloodSetType type{};
    std::vector<Member> members{};  // ascending
    Withdrawal withdrawal = none;   // of the whole
    bool isDue = false;             // and only a hold keeps it
  };

  enum class Entry : std::uint8_t { none, pending, written };

  struct Vni {
    std::optional<Bridging::VlanId> vlan{};  // in the map
    Entry entry = Entry::none;               // the controller's
    Withdrawal withdrawal = none;
    bool isDue = false;
    Moru::HashMap2018<Vorn::EthAddr, Host> hosts{};
    // That this hold has withdrawn. Optional, so that it goes whole and not host by host.
    std::optional<Moru::HashMap2018<Vorn::EthAddr, Moru::Nothing>> missing{std::in_place};
    std::map<Vorn::EthAddr, List> lists{};
  };

  struct Due {
    double at;
    Vxlan::VniExt vni;
    Vorn::EthAddr mac;  // but for a VNI's own
    Withdrawal withdrawal;
  };
  // All wait equally long: the next one is at the front.
  using Queue = std::deque<Due>;

  struct HoldState {
    double since;
    bool cameBack = false;
    bool released = false;
  };

  // What a VNI that has to leave its VLAN takes to the new one.
  struct Luggage {
    std::vector<std::pair<Vorn::EthAddr, Vorn::IpAddr>> hosts{};
    std::vector<std::pair<Vorn::EthAddr, FloodList>> lists{};
  };

  void openBatch();
  void changed();
  void flushVnis();
  void judge();

  void letThrough();
  void withdrawHosts(Queue& queue);
  void withdrawLists();
  void withdrawVnis();
  bool withdrawContents(const Vxlan::VniExt& vni, Vni& entry);
  void withdrawMap(const Vxlan::VniExt& vni);
  void displace(const Vxlan::VniExt& vni);
  void endHold();

  Host* findHost(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac);
  void hostGone(Vni& entry, const Vorn::EthAddr& mac);
  void stopWaiting(Host& host);
  void startWaiting(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, Host& host, Cause cause);
  Withdrawal enqueue(Queue& queue, const Vxlan::VniExt& vni, const Vorn::EthAddr& mac = {});
  bool changeMembers(List& list, const std::vector<Vorn::IpAddr>& vteps,
                     const std::function<Withdrawal()>& leave);
  void writeList(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const List& list);
  void deleteList(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, L2Rib::FloodSetType type);
  void convergingIs(bool converging);

  double dueTime(const Queue& queue) const;
  std::optional<double> holdEnds() const;
  void arm();

  template <class Target>
  void set(Target target, typename Target::Value value);
  template <class Target>
  void del(Target target);

  const GateOptions options_;
  const Sink sink_;
  Events events_;
  const Moru::Ptr<MoruClock> clock_;

  std::map<Vxlan::VniExt, Vni> vnis_;
  std::map<Bridging::VlanId, Vxlan::VniExt> vlans_;  // as the map is written
  std::size_t hosts_ = 0;
  std::size_t waiting_ = 0;
  std::size_t counting_ = 0;  // of the waiting, those that count towards a hold
  std::size_t missing_ = 0;

  // Of the batch. VNIs come first, and are brought to the import list together.
  bool isBatchOpen_ = false;
  double time_ = 0;  // of the batch's beginning, or of the work that is under way
  bool isBatchEmpty_ = true;
  bool areVnisChanged_ = false;
  std::vector<Vxlan::VniExt> newVnis_;
  std::map<Vxlan::VniExt, Luggage> luggage_;
  std::vector<Bridging::VlanId> importVlans_;  // as written

  Queue hostQueue_;
  Queue meantHostQueue_;
  Queue listQueue_;
  Queue vniQueue_;
  Withdrawal lastWithdrawal_ = none;
  std::size_t budget_ = 0;  // of withdrawals, in this turn

  bool converging_ = false;
  double convergingSince_ = 0;
  bool inSync_ = false;
  bool hasAdopted_ = false;
  double syncedAt_ = 0;
  double lastChange_ = 0;
  double lastTaken_ = 0;  // when the controller withdrew a host
  std::optional<HoldState> hold_;
  std::size_t holds_ = 0;
};

}  // namespace Agent
