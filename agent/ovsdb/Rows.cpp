#include "agent/ovsdb/Rows.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "agent/base/SortOnce.h"
#include "agent/base/Text.h"
#include "model/Bridging/VlanId.h"
#include "model/Vorn/IpGenAddr.h"

namespace Agent::Ovsdb {

namespace {

// What is wrong with a column, and what was expected; nothing if it is good.
struct Fault {
  std::string value;
  const char* expected;
};
using Verdict = std::optional<Fault>;

Verdict faultOf(Json value, const char* expected) {
  return Fault{beginningOf(simdjson::minify(value)), expected};
}

Verdict faultOf(std::string_view text, const char* expected) {
  return Fault{beginningOf(text), expected};
}

std::optional<std::string_view> textOf(Json value) {
  std::string_view text;
  if (value.get(text) != simdjson::SUCCESS) return std::nullopt;
  return text;
}

// The value behind a tag: ["set", VALUE] and the like.
std::optional<Json> tagged(Json value, std::string_view tag) {
  simdjson::dom::array array;
  if (value.get(array) != simdjson::SUCCESS || array.size() != 2) return std::nullopt;
  const auto first = array.begin();
  if (textOf(*first) != tag) return std::nullopt;
  auto second = first;
  return *++second;
}

std::optional<simdjson::dom::array> listOf(std::optional<Json> value) {
  simdjson::dom::array array;
  if (!value || value->get(array) != simdjson::SUCCESS) return std::nullopt;
  return array;
}

std::optional<Uuid> uuidOf(Json value) {
  const auto text = tagged(value, "uuid");
  if (!text || !textOf(*text)) return std::nullopt;
  return Uuid::parse(*textOf(*text));
}

// Whether it is a set, of which `take` takes each member.
template <class Take>
bool eachMember(Json value, Take take) {
  const auto set = tagged(value, "set");
  if (!set) return take(value);
  const auto members = listOf(set);
  if (!members) return false;
  return std::all_of(members->begin(), members->end(), take);
}

// The same of a map, and keys and values.
template <class Take>
bool eachPair(Json value, Take take) {
  const auto pairs = listOf(tagged(value, "map"));
  if (!pairs) return false;
  for (const Json pair : *pairs) {
    const auto both = listOf(pair);
    if (!both || both->size() != 2) return false;
    auto at = both->begin();
    const Json key = *at;
    if (!take(key, *++at)) return false;
  }
  return true;
}

// A column of at most one value: nothing for an empty set. Returns false for several.
bool readOptional(Json value, std::optional<Json>& only) {
  std::size_t members = 0;
  const bool isSet = eachMember(value, [&](Json member) {
    only = member;
    return ++members == 1;
  });
  return isSet;
}

// The known members with the told ones: a difference has those that come and those that go.
template <class Member>
Verdict setIs(Members<Member>& known, Members<Member> told, bool isDifference, Json value,
              const char* expected) {
  if (!told || (isDifference && !known)) {
    known.reset();
    return faultOf(value, expected);
  }
  sortOnce(*told);
  if (!isDifference) {
    known = std::move(told);
    return std::nullopt;
  }
  std::vector<Member> both;
  std::ranges::set_symmetric_difference(*known, *told, std::back_inserter(both));
  known = std::move(both);
  return std::nullopt;
}

// The same of a map, where a difference has the new value of a key that stays.
using Bindings = std::vector<std::pair<std::int64_t, Slot>>;
void applyDifference(Bindings& known, const Bindings& told) {
  for (const auto& binding : told) {
    const auto at =
        std::ranges::lower_bound(known, binding.first, {}, &Bindings::value_type::first);
    if (at == known.end() || at->first != binding.first)
      known.insert(at, binding);
    else if (at->second == binding.second)
      known.erase(at);
    else
      at->second = binding.second;
  }
}

template <class Row>
Members<Slot> slotsOf(RowTable<Row>& table, Json value) {
  Members<Slot> slots{std::in_place};
  const bool isSet = eachMember(value, [&](Json member) {
    const auto uuid = uuidOf(member);
    if (uuid) slots->push_back(table.slotOf(*uuid));
    return uuid.has_value();
  });
  if (!isSet) slots.reset();
  return slots;
}

template <class Row>
Verdict readSlot(Slot& slot, RowTable<Row>& table, Json value) {
  const auto uuid = uuidOf(value);
  slot = uuid ? table.slotOf(*uuid) : noSlot;
  if (!uuid) return faultOf(value, "a uuid");
  return std::nullopt;
}

Verdict readName(std::string& name, Json value) {
  const auto text = textOf(value);
  name = text.value_or("");
  if (!text) return faultOf(value, "a text");
  return std::nullopt;
}

std::optional<Vorn::EthAddr> macOf(std::string_view text) {
  constexpr std::size_t length = 17;  // two digits a byte
  if (text.size() != length) return std::nullopt;
  return Vorn::EthAddr::parse(text);
}

constexpr std::uint64_t broadcast = 0xffffffffffff;
constexpr std::uint64_t groupBit = 0x010000000000;

Verdict readMac(Vorn::EthAddr& mac, Json value, std::string_view nameOfAll, bool groups,
                const char* expected) {
  mac = {};
  const auto text = textOf(value);
  if (!text) return faultOf(value, expected);
  if (!nameOfAll.empty() && *text == nameOfAll) {
    mac = Vorn::EthAddr::fromValue(broadcast);
    return std::nullopt;
  }
  const auto read = macOf(*text);
  if (!read || read->value() == 0 || (!groups && (read->value() & groupBit) != 0))
    return faultOf(*text, expected);
  mac = *read;
  return std::nullopt;
}

Verdict readTunnelKey(std::uint32_t& vni, Json value) {
  constexpr std::int64_t largest = 0xffffff;
  constexpr const char* expected = "a VNI from 1 to 16777215, or none";
  vni = 0;
  std::optional<Json> only;
  if (!readOptional(value, only)) return faultOf(value, expected);
  if (!only) return std::nullopt;
  std::int64_t key = 0;
  if (only->get(key) != simdjson::SUCCESS || key < 0 || key > largest)
    return faultOf(*only, expected);
  vni = static_cast<std::uint32_t>(key);
  return std::nullopt;
}

Verdict readReplicationMode(bool& sendsToAll, Json value) {
  constexpr const char* expected = "source_node, service_node or none";
  sendsToAll = false;
  std::optional<Json> only;
  if (!readOptional(value, only)) return faultOf(value, expected);
  if (!only) return std::nullopt;
  const auto text = textOf(*only);
  sendsToAll = text == "source_node";
  if (!sendsToAll && text != "service_node") return faultOf(*only, expected);
  return std::nullopt;
}

Verdict readDstIp(Vorn::IpAddr& address, Json value) {
  constexpr const char* expected = "the IPv4 address of a host";
  address = {};
  const auto text = textOf(value);
  if (!text) return faultOf(value, expected);
  const auto read = Vorn::IpAddr::parse(*text);
  if (!read && Vorn::IpGenAddr::parse(*text))
    return faultOf(*text, "the IPv4 address of a host: IPv6 VTEPs are not programmed yet");
  if (!read || !isVtepAddress(*read)) return faultOf(*text, expected);
  address = *read;
  return std::nullopt;
}

constexpr std::int64_t lastVlan = Bridging::VlanId::max;

Verdict readVlanBindings(PhysicalPort& port, RowTable<LogicalSwitch>& switches, Json value,
                         bool isDifference) {
  Bindings told;
  const bool isMap = eachPair(value, [&](Json tag, Json name) {
    std::int64_t vlan = 0;
    const auto uuid = uuidOf(name);
    if (tag.get(vlan) != simdjson::SUCCESS || !uuid) return false;
    told.emplace_back(vlan, switches.slotOf(*uuid));
    return true;
  });
  auto& known = port.vlanBindings;
  if (!isMap || (isDifference && !known)) {
    known.reset();
    return faultOf(value, "a map from VLANs to uuids");
  }
  if (!isDifference) known.emplace();
  applyDifference(*known, told);
  const auto isVlan = [](const auto& binding) {
    return binding.first >= 0 && binding.first <= lastVlan;
  };
  const auto wrong = std::ranges::find_if_not(*known, isVlan);
  if (wrong == known->end()) return std::nullopt;
  return faultOf(std::to_string(wrong->first), "VLANs from 0 to 4094");
}

Verdict readTunnelIps(PhysicalSwitch& row, Json value, bool isDifference) {
  Members<std::string> told{std::in_place};
  const bool isSet = eachMember(value, [&](Json member) {
    const auto text = textOf(member);
    if (text) told->emplace_back(*text);
    return text.has_value();
  });
  if (!isSet) told.reset();
  return setIs(row.tunnelIps, std::move(told), isDifference, value, "a set of texts");
}

// A column of a row, by its name in the schema.
struct Column {
  std::string_view name;
  Json value;
  bool isDifference;

