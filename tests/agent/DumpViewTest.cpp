// Dumps as JSON and as tables, and what changed between them.
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <rapidcheck/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "agent/Diff.h"
#include "agent/DiffView.h"
#include "agent/JsonView.h"
#include "agent/TableView.h"
#include "agent/TimelineView.h"

namespace {

using Agent::Snapshot;
using nlohmann::json;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

Bridging::MacVlanPair key(std::uint64_t mac, std::uint16_t vlan) {
  return {Vorn::EthAddr::fromValue(0x020000000000 + mac), Bridging::VlanId(vlan)};
}

Vxlan::ReceivedEntry entry(std::uint64_t mac, const char* vtep, bool marked = false) {
  Vxlan::ReceivedEntry entry;
  entry.key = key(mac, 10);
  entry.vtiIntfId = Vorn::IntfId("Vxlan1");
  entry.source = 10;
  entry.vtepAddr = *Vorn::IpGenAddr::parse(vtep);
  entry.hostKind = 200;
  entry.markedForDel = marked;
  entry.time = 3;
  return entry;
}

L2Rib::Host host(std::uint64_t mac, const char* vtep, std::uint16_t vlan = 10) {
  L2Rib::Host host;
  host.key = key(mac, vlan);
  host.dest = L2Rib::CiDest(L2Rib::DestType::vtep);
  host.dest.intfIdIs(Vorn::IntfId("Vxlan1"));
  host.dest.vtepAddrIs(0, *Vorn::IpGenAddr::parse(vtep));
  host.moveCount = 4294967295;
  host.kind = 16;
  host.source = 10;
  host.time = 0.25;
  return host;
}

Agent::VlanFloodSetSnapshot floodSet(std::uint16_t vlan, const std::vector<const char*>& vteps) {
  Agent::FloodSetSnapshot set{Vorn::EthAddr::fromValue(0xffffffffffff),
                              L2Rib::FloodSetType::sendToAll};
  for (const char* const vtep : vteps)
    set.dests.emplace_back(L2Rib::DestId{}, L2Rib::DestDataVxlan{*Vorn::IpGenAddr::parse(vtep)});
  return {Bridging::VlanId(vlan), set};
}

Snapshot sample() {
  Snapshot snapshot{.label = "after-restart", .at = 12};
  snapshot.client = Agent::ClientSnapshot{true,
                                          false,
                                          {Bridging::VlanId(10)},
                                          {Vxlan::VniExt(10010)},
                                          false,
                                          {1, {entry(1, "10.0.0.2", true), entry(2, "10.0.0.3")}}};
  snapshot.hosts = {host(1, "10.0.0.2"), host(2, "10.0.0.3"), host(3, "10.0.0.3", 4094)};
  snapshot.floodSets = {{Bridging::VlanId(5)}, floodSet(10, {"10.0.0.2", "10.0.0.3"})};
  snapshot.floodSets->back().floodSet->dests.emplace_back(L2Rib::DestId{},
                                                          L2Rib::DestDataTunnel{7});
  snapshot.convergenceInProgress = true;
  snapshot.convergenceStatus = Agent::ConvergenceSnapshot{true, false};
  return snapshot;
}

template <class... Args>
std::string jsonText(const Args&... args) {
  std::ostringstream out;
  printJson(out, args...);
  return out.str();
}

template <class Dump>
std::string tableText(const Dump& dump, const Agent::TableOptions& options = {}) {
  std::ostringstream out;
  printTable(out, dump, options);
  return out.str();
}

TEST(JsonViewTest, PrintsADumpOnOneLine) {
  const std::string line = jsonText(sample());
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  EXPECT_EQ(json::parse(line), json::parse(R"(
    {"dump": "after-restart", "at": 12.0,
     "client": {"vxlanControllerClientMode": true, "datapathLearningMode": false,
                "vccImportVlans": [10], "vnis": [10010], "mlagBum": false,
                "hostTable": {"markedForDelCount": 1, "entries": [
       {"mac": "02:00:00:00:00:01", "vlan": 10, "vti": "Vxlan1", "source": 10, "vtep": "10.0.0.2",
        "moveCount": 0, "time": 3.0, "hostKind": 200, "markedForDel": true},
       {"mac": "02:00:00:00:00:02", "vlan": 10, "vti": "Vxlan1", "source": 10, "vtep": "10.0.0.3",
        "moveCount": 0, "time": 3.0, "hostKind": 200, "markedForDel": false}]}},
     "l2rib": {"hosts": [
       {"mac": "02:00:00:00:00:01", "vlan": 10, "vti": "Vxlan1", "source": 10, "vtep": "10.0.0.2",
        "moveCount": 4294967295, "time": 0.25, "kind": 16, "entryType": 16},
       {"mac": "02:00:00:00:00:02", "vlan": 10, "vti": "Vxlan1", "source": 10, "vtep": "10.0.0.3",
        "moveCount": 4294967295, "time": 0.25, "kind": 16, "entryType": 16},
       {"mac": "02:00:00:00:00:03", "vlan": 4094, "vti": "Vxlan1", "source": 10,
        "vtep": "10.0.0.3", "moveCount": 4294967295, "time": 0.25, "kind": 16, "entryType": 16}],
      "floodSets": [{"vlan": 5},
                    {"vlan": 10, "mac": "ff:ff:ff:ff:ff:ff", "type": 1,
                     "dests": ["10.0.0.2", "10.0.0.3", "tunnel 7"]}]},
     "clientView": {"convergenceInProgress": true},
     "convergenceStatus": {"unicastDeferredDeletionInProgress": true,
                           "bumDeferredDeletionInProgress": false}})"));
}

TEST(JsonViewTest, PrintsNullForWhatIsAbsentAndEscapesAnyText) {
  EXPECT_EQ(json::parse(jsonText(Snapshot{.label = "a\"\n\xff"})), json::parse(R"(
    {"dump": "a\"\n\ufffd", "at": 0.0, "client": null, "l2rib": {"hosts": null, "floodSets": null},
     "clientView": null, "convergenceStatus": null})"));
  Snapshot bare{.hosts = {{L2Rib::Host()}}, .floodSets = {{floodSet(7, {})}}};
  bare.hosts->front().dest = L2Rib::CiDest();
  const auto rib = json::parse(jsonText(bare))["l2rib"];
  EXPECT_EQ(rib["hosts"][0]["vtep"], "0.0.0.0");
  EXPECT_EQ(rib["floodSets"][0]["dests"], json::array());
  std::ostringstream out;
  Agent::printJsonException(out, "RangeException", 7, "VlanId \"5000\"\nnot allowed");
  EXPECT_EQ(json::parse(out.str()), json({{"exception", "RangeException"},
                                          {"line", 7},
                                          {"text", "VlanId \"5000\"\nnot allowed"}}));
  EXPECT_EQ(out.str().find('\n'), out.str().size() - 1);
}

// Lists of up to 6 of 8 hosts, each in one of 3 states.
Snapshot arbitrarySnapshot() {
  Snapshot snapshot;
  snapshot.hosts.emplace();
  for (std::uint64_t mac = 1; mac <= 8; ++mac)
    if (const int state = *rc::gen::inRange(0, 4); state > 0)
      snapshot.hosts->push_back(host(mac, state == 1 ? "10.0.0.2" : "10.0.0.3"));
  return snapshot;
}

RC_GTEST_PROP(DiffTest, TurnsTheOneIntoTheOther, ()) {
  const Snapshot before = arbitrarySnapshot();
  const Snapshot after = arbitrarySnapshot();
  const auto changes = compare(&before, after).hosts;
  std::vector<L2Rib::Host> hosts = *before.hosts;
  for (const auto& gone : changes.gone) RC_ASSERT(std::erase(hosts, gone) == 1U);
  for (const auto& change : changes.changed) {
    RC_ASSERT(!(change.before == change.after));
    const auto place = std::find(hosts.begin(), hosts.end(), change.before);
    RC_ASSERT(place != hosts.end());
    *place = change.after;
  }
  for (const auto& added : changes.added) {
    RC_ASSERT(std::none_of(hosts.begin(), hosts.end(),
                           [&](const auto& each) { return each.key == added.key; }));
    hosts.push_back(added);
  }
  std::sort(hosts.begin(), hosts.end(),
            [](const auto& left, const auto& right) { return left.key < right.key; });
  RC_ASSERT(hosts == *after.hosts);
}

// Of sample(): a host moves and is no longer marked, one is newly marked, one goes, one comes.
Snapshot later() {
  Snapshot snapshot = sample();
  snapshot.label = "later";
  snapshot.at = 13.5;
  snapshot.client->hostTable = {1, {entry(1, "10.0.0.3"), entry(2, "10.0.0.3", true)}};
  snapshot.client->mlagBum = true;
  snapshot.client->vnis = {Vxlan::VniExt(10020)};
  snapshot.hosts = {host(1, "10.0.0.3"), host(2, "10.0.0.3"), host(4, "10.0.0.9")};
  snapshot.hosts->at(1).moveCount = 7;
  snapshot.floodSets = {floodSet(5, {"10.0.0.2"}), floodSet(10, {"10.0.0.3"})};
  snapshot.convergenceStatus.reset();
  return snapshot;
}

TEST(DiffTest, IsEmptyForTheSameAndFullForTheFirst) {
  const Snapshot one = sample();
  EXPECT_TRUE(compare(&one, one).empty());
  const auto first = compare(nullptr, one);
  EXPECT_FALSE(first.since);
  EXPECT_EQ(first.hosts.added.size(), 3U);
  EXPECT_EQ(first.received.added.size(), 2U);
  EXPECT_EQ(first.flags.size(), 7U);
  EXPECT_EQ(json::parse(jsonText(first))["since"], nullptr);
  const Snapshot stopped{.label = "stopped", .hosts = one.hosts, .floodSets = one.floodSets};
  const auto stop = compare(&one, stopped);
  EXPECT_EQ(stop.received.gone.size(), 2U);
  EXPECT_TRUE(stop.hosts.empty() && stop.floodSets.empty());
  EXPECT_EQ(stop.flags.front().name, "clientRunning");
  EXPECT_EQ(stop.flags.front().after, false);
}

TEST(DiffTest, PrintsJson) {
  const Snapshot before = sample();
  const auto diff = json::parse(jsonText(compare(&before, later())));
  EXPECT_EQ(diff["diff"], "later");
  EXPECT_EQ(diff["since"], json({{"dump", "after-restart"}, {"at", 12.0}}));
  EXPECT_EQ(diff["flags"], json::parse(R"({"mlagBum": {"before": false, "after": true},
              "unicastDeferredDeletionInProgress": {"before": true, "after": null},
              "bumDeferredDeletionInProgress": {"before": false, "after": null}})"));
  EXPECT_EQ(diff["vnis"], json::parse(R"({"added": [10020], "gone": [10010], "changed": []})"));
  EXPECT_EQ(diff["vccImportVlans"]["added"], json::array());
  EXPECT_EQ(diff["entries"]["changed"][0]["before"]["markedForDel"], true);
  EXPECT_EQ(diff["entries"]["changed"][0]["after"]["vtep"], "10.0.0.3");
  EXPECT_EQ(diff["hosts"]["added"][0]["mac"], "02:00:00:00:00:04");
  EXPECT_EQ(diff["hosts"]["gone"][0]["vlan"], 4094);
  EXPECT_EQ(diff["floodSets"]["gone"], json::parse(R"([{"vlan": 5}])"));
  EXPECT_EQ(diff["floodSets"]["changed"][0]["after"]["dests"], json({"10.0.0.3"}));
}

TEST(DiffTest, PrintsTables) {
  const Snapshot before = sample();
  EXPECT_EQ(tableText(compare(&before, later())),
            R"(== later at 13.500000 s, since after-restart at 12.000000 s
mlagBum: off -> on
unicastDeferredDeletionInProgress: on -> absent
bumDeferredDeletionInProgress: off -> absent
VNIs: +10020 -10010
received hosts: 1 moved, 1 newly marked, 1 no longer marked
     MAC                VLAN  VTEP
  *  02:00:00:00:00:01    10  10.0.0.3  moved from 10.0.0.2, no longer marked
  *  02:00:00:00:00:02    10  10.0.0.3  newly marked
hosts of the layer-2 RIB: 1 added, 1 gone, 1 moved, 1 changed otherwise
     MAC                VLAN  VTEP
  +  02:00:00:00:00:04    10  10.0.0.9
  -  02:00:00:00:00:03  4094  10.0.0.3
  *  02:00:00:00:00:01    10  10.0.0.3  moved from 10.0.0.2
  *  02:00:00:00:00:02    10  10.0.0.3  moves 4294967295 to 7
flood sets: 1 added, 1 gone, 1 changed
     VLAN  MAC                type       destinations
  +     5  ff:ff:ff:ff:ff:ff  sendToAll  10.0.0.2
  -     5  none
  *    10  ff:ff:ff:ff:ff:ff  sendToAll  10.0.0.3      was sendToAll 10.0.0.2 10.0.0.3 tunnel 7
)");
  EXPECT_THAT(tableText(compare(&before, before)), EndsWith(": nothing changed\n"));
}

TEST(TableViewTest, PrintsASummaryAndTheHosts) {
  Snapshot snapshot = sample();
  snapshot.vlanToVni = {{Bridging::VlanId(10), Vxlan::VniExt(10010)}};
  snapshot.hosts->push_back(host(4, "10.0.0.9", 20));
  auto& entries = snapshot.client->hostTable.entries;
  entries[1] = entry(2, "10.0.0.9", true);
  entries.push_back(entry(5, "10.0.0.3"));
  entries.insert(entries.begin(), entry(0, "10.0.0.2"));
  EXPECT_EQ(tableText(snapshot), R"(== after-restart at 12.000000 s
controller client mode on, data path learning off, MLAG BUM off
import VLANs: 10
VNIs: 10010
convergence in progress: on; deferred deletion: unicast on, BUM off
layer-2 RIB: 4 hosts; received: 4 hosts, 1 marked for deletion
hosts by VLAN
  VLAN    VNI  RIB  received  marked
    10  10010    2         4       2
    20           1         0       0
  4094           1         0       0
hosts by VTEP
  VTEP      RIB  received  marked
  10.0.0.2    1         2       1
  10.0.0.3    2         1       0
  10.0.0.9    1         1       1
flood sets
  VLAN  MAC                type       destinations
     5  none
    10  ff:ff:ff:ff:ff:ff  sendToAll  10.0.0.2 10.0.0.3 tunnel 7
hosts
  MAC                VLAN    VNI  VTEP      VTI          moves  time
  02:00:00:00:00:00    10  10010  10.0.0.2  Vxlan1           0  3.000000 s  not in the RIB
  02:00:00:00:00:01    10  10010  10.0.0.2  Vxlan1  4294967295  0.250000 s  marked for deletion
  02:00:00:00:00:02    10  10010  10.0.0.3  Vxlan1  4294967295  0.250000 s  marked for deletion, received from 10.0.0.9
  02:00:00:00:00:03  4094         10.0.0.3  Vxlan1  4294967295  0.250000 s  not received
  02:00:00:00:00:04    20         10.0.0.9  Vxlan1  4294967295  0.250000 s  not received
  02:00:00:00:00:05    10  10010  10.0.0.3  Vxlan1           0  3.000000 s  not in the RIB
)");
}

TEST(TableViewTest, SaysWhatIsAbsentAndComparesNothingWithIt) {
  EXPECT_EQ(tableText(Snapshot{.label = "end"}), R"(== end at 0.000000 s
no client runs
convergence in progress: absent; deferred deletion: absent
layer-2 RIB: hosts absent; received: none without a client
flood sets absent
)");
  Snapshot stopped = sample();
  stopped.client.reset();
  EXPECT_THAT(tableText(stopped), Not(HasSubstr("not received")));
}

TEST(TableViewTest, CapsEveryTableAndColoursOnDemand) {
  Snapshot snapshot{.label = "many"};
  snapshot.hosts.emplace();
  for (std::uint64_t i = 0; i < 1'000; ++i) snapshot.hosts->push_back(host(i, "10.0.0.2"));
  EXPECT_THAT(tableText(snapshot), EndsWith("\n  ... 980 more\n"));
  EXPECT_THAT(tableText(compare(nullptr, snapshot)), EndsWith("\n  ... 980 more\n"));
  const std::string all = tableText(snapshot, {.mostRows = Agent::TableOptions::all});
  EXPECT_THAT(all, Not(HasSubstr("more")));
  EXPECT_THAT(all, HasSubstr("02:00:00:00:03:e7"));
  EXPECT_THAT(tableText(snapshot, {.mostRows = 0}), EndsWith("hosts\n  ... 1000 more\n"));
  EXPECT_THAT(tableText(sample()), Not(HasSubstr("\033")));
  EXPECT_THAT(tableText(sample(), {.colours = true}), HasSubstr("\033[33m  02:00:00:00:00:01"));
}

TEST(TimelineViewTest, AlignsItsColumns) {
  std::ostringstream out;
  Agent::printTimelineHeader(out);
  Agent::printTimeline(out, {0.5, 1'000'000, 7, 0, true, false});
  Agent::printTimeline(out, {3'600, 12, 0, 999'988, std::nullopt, std::nullopt});
  EXPECT_EQ(out.str(),
            "          time     hosts    marked   deleted   unicast       BUM\n"
            "    0.500000 s   1000000         7         0        on       off\n"
            " 3600.000000 s        12         0    999988    absent    absent\n");
}

}  // namespace
