// What the rows mean: to the client, VNIs with their VLANs, hosts and flood lists, and the address
// of our own VTEP; to the data plane, what our ports are attached to.
//
// Changes of rows only mark what they touch. When a message has been taken whole, advance()
// evaluates what is marked, piece by piece, and says what has become different:
//
//   1. our own address
//   2. VNIs that are new or have another VLAN, ascending
//   3. lists, by VNI and MAC: first those of switches that have lost their VNI, withdrawn under it
//   4. hosts, likewise
//   5. VNIs that are withdrawn, ascending
//   6. the attachments of our ports
//
// So the order depends on what the rows say alone, and not on how they came.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "agent/base/Problems.h"
#include "agent/gate/Announcements.h"
#include "agent/ovsdb/Agenda.h"
#include "agent/ovsdb/PortAttachments.h"
#include "agent/ovsdb/Rows.h"
#include "agent/store/Change.h"

namespace Agent::Ovsdb {

class Mapping final : public Rows::Watcher {
 public:
  using Sink = std::function<void(Change)>;

  using HostVisitor =
      std::function<void(const Vxlan::VniExt&, const Vorn::EthAddr&, const Vorn::IpAddr&)>;
  using ListVisitor =
      std::function<void(const Vxlan::VniExt&, const Vorn::EthAddr&, const FloodList&)>;

  // `switchName` is that of the Physical_Switch row that is us. Changes of the VTI go to `sink`.
  Mapping(std::string switchName, Rows& rows, Announcements& announcements, Sink sink,
          PortAttachments::Sink attachments, Problems& problems);

  // Whether our own row is there. Raises the problem that it is not, or cures it.
  bool findSwitch();

  // Whether what is evaluated next is a whole state, and not what has happened since one.
  void wholeIs(bool isWhole) { isWhole_ = isWhole; }

  // Does a piece of what is marked. Returns false when all has been said.
  bool advance();

  // What has been said last of each host and list, and not been withdrawn; in any order.
  void eachHost(const HostVisitor& visit) const;
  void eachList(const ListVisitor& visit) const;

  // Slots of hosts, free ones included.
  std::size_t slots() const { return hosts_.size(); }

  void changed(Slot slot, const LogicalSwitch& before, const LogicalSwitch& now) override;
  void changed(Slot slot, const PhysicalPort& before, const PhysicalPort& now) override;
  void changed(Slot slot, const PhysicalSwitch& before, const PhysicalSwitch& now) override;
  void changed(Slot slot, const PhysicalLocator& before, const PhysicalLocator& now) override;
  void changed(Slot slot, const PhysicalLocatorSet& before, const PhysicalLocatorSet& now) override;
  void changed(Slot slot, const UcastMac& before, const UcastMac& now) override;
  void changed(Slot slot, const McastMac& before, const McastMac& now) override;

 private:
  // All rows of one MAC of a logical switch. Those of hosts are chained by UcastLinks.
  struct Host {
    Slot logicalSwitch = noSlot;
    Vorn::EthAddr mac;
    bool isMarked = false;
    Vorn::IpAddr said;  // 0.0.0.0: nothing
    std::uint32_t saidVni = 0;
    Slot firstRow = noSlot;
    Slot previous = noSlot;  // of the same switch
    Slot next = noSlot;
  };
  struct HostKey {
    Slot logicalSwitch;
    Vorn::EthAddr mac;
    std::size_t hash() const noexcept { return mixed(logicalSwitch, mac.value()); }
    bool operator==(const HostKey&) const = default;
  };
  struct UcastLinks {
    Slot host = noSlot;
    Slot nextOfHost = noSlot;
    Slot previousOfLocator = noSlot;
    Slot nextOfLocator = noSlot;
  };
  struct LocatorUse {
    Slot firstRow = noSlot;
    std::uint64_t changedIn = 0;  // the evaluation that its address is new to
  };
  struct List {
    std::vector<Slot> rows;
    bool isMarked = false;
    FloodList said;  // no VTEPs: nothing
    std::uint32_t saidVni = 0;
  };
  // What a logical switch is to us.
  struct Segment {
    std::vector<std::uint16_t> tags;  // of its bindings, 0 for untagged; empty: not bound
    std::uint16_t assigned = 0;       // the VLAN that it was given for want of a tag of its own
    std::uint32_t vni = 0;            // under which its hosts and lists are said; 0: they are not
    std::uint32_t chosen = 0;         // what `vni` is to become
    std::uint32_t attached = 0;       // the VNI of its ports; 0: none
    bool isRefused = false;           // there is a problem with its VNI
    Slot firstHost = noSlot;
    std::map<Vorn::EthAddr, List> lists;
  };
  // A switch that has another VNI than it had; 0: it had none.
  struct Turn {
    std::uint32_t from;
    Slot logicalSwitch;
  };
  struct Choice {
    Slot logicalSwitch;
    std::uint32_t vni;
    std::uint16_t vlan;
  };

