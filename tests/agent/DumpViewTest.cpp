// Pictures of what a client has made, and their views, where no journal leads: destinations other
// than VTEPs, raw maps, long tables, colours. All else is compared in golden/.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <utility>

#include "agent/view/DiffView.h"
#include "agent/view/DumpReader.h"
#include "agent/view/JsonView.h"
#include "agent/view/TableView.h"

namespace {

using Agent::Snapshot;
using Bridging::VlanId;
using Moru::create;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;

template <class Dump>
std::string tableText(const Dump& dump, const Agent::TableOptions& options = {}) {
  std::ostringstream out;
  printTable(out, dump, options);
  return out.str();
}

Snapshot hostsSnapshot(std::uint64_t from, std::uint64_t to, const char* vtep) {
  Snapshot snapshot{.label = "many"};
  snapshot.hosts.emplace();
  for (; from < to; ++from) {
    L2Rib::Host host;
    host.key = {Vorn::EthAddr::fromValue(0x020000000000 + from),
                VlanId(static_cast<int>(10 + from / 20))};
    host.dest = L2Rib::CiDest(L2Rib::DestType::vtep);
    host.dest.vtepAddrIs(0, *Vorn::IpGenAddr::parse(vtep));
    snapshot.hosts->push_back(host);
  }
  return snapshot;
}

TEST(Snapshot, ListsVtepsByAddressBeforeOtherDestinations) {
  const auto entry = create<L2Rib::SourceDirEntry>();
  entry->vlanFloodSetIs(VlanId(300));
  const auto set =
      entry->vlanFloodSetIs(VlanId(20))->floodSetIs(Vorn::EthAddr::fromValue(0xffffffffffff));
  const auto add = [&](const L2Rib::Dest& dest) { set->destSetIs(dest, true); };
  add({L2Rib::DestId{}, L2Rib::DestDataTunnel{7}});
  add({L2Rib::DestId{}, Vorn::IntfId("Et1")});
  for (const char* const vtep : {"10.0.0.10", "10.0.0.9"})
    add({L2Rib::DestId{}, L2Rib::DestDataVxlan{*Vorn::IpGenAddr::parse(vtep)}});
  const auto snapshot = Agent::takeSnapshot("a\"\xff", 2.5, {.floodSets = entry}, std::nullopt);
  EXPECT_THAT(tableText(snapshot), HasSubstr("ff  none  10.0.0.9 10.0.0.10 intf Et1 tunnel 7\n"));
  std::ostringstream json;
  Agent::printJson(json, snapshot);
  EXPECT_THAT(json.str(), HasSubstr(R"("dests":["10.0.0.9","10.0.0.10","intf Et1","tunnel 7"])"));
  EXPECT_THAT(json.str(), HasSubstr("300")) << "a VLAN without flood sets";
  EXPECT_THAT(json.str(), HasSubstr(R"("a\"\ufffd")")) << "bytes that are no UTF-8 are replaced";
}

TEST(Snapshot, MapsEachVlanByTheFirstInterfaceThatHasIt) {
  const auto maps = create<Vxlan::VlanVniMaps>();
  const auto first = maps->vlanVniMapIs(Vorn::IntfId("Vxlan2"));
  const auto second = maps->vlanVniMapIs(Vorn::IntfId("Vxlan1"));
  first->vlanToVspIs(VlanId(10), Vxlan::VniSourcePair(10010U));
  for (const unsigned vlan : {10U, 20U})
    second->vlanToVspIs(VlanId(vlan), Vxlan::VniSourcePair(20000U + vlan));
  second->vlanToVspIs(VlanId(30), Vxlan::VniSourcePair(4294967295U));
  second->vlanToVspIs(VlanId(40), Vxlan::VniSourcePair());
  EXPECT_THAT(Agent::vlanToVni(*maps), ElementsAre(Pair(VlanId(10), Vxlan::VniExt(10010)),
                                                   Pair(VlanId(20), Vxlan::VniExt(20020))));
}

std::string complaint(const std::string& line) {
  try {
    Agent::readDump(line);
    return "";
  } catch (const Agent::InputError& error) {
    return error.what();
  }
}

TEST(DumpReader, NamesThePlaceOfWhatIsWrong) {
  Snapshot snapshot = hostsSnapshot(1, 3, "10.0.0.2");
  snapshot.client.emplace();
  snapshot.client->hostTable.entries.resize(2);
  snapshot.floodSets = {{VlanId(10), Agent::FloodSetSnapshot{}}};
  snapshot.filter.vlans.insert(VlanId(10));
  std::ostringstream out;
  printJson(out, snapshot);
  const std::string dump = out.str();
  ASSERT_EQ(complaint(dump), "");
  const struct {
    const char* good;
    const char* bad;
    const char* complaint;
  } cases[] = {
      {R"("mac":"02:00:00:00:00:02")", R"("mac":"02")",
       R"(l2rib: hosts[1]: mac is "02": expected a MAC address)"},
      {R"("vtep":"10.0.0.2")", R"("vtep":7)", "l2rib: hosts[0]: vtep is 7: expected a text"},
      {R"("vtep":"0.0.0.0")", R"("vtep":"x")",
       R"(client: hostTable: entries[0]: vtep is "x": expected an IP address)"},
      {R"("markedForDel":false)", R"("marked":false)",
       R"(client: hostTable: entries[0]: unknown key "marked": expected an object with)"},
      {R"(,"dests":[])", "", "l2rib: floodSets[0]: dests is missing: expected"},
      {R"("vlan":[10])", R"("vlan":[4095])", "filter: vlan is 4095: expected a VLAN, 1 to 4094"},
      {R"("vlanToVni": null)", R"("vlanToVni": {"0": 7})",
       R"(vlanToVni: a key is "0": expected a VLAN)"},
      {R"("at": 0.0)", R"("at": "0")", R"(at is "0": expected a number)"},
      {R"("clientView": null, )", "", "clientView is missing: expected"},
      {R"("clientView": null, )", R"("clientView": {"convergenceInProgress": 1}, )",
       "clientView: convergenceInProgress is 1: expected true or false"},
      {"}\n", "", "not JSON at column "},
  };
  for (const auto& each : cases) {
    std::string text = dump;
    const std::size_t place = text.find(each.good);
    ASSERT_NE(place, std::string::npos) << each.good;
    EXPECT_THAT(complaint(text.replace(place, std::string(each.good).size(), each.bad)),
                testing::StartsWith(each.complaint));
  }
}

TEST(DumpReader, ComparesInTheOrderOfTheKeysWhoeverHasWrittenTheDump) {
  Snapshot snapshot = hostsSnapshot(0, 5, "10.0.0.2");
  Snapshot shuffled = snapshot;
  std::swap(shuffled.hosts->front(), shuffled.hosts->back());
  std::ostringstream out;
  printJson(out, shuffled);
  const Snapshot read = Agent::readDump(out.str());
  EXPECT_TRUE(compare(&snapshot, read).empty());
  snapshot.hosts->front().time = 3;
  EXPECT_FALSE(compare(&snapshot, read).empty());
  EXPECT_TRUE(compare(&snapshot, read, {.times = false}).empty());
  snapshot.hosts->front().moveCount = 1;
  EXPECT_EQ(compare(&snapshot, read, {.times = false}).hosts.changed.size(), 1U);
}

TEST(DumpPieces, AreAsLongAsWhatCanBeWaitedFor) {
  const Snapshot snapshot = hostsSnapshot(0, 5000, "10.0.0.2");
  std::ostringstream whole;
  printJson(whole, snapshot);
  Agent::DumpPieces pieces(snapshot);
  std::string all;
  for (bool more = true; more;) {
    std::ostringstream piece;
    more = pieces.print(piece);
    EXPECT_LT(piece.str().size(), whole.str().size() / 5);
    all += piece.str();
  }
  EXPECT_EQ(all, whole.str());
}

TEST(TableView, CapsEveryTable) {
  const Snapshot snapshot = hostsSnapshot(0, 1'000, "10.0.0.2");
  EXPECT_THAT(tableText(snapshot), EndsWith("\n  ... 980 more\n"));
  EXPECT_THAT(tableText(compare(nullptr, snapshot)), EndsWith("\n  ... 980 more\n"));
  EXPECT_THAT(tableText(hostsSnapshot(0, 21, "10.0.0.2")), EndsWith("\n  ... 1 more\n"));
  const std::string all = tableText(snapshot, {.mostRows = Agent::TableOptions::all});
  EXPECT_THAT(all, Not(HasSubstr("more")));
  EXPECT_THAT(all, HasSubstr("02:00:00:00:03:e7"));
}

TEST(TableView, ColoursOnDemandWhatCameWentChangedOrIsMarked) {
  const Snapshot before = hostsSnapshot(1, 3, "10.0.0.2");
  Snapshot after = hostsSnapshot(2, 4, "10.0.0.3");
  const auto diff = compare(&before, after);
  const std::string coloured = tableText(diff, {.colours = true});
  EXPECT_THAT(coloured, HasSubstr("\033[32m  +  02:00:00:00:00:03    10  10.0.0.3\033[0m\n"));
  EXPECT_THAT(coloured, HasSubstr("\033[31m  -  02:00:00:00:00:01"));
  EXPECT_THAT(coloured, HasSubstr("\033[33m  *  02:00:00:00:00:02"));
  EXPECT_THAT(tableText(diff), Not(HasSubstr("\033")));
  Vxlan::ReceivedEntry entry;
  entry.key = after.hosts->front().key;
  entry.markedForDel = true;
  after.client = Agent::ClientSnapshot{.hostTable = {1, {entry}}};
  EXPECT_THAT(tableText(after, {.colours = true}), HasSubstr("\033[33m  02:00:00:00:00:02"));
  EXPECT_THAT(tableText(after, {.colours = true}), HasSubstr("\n  02:00:00:00:00:03"));
  EXPECT_THAT(tableText(after), Not(HasSubstr("\033")));
}

}  // namespace
