#include "agent/view/JsonView.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "agent/base/JsonText.h"
#include "agent/view/FloodSetText.h"

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

Json jsonOf(const Bridging::VlanId& vlan) { return vlan.value(); }
Json jsonOf(const Vxlan::VniExt& vni) { return vni.value(); }

Json jsonOf(const Vxlan::ReceivedEntry& entry) {
  return {{"mac", entry.key.mac.stringValue()},
          {"vlan", entry.key.vlan.value()},
          {"vti", entry.vtiIntfId.stringValue()},
          {"source", entry.source},
          {"vtep", entry.vtepAddr.stringValue()},
          {"moveCount", entry.moveCount},
          {"time", entry.time},
          {"hostKind", entry.hostKind},
          {"markedForDel", entry.markedForDel}};
}

Json jsonOf(const L2Rib::Host& host) {
  return {{"mac", host.key.mac.stringValue()},
          {"vlan", host.key.vlan.value()},
          {"vti", host.dest.intfId().stringValue()},
          {"source", host.source},
          {"vtep", host.dest.vtepAddr(0).stringValue()},
          {"moveCount", host.moveCount},
          {"time", host.time},
          {"kind", host.kind},
          {"entryType", host.entryType}};
}

Json jsonOf(const VlanFloodSetSnapshot& each) {
  if (!each.floodSet) return Json::object({{"vlan", each.vlan.value()}});
  return {{"vlan", each.vlan.value()},
          {"mac", each.floodSet->mac.stringValue()},
          {"type", static_cast<std::uint32_t>(each.floodSet->type)},
          {"dests", destTexts(*each.floodSet)}};
}

template <class Record>
Json jsonOf(const Changed<Record>& change) {
  return {{"before", jsonOf(change.before)}, {"after", jsonOf(change.after)}};
}

Json jsonOf(const std::optional<bool>& flag) { return flag ? Json(*flag) : Json(nullptr); }

Json jsonOf(const Origin& origin) {
  Json json = Json::object();
  if (!origin.source.empty()) json["source"] = origin.source;
  if (!origin.journal.empty()) {
    json["journal"] = origin.journal;
    json["line"] = origin.line;
  }
  if (!origin.switchName.empty()) json["switch"] = origin.switchName;
  return json;
}

Json jsonOf(const DumpId& dump) {
  Json json = jsonOf(dump.origin);
  json["dump"] = dump.label;
  json["at"] = dump.at;
  return json;
}

template <class Value, class ToJson>
void addKind(Json& json, const char* kind, const std::set<Value>& values, ToJson toJson) {
  for (const Value& value : values) json[kind].push_back(toJson(value));
}

Json jsonOf(const std::optional<VlanToVni>& vlanToVni) {
  if (!vlanToVni) return nullptr;
  Json json = Json::object();
  for (const auto& [vlan, vni] : *vlanToVni) json[std::to_string(vlan.value())] = vni.value();
  return json;
}

// The line's brace, and where it is from.
void begin(std::ostream& out, const Origin& origin) {
  out << '{';
  const Json members = jsonOf(origin);
  for (const auto& [key, value] : members.items())
    out << '"' << key << "\": " << jsonText(value) << ", ";
}

void printFilter(std::ostream& out, const Filter& filter) {
  if (!filter.empty()) out << ", \"filter\": " << jsonText(filterJson(filter));
}

template <class Record>
void printElement(std::ostream& out, std::size_t index, const Record& record) {
  out << (index > 0 ? ", " : "") << jsonText(jsonOf(record));
}

// `"name": [...]`, a record at a time.
template <class Record>
void printList(std::ostream& out, const char* name, const std::vector<Record>& records) {
  out << '"' << name << "\": [";
  for (std::size_t i = 0; i < records.size(); ++i) printElement(out, i, records[i]);
  out << ']';
}

template <class Record>
void printChanges(std::ostream& out, const char* name, const ListChanges<Record>& changes) {
  out << ", \"" << name << "\": {";
  printList(out, "added", changes.added);
  out << ", ";
  printList(out, "gone", changes.gone);
  out << ", ";
  printList(out, "changed", changes.changed);
  out << '}';
}

Json viewOf(const Snapshot& snapshot) {
  if (!snapshot.convergenceInProgress) return nullptr;
  return Json::object({{"convergenceInProgress", *snapshot.convergenceInProgress}});
}

Json statusOf(const Snapshot& snapshot) {
  const auto& status = snapshot.convergenceStatus;
  if (!status) return nullptr;
  return {{"unicastDeferredDeletionInProgress", status->unicastDeferredDeletionInProgress},
          {"bumDeferredDeletionInProgress", status->bumDeferredDeletionInProgress}};
}

}  // namespace

Json filterJson(const Filter& filter) {
  const auto number = [](const auto& value) { return value.value(); };
  const auto address = [](const auto& value) { return value.stringValue(); };
  Json json = Json::object();
  addKind(json, "vlan", filter.vlans, number);
  addKind(json, "vni", filter.vnis, number);
  addKind(json, "vtep", filter.vteps, address);
  addKind(json, "mac", filter.macs, address);
  return json;
}