  // The steps of an evaluation. Each does a piece, and returns whether it may have another.
  bool followLocators();
  bool followSets();
  bool collectBindings();
  bool mapSwitches();
  bool turnContents();
  bool orderLists();
  bool orderHosts();
  bool withdrawLists();
  bool sayLists();
  bool withdrawHosts();
  bool sayHosts();
  bool withdrawVnis();
  bool sayAttachments();

  void findOwnAddresses();
  std::span<const Slot> ownPorts() const;
  void bindPort(Slot port);
  void countTags();
  std::vector<Choice> chooseByVni();
  std::vector<Choice> withVlans(const std::vector<Choice>& choices);
  std::uint16_t ownTag(const Segment& segment) const;
  void refuse(Slot logicalSwitch, const std::string& why);
  void accept(Slot logicalSwitch);
  void turnTo(const std::vector<Choice>& choices);
  void chooseAttachments();
  void turn(Slot logicalSwitch);

  void markHost(Slot host);
  void markList(Slot logicalSwitch, const Vorn::EthAddr& mac, List& list);
  void markLists(Slot logicalSwitch);
  void markListOf(const McastMac& row);
  Slot hostOf(const HostKey& key);
  void forgetHost(Slot host);
  void joinHost(Slot row, const UcastMac& now);
  void leaveHost(Slot row);
  void joinLocator(Slot row, Slot locator);
  void leaveLocator(Slot row, Slot locator);

  Vorn::IpAddr wantedVtep(const Host& host);
  FloodList wantedList(Slot logicalSwitch, const List& list) const;
  Cause causeOf(Slot logicalSwitch, bool isWanted);

  const std::string switchName_;
  Rows& rows_;
  Announcements& announcements_;
  const Sink sink_;
  Problems& problems_;
  PortAttachments attachments_;

  bool isWhole_ = true;
  Slot ownSwitch_ = noSlot;
  std::vector<Vorn::IpAddr> ownAddresses_;  // the first is that of our VTEP; empty: none yet

  BySlot<Segment> segments_;  // by logical switch
  BySlot<UcastLinks> ucastLinks_;
  BySlot<LocatorUse> locators_;
  BySlot<std::uint64_t> setChangedIn_;  // as LocatorUse::changedIn
  SlotPool<Host> hosts_;
  SlotIndex<HostKey> hostIndex_;

  std::vector<Slot> bound_;              // logical switches with tags; their slots are kept
  std::vector<Slot> wasBound_;           // the same, before the bindings changed
  std::vector<std::uint32_t> tagUsers_;  // by tag: how many of them have it
  std::map<std::uint32_t, std::uint16_t> saidVnis_;  // and their VLANs

  // What is marked.
  bool bindingsChanged_ = true;
  bool switchesChanged_ = true;
  bool setsChanged_ = false;
  std::vector<Slot> changedLocators_;
  std::vector<Slot> markedHosts_;
  std::vector<std::pair<Slot, Vorn::EthAddr>> markedLists_;

  // Where the evaluation is.
  std::uint64_t evaluation_ = 1;
  std::size_t step_ = 0;
  Slot cursor_ = noSlot;
  std::size_t position_ = 0;
  std::vector<Turn> turns_;
  std::map<std::uint32_t, Cause> lostVnis_;
  Agenda lostLists_;
  Agenda lists_;
  Agenda lostHosts_;
  Agenda listedHosts_;
};

}  // namespace Agent::Ovsdb
