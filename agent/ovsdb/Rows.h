// What the database holds of the monitored tables, as far as it means something: rows of values
// that have been checked, by their uuids. A value that is bad is a problem of its row and column,
// and the row is as if it lacked the value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <simdjson.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/base/Problems.h"
#include "agent/ovsdb/RowTable.h"
#include "agent/ovsdb/Schema.h"
#include "agent/ovsdb/SessionListener.h"
#include "model/Bridging/VlanId.h"
#include "model/Vorn/EthAddr.h"
#include "model/Vorn/IpAddr.h"

namespace Agent::Ovsdb {

using Json = simdjson::dom::element;

// A set or map column, ascending; nothing while it is not known, because what came was no such
// column: differences mean nothing until it comes whole again.
template <class Member>
using Members = std::optional<std::vector<Member>>;

// A row that has nothing is equal to one that is not there.
struct LogicalSwitch {
  std::string name;
  std::uint32_t vni = 0;  // 1 to 16777215; 0: none
  bool sendsToAll = false;

  bool operator==(const LogicalSwitch&) const = default;
};

struct PhysicalPort {
  std::string name;
  // By their tags, those that are no VLANs included.
  Members<std::pair<std::int64_t, Slot>> vlanBindings{std::in_place};

  bool operator==(const PhysicalPort&) const = default;
};

// Calls act(tag, logicalSwitch) for each binding of a tag that is a VLAN, or 0; ascending.
template <class Act>
void eachBinding(const PhysicalPort& port, Act act) {
  if (!port.vlanBindings) return;
  for (const auto& [tag, logicalSwitch] : *port.vlanBindings)
    if (tag >= 0 && tag <= Bridging::VlanId::max)
      act(static_cast<std::uint16_t>(tag), logicalSwitch);
}

struct PhysicalSwitch {
  std::string name;
  Members<std::string> tunnelIps{std::in_place};
  Members<Slot> ports{std::in_place};

  bool operator==(const PhysicalSwitch&) const = default;
};

struct PhysicalLocator {
  Vorn::IpAddr dstIp;  // 0.0.0.0: none
  bool isVxlan = false;

  Vorn::IpAddr vtep() const { return isVxlan ? dstIp : Vorn::IpAddr(); }
  bool operator==(const PhysicalLocator&) const = default;
};

struct PhysicalLocatorSet {
  Members<Slot> locators{std::in_place};

  bool operator==(const PhysicalLocatorSet&) const = default;
};

struct UcastMac {
  Vorn::EthAddr mac;  // all zero: none
  Slot locator = noSlot;
  Slot logicalSwitch = noSlot;

  bool isOfSwitch() const { return mac.value() != 0 && logicalSwitch != noSlot; }
  bool operator==(const UcastMac&) const = default;
};

struct McastMac {
  Vorn::EthAddr mac;
  Slot locatorSet = noSlot;
  Slot logicalSwitch = noSlot;

  bool isOfSwitch() const { return mac.value() != 0 && logicalSwitch != noSlot; }
  bool operator==(const McastMac&) const = default;
};

// An address that frames can be sent to: neither 0.0.0.0 nor multicast nor broadcast.
bool isVtepAddress(const Vorn::IpAddr& address);

class Rows {
 public:
  // Told of each row that comes, changes and goes, one after the other. `slot` is the row's; a row
  // that is not there is an empty one. The other rows of a message may not have come yet.
  class Watcher {
   public:
    virtual ~Watcher() = default;
    virtual void changed(Slot slot, const LogicalSwitch& before, const LogicalSwitch& now) = 0;
    virtual void changed(Slot slot, const PhysicalPort& before, const PhysicalPort& now) = 0;
    virtual void changed(Slot slot, const PhysicalSwitch& before, const PhysicalSwitch& now) = 0;
    virtual void changed(Slot slot, const PhysicalLocator& before, const PhysicalLocator& now) = 0;
    virtual void changed(Slot slot, const PhysicalLocatorSet& before,
                         const PhysicalLocatorSet& now) = 0;
    virtual void changed(Slot slot, const UcastMac& before, const UcastMac& now) = 0;
    virtual void changed(Slot slot, const McastMac& before, const McastMac& now) = 0;
  };

  explicit Rows(Problems& problems) : problems_(problems) {}
  void watcherIs(Watcher& watcher) { watcher_ = &watcher; }

  // All rows that are taken from here on belong to a new whole state, until the others are swept.
  void beginWhole();

  // What a message says of one row. Returns false, and does nothing, for a difference from a row
  // that is not there.
  bool take(Table table, std::string_view uuid, Json update, Updates::Form form);

  // A problem of what is no row at all. It is cured when the next whole state begins.
  void raiseMisshapen(const std::string& place, std::string_view value, const char* why);

  // Removes rows that the whole state lacks, and frees slots that nobody needs: one slot each time.
  // They return false when none is left.
  bool sweep();
  bool collect();

  // Slots of all tables, free ones included: what the memory goes by.
  std::size_t slots() const;

  // Read only, but for Rows itself.
  RowTable<LogicalSwitch> logicalSwitches;
  RowTable<PhysicalPort> physicalPorts;
  RowTable<PhysicalSwitch> physicalSwitches;
  RowTable<PhysicalLocator> physicalLocators;
  RowTable<PhysicalLocatorSet> physicalLocatorSets;
  RowTable<UcastMac> ucastMacs;
  RowTable<McastMac> mcastMacs;

 private:
  template <class Act>
  auto withTable(Table table, Act act);
  template <class Row>
  bool takeRow(Table name, RowTable<Row>& table, const Uuid& uuid, Json update, Updates::Form form);
  template <class Row>
  void read(Table name, RowTable<Row>& table, Slot slot, simdjson::dom::object columns,
            bool isDifference);
  template <class Row>
  void store(RowTable<Row>& table, Slot slot, Row row);
  template <class Row>
  void remove(Table name, RowTable<Row>& table, Slot slot);
  void faultsAre(Table table, const Uuid& uuid, std::uint8_t& faults, std::uint8_t now);

  Problems& problems_;
  Watcher* watcher_ = nullptr;
  std::uint8_t generation_ = 0;
  std::uint8_t sweptTable_ = 0;
  Slot swept_ = 0;
  std::set<std::string> misshapen_;  // places of problems with what is no row at all
};

}  // namespace Agent::Ovsdb