DumpPieces::DumpPieces(const Snapshot& snapshot) {
  add([&snapshot](std::ostream& out) {
    begin(out, snapshot.origin);
    out << "\"dump\": " << jsonText(snapshot.label) << ", \"at\": " << jsonText(snapshot.at);
    printFilter(out, snapshot.filter);
    out << ", \"vlanToVni\": " << jsonText(jsonOf(snapshot.vlanToVni))
        << ", \"client\": " << (snapshot.client ? "" : "null");
  });
  if (snapshot.client) addClient(*snapshot.client);
  add([](std::ostream& out) { out << ", \"l2rib\": {"; });
  addList("hosts", snapshot.hosts);
  add([](std::ostream& out) { out << ", "; });
  addList("floodSets", snapshot.floodSets);
  add([&snapshot](std::ostream& out) {
    out << "}, \"clientView\": " << jsonText(viewOf(snapshot))
        << ", \"convergenceStatus\": " << jsonText(statusOf(snapshot)) << "}\n";
  });
}

bool DumpPieces::print(std::ostream& out) {
  if (!pieces_[next_](out)) ++next_;
  return next_ < pieces_.size();
}

void DumpPieces::add(std::function<void(std::ostream&)> print) {
  pieces_.emplace_back([print = std::move(print)](std::ostream& out) {
    print(out);
    return false;
  });
}

template <class Record>
void DumpPieces::addList(const char* name, const std::vector<Record>& records) {
  pieces_.emplace_back([name, &records, next = std::size_t{0}](std::ostream& out) mutable {
    constexpr std::size_t recordsAtOnce = 512;
    if (next == 0) out << '"' << name << "\": [";
    const std::size_t end = std::min(next + recordsAtOnce, records.size());
    for (; next < end; ++next) printElement(out, next, records[next]);
    if (next == records.size()) out << ']';
    return next < records.size();
  });
}

template <class Record>
void DumpPieces::addList(const char* name, const std::optional<std::vector<Record>>& records) {
  if (records) return addList(name, *records);
  add([name](std::ostream& out) { out << '"' << name << "\": null"; });
}

void DumpPieces::addClient(const ClientSnapshot& client) {
  add([&client](std::ostream& out) {
    out << "{\"vxlanControllerClientMode\": " << jsonText(client.vxlanControllerClientMode)
        << ", \"datapathLearningMode\": " << jsonText(client.datapathLearningMode) << ", ";
    printList(out, "vccImportVlans", client.vccImportVlans);
    out << ", ";
    printList(out, "vnis", client.vnis);
    out << ", \"mlagBum\": " << jsonText(client.mlagBum)
        << ", \"hostTable\": {\"markedForDelCount\": "
        << jsonText(client.hostTable.markedForDelCount) << ", ";
  });
  addList("entries", client.hostTable.entries);
  add([](std::ostream& out) { out << "}}"; });
}

void printJson(std::ostream& out, const Snapshot& snapshot) {
  DumpPieces pieces(snapshot);
  while (pieces.print(out)) {
  }
}

void printJson(std::ostream& out, const Diff& diff) {
  Json flags = Json::object();
  for (const FlagChange& flag : diff.flags)
    flags[std::string(flag.name)] = {{"before", jsonOf(flag.before)},
                                     {"after", jsonOf(flag.after)}};
  begin(out, diff.now.origin);
  out << "\"diff\": " << jsonText(diff.now.label) << ", \"at\": " << jsonText(diff.now.at)
      << ", \"since\": " << jsonText(diff.since ? jsonOf(*diff.since) : Json(nullptr));
  printFilter(out, diff.filter);
  out << ", \"flags\": " << jsonText(flags);
  printChanges(out, "vccImportVlans", diff.vccImportVlans);
  printChanges(out, "vnis", diff.vnis);
  printChanges(out, "entries", diff.received);
  printChanges(out, "hosts", diff.hosts);
  printChanges(out, "floodSets", diff.floodSets);
  out << "}\n";
}

void printJson(std::ostream& out, const Turn& turn, const Origin& origin) {
  begin(out, origin);
  out << "\"turn\": " << jsonText(turn.at) << ", \"hosts\": " << turn.hosts
      << ", \"marked\": " << turn.marked << ", \"deleted\": " << turn.deleted
      << ", \"unicastDeferredDeletionInProgress\": "
      << jsonText(jsonOf(turn.unicastDeferredDeletion))
      << ", \"bumDeferredDeletionInProgress\": " << jsonText(jsonOf(turn.bumDeferredDeletion))
      << "}\n";
}

void printJsonException(std::ostream& out, const std::string& type, const std::string& text,
                        const Origin& origin) {
  begin(out, origin);
  out << "\"exception\": " << jsonText(type) << ", \"text\": " << jsonText(text) << "}\n";
}

}  // namespace Agent
