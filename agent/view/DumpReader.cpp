#include "agent/view/DumpReader.h"

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "agent/journal/JsonFault.h"
#include "framework/Moru/Exception.h"

namespace Agent {

namespace {

// Says of what is wrong within `place` that it is there.
template <class Read>
auto within(const std::string& place, Read read) {
  try {
    return read();
  } catch (const InputError& error) {
    throw InputError(place + ": " + error.what());
  }
}

Json valueOf(const Field& field) {
  if (!field.value)
    throw InputError(std::string(field.name) + " is missing: expected as in a dump");
  return *field.value;
}

template <class T>
T read(const Field& field, T (*convert)(Json, std::string_view)) {
  return convert(valueOf(field), field.name);
}

std::string textOf(Json value, std::string_view what) { return std::string(toText(value, what)); }

Vorn::EthAddr toMac(Json value, std::string_view what) { return macOf(toText(value, what), what); }

Vorn::IntfId toIntf(Json value, std::string_view what) { return Vorn::IntfId(toText(value, what)); }

Vorn::IpGenAddr toAddress(Json value, std::string_view what) {
  const std::string_view text = toText(value, what);
  const auto address = Vorn::IpGenAddr::parse(text);
  if (!address) refuse(what, text, "an IP address");
  return *address;
}

// A dump is of values that the data model has taken: another is as wrong as a text would be.
template <class T>
T inRange(Json value, std::string_view what, T (*convert)(Json, std::string_view),
          std::string_view expected) {
  try {
    return convert(value, what);
  } catch (const Moru::RangeException&) {
    refuse(what, value, expected);
  }
}

Bridging::VlanId vlanIn(Json value, std::string_view what) {
  return inRange(value, what, toVlan, "a VLAN, 1 to 4094");
}

Vxlan::VniExt vniIn(Json value, std::string_view what) {
  return inRange(value, what, toVni, "a VNI, 0 to 4294967294");
}

// A part that has parts of its own.
template <class ReadValue>
auto readPart(const Field& field, ReadValue readValue) {
  const Json value = valueOf(field);
  return within(std::string(field.name), [&] { return readValue(value); });
}

// Null is nothing.
template <class ReadValue>
auto readUnlessNull(const Field& field, ReadValue readValue)
    -> std::optional<decltype(readValue(Json()))> {
  if (valueOf(field).is_null()) return std::nullopt;
  return readPart(field, readValue);
}

template <class ReadElement>
auto readList(const Field& field, ReadElement readElement) {
  std::vector<decltype(readElement(Json()))> list;
  for (const Json element : toArray(valueOf(field), field.name, "an array"))
    list.push_back(within(std::string(field.name) + '[' + std::to_string(list.size()) + ']',
                          [&] { return readElement(element); }));
  return list;
}

Vxlan::ReceivedEntry entryOf(Json json) {
  const auto [mac, vlan, vti, source, vtep, moveCount, time, hostKind, marked] =
      fieldsOf(json, "the entry", "mac", "vlan", "vti", "source", "vtep", "moveCount", "time",
               "hostKind", "markedForDel");
  Vxlan::ReceivedEntry entry;
  entry.key = {read(mac, toMac), read(vlan, vlanIn)};
  entry.vtiIntfId = read(vti, toIntf);
  entry.source = read(source, toNumber);
  entry.vtepAddr = read(vtep, toAddress);
  entry.moveCount = read(moveCount, toNumber);
  entry.time = read(time, toReal);
  entry.hostKind = read(hostKind, toByte);
  entry.markedForDel = read(marked, toBool);
  return entry;
}

L2Rib::Host hostOf(Json json) {
  const auto [mac, vlan, vti, source, vtep, moveCount, time, kind, entryType] =
      fieldsOf(json, "the host", "mac", "vlan", "vti", "source", "vtep", "moveCount", "time",
               "kind", "entryType");
  L2Rib::Host host;
  host.key = {read(mac, toMac), read(vlan, vlanIn)};
  host.source = read(source, toNumber);
  host.moveCount = read(moveCount, toNumber);
  host.time = read(time, toReal);
  host.kind = read(kind, toNumber);
  host.entryType = read(entryType, toNumber);
  host.dest = L2Rib::CiDest(L2Rib::DestType::vtep);
  host.dest.intfIdIs(read(vti, toIntf));
  host.dest.vtepAddrIs(0, read(vtep, toAddress));
  return host;
}

VlanFloodSetSnapshot floodSetOf(Json json) {
  const auto [vlan, mac, type, dests] =
      fieldsOf(json, "the flood set", "vlan", "mac", "type", "dests");
  VlanFloodSetSnapshot each{read(vlan, vlanIn)};
  if (!mac.value && !type.value && !dests.value) return each;
  FloodSetSnapshot floodSet{read(mac, toMac), L2Rib::FloodSetType{read(type, toNumber)}};
  const auto toDest = [](Json dest) { return textOf(dest, "the destination"); };
  for (const std::string& dest : readList(dests, toDest)) {
    if (const auto vtep = Vorn::IpGenAddr::parse(dest))
      floodSet.vteps.push_back(*vtep);
    else
      floodSet.others.push_back(dest);
  }
  each.floodSet = std::move(floodSet);
  return each;
}

// The tables are compared in the order of their keys, whoever has written the dump.
template <class Record, class KeyOf>
std::vector<Record> inOrder(std::vector<Record> records, KeyOf keyOf) {
  std::ranges::sort(records, {}, keyOf);
  return records;
}

template <class Record>
auto keyOf(const Record& record) {
  return record.key;
}

HostTableSnapshot hostTableOf(Json json) {
  const auto [marked, entries] = fieldsOf(json, "the table", "markedForDelCount", "entries");
  return {read(marked, toNumber), inOrder(readList(entries, entryOf), keyOf<Vxlan::ReceivedEntry>)};
}

ClientSnapshot clientOf(Json json) {
  const auto [mode, learning, vlans, vnis, mlagBum, hostTable] =
      fieldsOf(json, "the client", "vxlanControllerClientMode", "datapathLearningMode",
               "vccImportVlans", "vnis", "mlagBum", "hostTable");
  ClientSnapshot client;
  client.vxlanControllerClientMode = read(mode, toBool);
  client.datapathLearningMode = read(learning, toBool);
  client.vccImportVlans =
      inOrder(readList(vlans, [](Json vlan) { return vlanIn(vlan, "the VLAN"); }), std::identity());
  client.vnis =
      inOrder(readList(vnis, [](Json vni) { return vniIn(vni, "the VNI"); }), std::identity());
  client.mlagBum = read(mlagBum, toBool);
  client.hostTable = readPart(hostTable, hostTableOf);
  return client;
}

void readRib(Json json, Snapshot& snapshot) {
  const auto [hosts, floodSets] = fieldsOf(json, "the RIB", "hosts", "floodSets");
  if (!valueOf(hosts).is_null())
    snapshot.hosts = inOrder(readList(hosts, hostOf), keyOf<L2Rib::Host>);
  if (!valueOf(floodSets).is_null())
    snapshot.floodSets = inOrder(readList(floodSets, floodSetOf),
                                 [](const VlanFloodSetSnapshot& each) { return each.key(); });
}

bool viewOf(Json json) {
  const auto [converging] = fieldsOf(json, "the view", "convergenceInProgress");
  return read(converging, toBool);
}

ConvergenceSnapshot statusOf(Json json) {
  const auto [unicast, bum] = fieldsOf(json, "the status", "unicastDeferredDeletionInProgress",
                                       "bumDeferredDeletionInProgress");
  return {read(unicast, toBool), read(bum, toBool)};
}

VlanToVni vlanToVniOf(Json json) {
  VlanToVni vnis;
  for (const auto& [vlan, vni] : toObject(json, "it", "an object from VLAN to VNI")) {
    const std::uint32_t number = numberOf(vlan, "a key");
    if (number < Bridging::VlanId::min || number > Bridging::VlanId::max)
      refuse("a key", vlan, "a VLAN, 1 to 4094");
    vnis.emplace(Bridging::VlanId(number), vniIn(vni, vlan));
  }
  return vnis;
}

Filter filterOf(Json json) {
  const auto [vlan, vni, vtep, mac] = fieldsOf(json, "the filter", "vlan", "vni", "vtep", "mac");
  return readFilter(vlan, vni, vtep, mac);
}

std::uint64_t toLineNumber(Json value, std::string_view what) {
  std::uint64_t number = 0;
  if (value.get(number) != simdjson::SUCCESS) refuse(what, value, "the number of a line");
  return number;
}

Snapshot snapshotOf(Json json) {
  const auto [source, journal, line, switchName, label, at, filter, vlanToVni, client, rib, view,
              status] =
      fieldsOf(json, "the dump", "source", "journal", "line", "switch", "dump", "at", "filter",
               "vlanToVni", "client", "l2rib", "clientView", "convergenceStatus");
  Snapshot snapshot{read(label, textOf), read(at, toReal)};
  snapshot.origin = {given(source, textOf).value_or(""), given(journal, textOf).value_or(""),
                     given(line, toLineNumber).value_or(0), given(switchName, textOf).value_or("")};
  if (filter.value) snapshot.filter = readPart(filter, filterOf);
  if (vlanToVni.value) snapshot.vlanToVni = readUnlessNull(vlanToVni, vlanToVniOf);
  snapshot.client = readUnlessNull(client, clientOf);
  readPart(rib, [&](Json json) { readRib(json, snapshot); });
  snapshot.convergenceInProgress = readUnlessNull(view, viewOf);
  snapshot.convergenceStatus = readUnlessNull(status, statusOf);
  return snapshot;
}

// What the parser has read is good for as long as the parser.
Json objectOf(simdjson::dom::parser& parser, std::string_view line) {
  Json json;
  if (parser.parse(line.data(), line.size()).get(json) != simdjson::SUCCESS || !json.is_object())
    throw InputError(jsonFault(line));
  return json;
}

bool has(Json json, std::string_view key) {
  return json.is_object() && json.at_key(key).error() == simdjson::SUCCESS;
}

template <class T>
std::set<T> oneOrMore(const Field& field, T (*convert)(Json, std::string_view)) {
  if (!field.value) return {};
  if (!field.value->is_array()) return {convert(*field.value, field.name)};
  std::set<T> values;
  for (const Json each : toArray(*field.value, field.name, "an array"))
    values.insert(convert(each, field.name));
  return values;
}

}  // namespace

Snapshot readDump(std::string_view line) {
  simdjson::dom::parser parser;
  return snapshotOf(objectOf(parser, line));
}

std::optional<Snapshot> readOutput(std::string_view line) {
  simdjson::dom::parser parser;
  const Json json = objectOf(parser, line);
  return has(json, "dump") ? std::optional(snapshotOf(json)) : std::nullopt;
}

bool isOutput(std::string_view line) {
  simdjson::dom::parser parser;
  Json json;
  if (parser.parse(line.data(), line.size()).get(json) != simdjson::SUCCESS) return false;
  return has(json, "journal") || has(json, "switch") || has(json, "l2rib");
}

Filter readFilter(const Field& vlan, const Field& vni, const Field& vtep, const Field& mac) {
  return {oneOrMore(vlan, vlanIn), oneOrMore(vni, vniIn), oneOrMore(vtep, toAddress),
          oneOrMore(mac, toMac)};
}

}  // namespace Agent
