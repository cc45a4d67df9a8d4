#include "agent/view/TableView.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "agent/base/Text.h"
#include "agent/view/FloodSetText.h"

namespace Agent {

namespace {

// A host as the layer-2 RIB and as the client's host table have it; null where one has not.
struct HostPair {
  const L2Rib::Host* rib = nullptr;
  const Vxlan::ReceivedEntry* received = nullptr;

  const Bridging::MacVlanPair& key() const { return rib != nullptr ? rib->key : received->key; }
  Vorn::IpGenAddr vtep() const {
    return rib != nullptr ? rib->dest.vtepAddr(0) : received->vtepAddr;
  }
  bool isMarked() const { return received != nullptr && received->markedForDel; }
};

const std::vector<L2Rib::Host>& hostsOf(const Snapshot& snapshot) {
  static const std::vector<L2Rib::Host> none;
  return snapshot.hosts ? *snapshot.hosts : none;
}

const std::vector<Vxlan::ReceivedEntry>& entriesOf(const Snapshot& snapshot) {
  static const std::vector<Vxlan::ReceivedEntry> none;
  return snapshot.client ? snapshot.client->hostTable.entries : none;
}

// Both lists are sorted by the key.
std::vector<HostPair> pairUp(const std::vector<L2Rib::Host>& hosts,
                             const std::vector<Vxlan::ReceivedEntry>& entries) {
  std::vector<HostPair> pairs;
  pairs.reserve(std::max(hosts.size(), entries.size()));
  auto host = hosts.begin();
  auto entry = entries.begin();
  while (host != hosts.end() || entry != entries.end()) {
    const bool hasHost =
        host != hosts.end() && (entry == entries.end() || !(entry->key < host->key));
    const bool hasEntry =
        entry != entries.end() && (host == hosts.end() || !(host->key < entry->key));
    pairs.push_back({hasHost ? &*host++ : nullptr, hasEntry ? &*entry++ : nullptr});
  }
  return pairs;
}

struct Counts {
  std::size_t rib = 0;
  std::size_t received = 0;
  std::size_t marked = 0;