  bool is(const ColumnSchema& column) const { return name == column.name; }
};

Verdict readColumn(Rows&, LogicalSwitch& row, const Column& column) {
  if (column.is(Columns::name)) return readName(row.name, column.value);
  if (column.is(Columns::tunnelKey)) return readTunnelKey(row.vni, column.value);
  return readReplicationMode(row.sendsToAll, column.value);
}

Verdict readColumn(Rows& rows, PhysicalPort& row, const Column& column) {
  if (column.is(Columns::name)) return readName(row.name, column.value);
  return readVlanBindings(row, rows.logicalSwitches, column.value, column.isDifference);
}

Verdict readColumn(Rows& rows, PhysicalSwitch& row, const Column& column) {
  if (column.is(Columns::name)) return readName(row.name, column.value);
  if (column.is(Columns::tunnelIps)) return readTunnelIps(row, column.value, column.isDifference);
  return setIs(row.ports, slotsOf(rows.physicalPorts, column.value), column.isDifference,
               column.value, "a set of uuids");
}

Verdict readColumn(Rows&, PhysicalLocator& row, const Column& column) {
  if (column.is(Columns::dstIp)) return readDstIp(row.dstIp, column.value);
  row.isVxlan = textOf(column.value) == "vxlan_over_ipv4";
  if (!row.isVxlan) return faultOf(column.value, "vxlan_over_ipv4");
  return std::nullopt;
}

Verdict readColumn(Rows& rows, PhysicalLocatorSet& row, const Column& column) {
  return setIs(row.locators, slotsOf(rows.physicalLocators, column.value), column.isDifference,
               column.value, "a set of uuids");
}

Verdict readColumn(Rows& rows, UcastMac& row, const Column& column) {
  if (column.is(Columns::mac))
    return readMac(row.mac, column.value, "", false,
                   "the MAC address of a host: six pairs of hexadecimal digits with colons");
  if (column.is(Columns::locator))
    return readSlot(row.locator, rows.physicalLocators, column.value);
  return readSlot(row.logicalSwitch, rows.logicalSwitches, column.value);
}

Verdict readColumn(Rows& rows, McastMac& row, const Column& column) {
  if (column.is(Columns::mac))
    return readMac(row.mac, column.value, "unknown-dst", true,
                   "unknown-dst or a MAC address: six pairs of hexadecimal digits with colons");
  if (column.is(Columns::locatorSet))
    return readSlot(row.locatorSet, rows.physicalLocatorSets, column.value);
  return readSlot(row.logicalSwitch, rows.logicalSwitches, column.value);
}

// What no row is without. The server leaves a column out that has its type's default, which is no
// value of these.
bool isRequired(const ColumnSchema& column) {
  constexpr std::array required = {Columns::mac.name,        Columns::locator.name,
                                   Columns::locatorSet.name, Columns::logicalSwitch.name,
                                   Columns::dstIp.name,      Columns::encapsulationType.name};
  return std::ranges::find(required, column.name) != required.end();
}

// Calls act(table, slot) for each row that a row refers to.
template <class Act>
void eachReference(Rows&, const LogicalSwitch&, Act) {}
template <class Act>
void eachReference(Rows& rows, const PhysicalPort& row, Act act) {
  if (!row.vlanBindings) return;
  for (const auto& binding : *row.vlanBindings) act(rows.logicalSwitches, binding.second);
}
template <class Act>
void eachReference(Rows& rows, const PhysicalSwitch& row, Act act) {
  if (!row.ports) return;
  for (const Slot port : *row.ports) act(rows.physicalPorts, port);
}
template <class Act>
void eachReference(Rows&, const PhysicalLocator&, Act) {}
template <class Act>
void eachReference(Rows& rows, const PhysicalLocatorSet& row, Act act) {
  if (!row.locators) return;
  for (const Slot locator : *row.locators) act(rows.physicalLocators, locator);
}
template <class Act>
void eachReference(Rows& rows, const UcastMac& row, Act act) {
  if (row.locator != noSlot) act(rows.physicalLocators, row.locator);
  if (row.logicalSwitch != noSlot) act(rows.logicalSwitches, row.logicalSwitch);
}
template <class Act>
void eachReference(Rows& rows, const McastMac& row, Act act) {
  if (row.locatorSet != noSlot) act(rows.physicalLocatorSets, row.locatorSet);
  if (row.logicalSwitch != noSlot) act(rows.logicalSwitches, row.logicalSwitch);
}

std::string placeOf(Table table, std::string_view uuid) {
  return std::string(schemaOf(table).name) + ' ' + std::string(uuid);
}

std::string placeOf(Table table, const Uuid& uuid, std::size_t column) {
  return placeOf(table, uuid.stringValue()) + ": " +
         std::string(schemaOf(table).columns[column].name);
}

// What happened to a row.
struct Event {
  enum class Kind { none, gone, whole, difference };
  Kind kind = Kind::none;
  simdjson::dom::object columns;
};

Event eventOf(std::string_view key, Json value) {
  if (key == "delete") return {Event::Kind::gone, {}};
  const bool isDifference = key == "modify";
  if (!isDifference && key != "initial" && key != "insert") return {};
  Event event{isDifference ? Event::Kind::difference : Event::Kind::whole, {}};
  if (value.get(event.columns) != simdjson::SUCCESS) return {};
  return event;
}

Event eventOf(Json update, Updates::Form form) {
  simdjson::dom::object keys;
  if (update.get(keys) != simdjson::SUCCESS) return {};
  Event event;
  if (form == Updates::Form::rowDifferences) {
    for (const auto& [key, value] : keys)
      if (event.kind == Event::Kind::none) event = eventOf(key, value);
    return event;
  }
  Json now;
  if (keys.at_key("new").get(now) == simdjson::SUCCESS) {
    if (now.get(event.columns) == simdjson::SUCCESS) event.kind = Event::Kind::whole;
  } else if (keys.at_key("old").error() == simdjson::SUCCESS) {
    event.kind = Event::Kind::gone;
  }
  return event;
}

}  // namespace

bool isVtepAddress(const Vorn::IpAddr& address) {
  constexpr std::uint32_t multicast = 0xe;
  constexpr std::uint32_t everyone = 0xffffffff;
  return address.value() != 0 && address.value() != everyone && address.value() >> 28 != multicast;
}

template <class Act>
auto Rows::withTable(Table table, Act act) {
  switch (table) {
    case Table::logicalSwitch:
      return act(logicalSwitches);
    case Table::physicalPort:
      return act(physicalPorts);
    case Table::physicalSwitch:
      return act(physicalSwitches);
    case Table::physicalLocator:
      return act(physicalLocators);
    case Table::physicalLocatorSet:
      return act(physicalLocatorSets);
    case Table::ucastMacsRemote:
      return act(ucastMacs);
    case Table::mcastMacsRemote:
      break;
  }
  return act(mcastMacs);
}

void Rows::beginWhole() {
  ++generation_;
  sweptTable_ = 0;
  swept_ = 0;
  for (const std::string& place : misshapen_) problems_.cure(place);
  misshapen_.clear();
}

bool Rows::take(Table table, std::string_view uuid, Json update, Updates::Form form) {
  const auto name = Uuid::parse(uuid);
  if (!name) {
    raiseMisshapen(placeOf(table, beginningOf(uuid)), uuid, "a uuid");
    return true;
  }
  return withTable(table, [&](auto& rows) { return takeRow(table, rows, *name, update, form); });
}

template <class Row>
bool Rows::takeRow(Table name, RowTable<Row>& table, const Uuid& uuid, Json update,
                   Updates::Form form) {
  const Event event = eventOf(update, form);
  if (event.kind == Event::Kind::none) {
    raiseMisshapen(placeOf(name, uuid.stringValue()), simdjson::minify(update),
                   "what happened to a row");
    return true;
  }
  if (event.kind == Event::Kind::whole) {
    read(name, table, table.slotOf(uuid), event.columns, false);
    return true;
  }
  const Slot slot = table.find(uuid);
  if (slot == noSlot || !table[slot].isPresent) return false;
  if (event.kind == Event::Kind::gone)
    remove(name, table, slot);
  else
    read(name, table, slot, event.columns, true);
  return true;
}

template <class Row>
void Rows::read(Table name, RowTable<Row>& table, Slot slot, simdjson::dom::object columns,
                bool isDifference) {
  auto& entry = table[slot];
  entry.isPresent = true;
  entry.generation = generation_;
  Row row = isDifference ? entry.row : Row();
  const auto schema = schemaOf(name).columns;
  unsigned told = 0;  // these are bits, by columns
  unsigned faults = 0;
  const auto raise = [&](std::size_t column, const Fault& fault) {
    faults |= 1U << column;
    problems_.raise(placeOf(name, entry.uuid, column), fault.value, fault.expected);
  };
  for (const auto& [key, value] : columns) {
    const auto known = std::ranges::find(schema, key, &ColumnSchema::name);
    if (known == schema.end()) continue;
    const auto column = static_cast<std::size_t>(known - schema.begin());
    told |= 1U << column;
    if (const auto fault = readColumn(*this, row, Column{key, value, isDifference}))
      raise(column, *fault);
  }
  if (isDifference) faults |= entry.faults & ~told;
  for (std::size_t column = 0; !isDifference && column < schema.size(); ++column)
    if (isRequired(schema[column]) && (told >> column & 1) == 0) raise(column, {"", "a value"});
  faultsAre(name, entry.uuid, entry.faults, static_cast<std::uint8_t>(faults));
  store(table, slot, std::move(row));
}

template <class Row>
void Rows::store(RowTable<Row>& table, Slot slot, Row row) {
  auto& entry = table[slot];
  if (entry.row == row) return;
  const Row before = std::exchange(entry.row, std::move(row));
  eachReference(*this, entry.row, [](auto& other, Slot referred) { other.refer(referred); });
  eachReference(*this, before, [](auto& other, Slot referred) { other.unrefer(referred); });
  watcher_->changed(slot, before, entry.row);
}

template <class Row>
void Rows::remove(Table name, RowTable<Row>& table, Slot slot) {
  faultsAre(name, table[slot].uuid, table[slot].faults, 0);
  store(table, slot, Row());
  table.leave(slot);
}

// Problems of this time have been raised.
void Rows::faultsAre(Table table, const Uuid& uuid, std::uint8_t& faults, std::uint8_t now) {
  const unsigned cured = faults & ~static_cast<unsigned>(now);
  for (std::size_t column = 0; cured >> column != 0; ++column)
    if ((cured >> column & 1) != 0) problems_.cure(placeOf(table, uuid, column));
  faults = now;
}

void Rows::raiseMisshapen(const std::string& place, std::string_view value, const char* why) {
  misshapen_.insert(place);
  problems_.raise(place, beginningOf(value), why);
}

bool Rows::sweep() {
  if (sweptTable_ == monitoredTables.size()) return false;
  const auto name = static_cast<Table>(sweptTable_);
  withTable(name, [&](auto& table) {
    if (swept_ == table.size()) {
      ++sweptTable_;
      swept_ = 0;
      return;
    }
    if (table[swept_].isPresent && table[swept_].generation != generation_)
      remove(name, table, swept_);
    ++swept_;
  });
  return true;
}

bool Rows::collect() {
  return ucastMacs.collect() || mcastMacs.collect() || physicalLocatorSets.collect() ||
         physicalLocators.collect() || physicalSwitches.collect() || physicalPorts.collect() ||
         logicalSwitches.collect();
}

std::size_t Rows::slots() const {
  return std::size_t{0} + logicalSwitches.size() + physicalPorts.size() + physicalSwitches.size() +
         physicalLocators.size() + physicalLocatorSets.size() + ucastMacs.size() + mcastMacs.size();
}

}  // namespace Agent::Ovsdb