  void add(const L2Rib::Host&) { ++rib; }
  void add(const Vxlan::ReceivedEntry& entry) {
    ++received;
    if (entry.markedForDel) ++marked;
  }
};

template <class Number>
std::string joined(const std::vector<Number>& numbers) {
  std::string text;
  for (const Number& number : numbers) appendTo(text, " ", std::to_string(number.value()));
  return text.empty() ? "none" : text;
}

void printModes(std::ostream& out, const Snapshot& snapshot) {
  if (const auto& client = snapshot.client) {
    out << "controller client mode " << onOff(client->vxlanControllerClientMode)
        << ", data path learning " << onOff(client->datapathLearningMode) << ", MLAG BUM "
        << onOff(client->mlagBum) << '\n'
        << "import VLANs: " << joined(client->vccImportVlans) << '\n'
        << "VNIs: " << joined(client->vnis) << '\n';
  } else {
    out << "no client runs\n";
  }
  out << "convergence in progress: " << flagText(snapshot.convergenceInProgress)
      << "; deferred deletion: ";
  if (const auto& status = snapshot.convergenceStatus)
    out << "unicast " << onOff(status->unicastDeferredDeletionInProgress) << ", BUM "
        << onOff(status->bumDeferredDeletionInProgress) << '\n';
  else
    out << "absent\n";
}

void printTotals(std::ostream& out, const Snapshot& snapshot) {
  out << "layer-2 RIB: ";
  if (snapshot.hosts)
    out << snapshot.hosts->size() << " hosts";
  else
    out << "hosts absent";
  out << "; received: ";
  if (const auto& client = snapshot.client)
    out << client->hostTable.entries.size() << " hosts, " << client->hostTable.markedForDelCount
        << " marked for deletion\n";
  else
    out << "none without a client\n";
}

std::string vniText(const Snapshot& snapshot, const Bridging::VlanId& vlan) {
  if (!snapshot.vlanToVni) return "";
  const auto vni = vniOf(*snapshot.vlanToVni, vlan);
  return vni ? std::to_string(vni->value()) : "";
}

void printCounts(std::ostream& out, const Snapshot& snapshot, std::size_t most) {
  std::map<Bridging::VlanId, Counts> ofVlan;
  std::map<Vorn::IpGenAddr, Counts> ofVtep;
  for (const L2Rib::Host& host : hostsOf(snapshot)) {
    ofVlan[host.key.vlan].add(host);
    ofVtep[host.dest.vtepAddr(0)].add(host);
  }
  for (const Vxlan::ReceivedEntry& entry : entriesOf(snapshot)) {
    ofVlan[entry.key.vlan].add(entry);
    ofVtep[entry.vtepAddr].add(entry);
  }
  const auto counted = [](std::vector<std::string> cells, const Counts& counts) {
    for (const std::size_t count : {counts.rib, counts.received, counts.marked})
      cells.push_back(std::to_string(count));
    return cells;
  };
  printFirst(out, "hosts by VLAN", {"VLAN", "VNI", "RIB", "received", "marked"}, ofVlan, most,
             [&](TextTable& table, const auto& each) {
               const auto& [vlan, counts] = each;
               table.add(counted({std::to_string(vlan.value()), vniText(snapshot, vlan)}, counts));
             });
  printFirst(out, "hosts by VTEP", {"VTEP", "RIB", "received", "marked"}, ofVtep, most,
             [&](TextTable& table, const auto& each) {
               table.add(counted({each.first.stringValue()}, each.second));
             });
}

void printFloodSets(std::ostream& out, const Snapshot& snapshot, std::size_t most) {
  if (!snapshot.floodSets) {
    out << "flood sets absent\n";
    return;
  }
  printFirst(out, "flood sets", {"VLAN", "MAC", "type", "destinations"}, *snapshot.floodSets, most,
             [](TextTable& table, const VlanFloodSetSnapshot& each) {
               const bool some = each.floodSet.has_value();
               table.add({std::to_string(each.vlan.value()),
                          some ? each.floodSet->mac.stringValue() : "none",
                          some ? typeText(each.floodSet->type) : "",
                          some ? destsText(*each.floodSet) : ""});
             });
}

// What is unusual about a host. Without a client or a RIB there is nothing to compare.
std::string remark(const Snapshot& snapshot, const HostPair& host) {
  std::string text = host.isMarked() ? "marked for deletion" : "";
  if (!snapshot.client || !snapshot.hosts) return text;
  if (host.rib == nullptr)
    appendTo(text, ", ", "not in the RIB");
  else if (host.received == nullptr)
    appendTo(text, ", ", "not received");
  else if (host.received->vtepAddr != host.vtep())
    appendTo(text, ", ", "received from " + host.received->vtepAddr.stringValue());
  return text;
}

void addHost(TextTable& table, const Snapshot& snapshot, const HostPair& host, bool colours) {
  const bool rib = host.rib != nullptr;
  const Vorn::IntfId& vti = rib ? host.rib->dest.intfId() : host.received->vtiIntfId;
  const Bridging::MacVlanPair& key = host.key();
  table.add({key.mac.stringValue(), std::to_string(key.vlan.value()), vniText(snapshot, key.vlan),
             host.vtep().stringValue(), vti.stringValue(),
             std::to_string(rib ? host.rib->moveCount : host.received->moveCount),
             secondsText(rib ? host.rib->time : host.received->time), remark(snapshot, host)},
            colours && host.isMarked() ? Colour::changed : Colour::none);
}

}  // namespace

std::string filterText(const Filter& filter) {
  return filter.empty() ? "" : ", filtered: " + textOf(filter);
}

void printTable(std::ostream& out, const Snapshot& snapshot, const TableOptions& options) {
  out << "== " << printable(snapshot.label) << " at " << secondsText(snapshot.at)
      << filterText(snapshot.filter) << '\n';
  printModes(out, snapshot);
  printTotals(out, snapshot);
  printCounts(out, snapshot, options.mostRows);
  printFloodSets(out, snapshot, options.mostRows);
  printFirst(out, "hosts", {"MAC", "VLAN", "VNI", "VTEP", "VTI", "moves", "time", ""},
             pairUp(hostsOf(snapshot), entriesOf(snapshot)), options.mostRows,
             [&](TextTable& table, const HostPair& host) {
               addHost(table, snapshot, host, options.colours);
             });
}

}  // namespace Agent
