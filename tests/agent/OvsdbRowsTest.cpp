// From table updates to announcements: what each message makes the import say, in which order, and
// which problems it raises and cures.
#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "agent/ovsdb/Import.h"

namespace {

using Agent::Announcements;
using Agent::Cause;
using Agent::FloodList;
using Agent::Ovsdb::Import;
using Agent::Ovsdb::Updates;
using Agent::Ovsdb::Uuid;
using Lines = std::vector<std::string>;

std::string uuidText(std::uint64_t number) { return Uuid{0xa << 4, number}.stringValue(); }

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (auto at = text.find(from); at != text.npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

// "@7" becomes ["uuid", "..."], and ' becomes ".
std::string json(const std::string& text) {
  std::string out;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '@') {
      out += text[at] == '\'' ? '"' : text[at];
      continue;
    }
    std::size_t digits = 0;
    const auto number = std::stoull(text.substr(at + 1), &digits);
    out += R"(["uuid",")" + uuidText(number) + R"("])";
    at += digits;
  }
  return out;
}

// What a listener would believe, and what it has been told since it was last asked. Fails where
// something is said twice, or withdrawn that was not said.
class Believer final : public Announcements {
 public:
  void vniIs(const Vxlan::VniExt& vni, const Bridging::VlanId& vlan) override {
    is("vni " + text(vni), text(vlan));
  }
  void vniDel(const Vxlan::VniExt& vni, Cause cause) override {
    for (const auto& [what, value] : said)
      EXPECT_NE(what.find(' ' + text(vni) + ' '), 4U) << what << " outlives its VNI";
    del("vni " + text(vni), cause);
  }
  void hostIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac,
              const Vorn::IpAddr& vtep) override {
    EXPECT_TRUE(said.contains("vni " + text(vni)));
    is("host " + text(vni) + ' ' + text(mac), text(vtep));
  }
  void hostDel(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, Cause cause) override {
    del("host " + text(vni) + ' ' + text(mac), cause);
  }
  void listIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const FloodList& list) override {
    EXPECT_TRUE(said.contains("vni " + text(vni)));
    std::string value = list.type == L2Rib::FloodSetType::sendToAll ? "all" : "any";
    for (const auto& vtep : list.vteps) value += ' ' + text(vtep);
    is("list " + text(vni) + ' ' + text(mac), value);
  }
  void listDel(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, Cause cause) override {
    del("list " + text(vni) + ' ' + text(mac), cause);
  }
  void commit() override { ++commits; }

  std::map<std::string, std::string> said;
  Lines told;
  int commits = 0;

 private:
  template <class Value>
  static std::string text(const Value& value) {
    std::ostringstream out;
    out << value;
    // The lists below are read by people: 02:00:00:00:00:0a is :0a, 10.0.0.2 is .2.
    return replaced(replaced(out.str(), "02:00:00:00:00:", ":"), "10.0.0.", ".");
  }
  void is(const std::string& what, const std::string& value) {
    EXPECT_TRUE(!said.contains(what) || said[what] != value) << what << " is said again";
    said[what] = value;
    told.push_back(what + " = " + value);
  }
  void del(const std::string& what, Cause cause) {
    EXPECT_EQ(said.erase(what), 1U) << what << " was not said";
    told.push_back(what + (cause == Cause::meant ? " gone, meant" : " gone"));
  }
};

const std::map<std::string, std::string> tableNames{
    {"PS", "Physical_Switch"},  {"PP", "Physical_Port"},         {"LS", "Logical_Switch"},
    {"PL", "Physical_Locator"}, {"SET", "Physical_Locator_Set"}, {"U", "Ucast_Macs_Remote"},
    {"M", "Mcast_Macs_Remote"}};

// An import of the switch "us".
class Imported {
 public:
  enum Message { whole, differences, wholeRows, rows };

  // Each row is a table, a number, what happened, and the columns: "U 7 insert 'MAC': ...".
  // Returns what has been said.
  Lines play(Message form, const Lines& lines) {
    std::string tables;
    for (const std::string& line : lines) {
      std::istringstream in(line);
      std::string table;
      std::string event;
      std::string columns;
      std::uint64_t number = 0;
      std::getline(in >> table >> number >> event, columns);
      tables += (tables.empty() ? "{'" : ",'") + tableNames.at(table) + "':{'" + uuidText(number) +
                "':{'" + event + "':{" + columns + "}}}";
    }
    return playText(form, tables.empty() ? "{}" : tables + '}');
  }

  Lines playText(Message form, const std::string& tables) {
    take(form, tables);
    while (import.stepPieces(1)) {
    }
    return said();
  }

  void take(Message form, const std::string& tables) {
    Updates updates;
    updates.form =
        form == wholeRows || form == rows ? Updates::Form::rows : Updates::Form::rowDifferences;
    updates.whole = form == whole || form == wholeRows;
    updates.document = std::make_unique<simdjson::dom::document>();
    simdjson::dom::parser parser;
    updates.tables = parser.parse_into_document(*updates.document, json(tables));
    import.take(std::move(updates));
  }

  Lines said() { return std::exchange(believer.told, {}); }

  // "place = value" of all, with uuids as @number.
  Lines problemsNow() const {
    Lines all;
    for (const auto& [what, problem] : problems.all()) {
      std::string line = what;
      line += " = " + problem.value;
      for (int number = 1; number < 100; ++number)
        line = replaced(line, uuidText(static_cast<std::uint64_t>(number)),
                        '@' + std::to_string(number));
      all.push_back(line);
    }
    return all;
  }

  Believer believer;
  Lines events;
  int problemsTold = 0;
  Agent::Problems problems{[this](const std::string&, const Agent::Problem&) { ++problemsTold; }};
  Import import{"us",
                believer,
                [this](const Agent::Change& change) {
                  const auto& vti = std::get<Agent::Set<Agent::Vti>>(change);
                  believer.told.push_back(vti.target.intf.stringValue() + ' ' +
                                          vti.value.localVtepAddr.value().stringValue());
                },
                problems,
                {[this] { events.emplace_back("caught up"); },
                 [this](const std::string& row) { events.push_back("unknown " + row); },
                 [this] { events.emplace_back("switch missing"); }}};
};

// Two ports, three switches of which two have a VNI, hosts and a list.
const Lines start{
    "PS 1 initial 'name':'us','tunnel_ips':'10.0.0.1','ports':['set',[@2,@3]]",
    "PP 2 initial 'vlan_bindings':['map',[[10,@11],[20,@12]]]",
    "PP 3 initial 'vlan_bindings':['map',[[0,@12],[11,@11],[30,@13]]]",
    "LS 11 initial 'name':'one','tunnel_key':5001,'replication_mode':'source_node'",
    "LS 12 initial 'name':'two','tunnel_key':['set',[5000]]",
    "LS 13 initial 'name':'three','tunnel_key':['set',[]]",
    "PL 21 initial 'dst_ip':'10.0.0.1','encapsulation_type':'vxlan_over_ipv4'",
    "PL 22 initial 'dst_ip':'10.0.0.2','encapsulation_type':'vxlan_over_ipv4'",
    "PL 23 initial 'dst_ip':'10.0.0.3','encapsulation_type':'vxlan_over_ipv4'",
    "U 31 initial 'MAC':'02:00:00:00:00:0b','logical_switch':@11,'locator':@22",
    "U 32 initial 'MAC':'02:00:00:00:00:0A','logical_switch':@11,'locator':@21",
    "U 33 initial 'MAC':'02:00:00:00:00:0a','logical_switch':@12,'locator':@23",
    "U 34 initial 'MAC':'02:00:00:00:00:0c','logical_switch':@13,'locator':@23",
    "SET 41 initial 'locators':['set',[@23,@21,@22]]",
    "M 51 initial 'MAC':'unknown-dst','logical_switch':@11,'locator_set':@41",
};
const Lines startSaid{"Vxlan1 10.0.0.1",    "vni 5000 = 20",
                      "vni 5001 = 10",      "list 5001 ff:ff:ff:ff:ff:ff = all .2 .3",
                      "host 5000 :0a = .3", "host 5001 :0a = .1",
                      "host 5001 :0b = .2"};

class OvsdbRows : public testing::Test, public Imported {
 protected:
  void begin() { ASSERT_EQ(play(whole, start), startSaid); }
  Lines modify(const Lines& lines) { return play(differences, lines); }
  // The rows of `start` without some.
  static Lines startWithout(const std::set<std::string>& gone) {
    Lines kept;
    for (const std::string& line : start)
      if (!gone.contains(line.substr(0, line.find(" i")))) kept.push_back(line);
    return kept;
  }
};

TEST_F(OvsdbRows, SaysAWholeStateInOrder) {
  begin();
  EXPECT_EQ(problemsNow(), Lines());
  EXPECT_EQ(believer.commits, 1);
  // The same again, in either form and any order, says nothing; what is lacking goes.
  EXPECT_EQ(play(whole, Lines(start.rbegin(), start.rend())), Lines());
  Lines asRows;
  for (const auto& line : start) asRows.push_back(replaced(line, " initial ", " new "));
  EXPECT_EQ(play(wholeRows, asRows), Lines());
  EXPECT_EQ(play(whole, startWithout({"U 31", "LS 12", "M 51"})),
            (Lines{"list 5001 ff:ff:ff:ff:ff:ff gone", "host 5000 :0a gone", "host 5001 :0b gone",
                   "vni 5000 gone"}));
  EXPECT_EQ(play(whole, start), (Lines{"vni 5000 = 20", "list 5001 ff:ff:ff:ff:ff:ff = all .2 .3",
                                       "host 5000 :0a = .3", "host 5001 :0b = .2"}));
}

TEST_F(OvsdbRows, FollowsHostsThroughMoves) {
  begin();
  EXPECT_EQ(modify({"U 31 modify 'locator':@23"}), Lines{"host 5001 :0b = .3"});
  // A new row before the old one goes; then rows for one MAC, of which the lowest VTEP wins.
  EXPECT_EQ(modify({"U 35 insert 'MAC':'02:00:00:00:00:0b','logical_switch':@11,'locator':@22",
                    "U 31 delete"}),
            Lines{"host 5001 :0b = .2"});
  EXPECT_EQ(modify({"U 36 insert 'MAC':'02:00:00:00:00:0b','logical_switch':@11,'locator':@21",
                    "U 37 insert 'MAC':'02:00:00:00:00:0b','logical_switch':@11,'locator':@23"}),
            Lines{"host 5001 :0b = .1"});
  EXPECT_EQ(modify({"U 36 delete"}), Lines{"host 5001 :0b = .2"});
  EXPECT_EQ(modify({"U 35 delete"}), Lines{"host 5001 :0b = .3"});
  EXPECT_EQ(modify({"U 37 modify 'logical_switch':@12"}),
            (Lines{"host 5000 :0b = .3", "host 5001 :0b gone"}));
  EXPECT_EQ(modify({"U 37 modify 'MAC':'02:00:00:00:00:0e'"}),
            (Lines{"host 5000 :0b gone", "host 5000 :0e = .3"}));
  // What the locator itself says.
  EXPECT_EQ(modify({"PL 23 modify 'dst_ip':'10.0.0.4'"}),
            (Lines{"list 5001 ff:ff:ff:ff:ff:ff = all .2 .4", "host 5000 :0a = .4",
                   "host 5000 :0e = .4"}));
  EXPECT_EQ(modify({"PL 23 delete"}), (Lines{"list 5001 ff:ff:ff:ff:ff:ff = all .2",
                                             "host 5000 :0a gone", "host 5000 :0e gone"}));
  EXPECT_EQ(modify({"U 33 delete", "U 34 delete", "U 37 delete"}), Lines());
  EXPECT_EQ(problemsNow(), Lines());
}

TEST_F(OvsdbRows, FollowsLists) {
  begin();
  EXPECT_EQ(modify({"SET 41 modify 'locators':@23"}),
            Lines{"list 5001 ff:ff:ff:ff:ff:ff = all .2"});
  EXPECT_EQ(modify({"LS 11 modify 'replication_mode':'service_node'"}),
            Lines{"list 5001 ff:ff:ff:ff:ff:ff = any .2"});
  EXPECT_EQ(modify({"LS 11 modify 'replication_mode':['set',['source_node']]"}),
            Lines{"list 5001 ff:ff:ff:ff:ff:ff = all .2"});
  EXPECT_EQ(modify({"LS 11 modify 'replication_mode':['set',[]]"}),
            Lines{"list 5001 ff:ff:ff:ff:ff:ff = any .2"});
  // Rows of one MAC are united; a multicast and a unicast MAC have lists, too.
  EXPECT_EQ(
      modify({"SET 42 insert 'locators':['set',[@23,@22]]",
              "M 52 insert 'MAC':'unknown-dst','logical_switch':@11,'locator_set':@42",
              "M 53 insert 'MAC':'01:00:5e:00:00:01','logical_switch':@12,'locator_set':@42",
              "M 54 insert 'MAC':'02:00:00:00:00:0a','logical_switch':@11,'locator_set':@42"}),
      (Lines{"list 5000 01:00:5e:00:00:01 = any .2 .3", "list 5001 :0a = any .2 .3",
             "list 5001 ff:ff:ff:ff:ff:ff = any .2 .3"}));
  EXPECT_EQ(
      modify({"M 52 modify 'MAC':'ff:ff:ff:ff:ff:fe'"}),
      (Lines{"list 5001 ff:ff:ff:ff:ff:fe = any .2 .3", "list 5001 ff:ff:ff:ff:ff:ff = any .2"}));
  EXPECT_EQ(modify({"M 52 modify 'locator_set':@41", "M 54 delete"}),
            (Lines{"list 5001 :0a gone", "list 5001 ff:ff:ff:ff:ff:fe = any .2"}));
  // Our own address alone is no list. The last one stays when there is none.
  EXPECT_EQ(modify({"SET 41 modify 'locators':@22"}),
            (Lines{"list 5001 ff:ff:ff:ff:ff:fe gone", "list 5001 ff:ff:ff:ff:ff:ff gone"}));
  EXPECT_EQ(modify({"PS 1 modify 'tunnel_ips':'10.0.0.1'"}), Lines());
  EXPECT_EQ(problemsNow(), Lines{"Physical_Switch us: tunnel_ips = "});
  EXPECT_EQ(modify({"PS 1 modify 'tunnel_ips':['set',['10.0.0.3','10.0.0.10','::1','0.0.0.0']]"}),
            (Lines{"Vxlan1 10.0.0.10", "list 5001 ff:ff:ff:ff:ff:fe = any .1",
                   "list 5001 ff:ff:ff:ff:ff:ff = any .1"}));
  EXPECT_EQ(problemsNow(), Lines{"Physical_Switch us: tunnel_ips = 0.0.0.0"});
  EXPECT_EQ(modify({"PS 1 modify 'tunnel_ips':['set',['10.0.0.10','0.0.0.0']]"}),
            (Lines{"Vxlan1 10.0.0.3", "list 5000 01:00:5e:00:00:01 = any .2"}));
  EXPECT_EQ(problemsNow(), Lines());
}

TEST_F(OvsdbRows, TellsWhatIsMeantFromWhatTheControllerWithdraws) {
  const auto gone = [](const std::string& how) {
    return Lines{"list 5001 ff:ff:ff:ff:ff:ff gone" + how, "host 5001 :0a gone" + how,
                 "host 5001 :0b gone" + how, "vni 5001 gone" + how};
  };
  const Lines back{"vni 5001 = 11", "list 5001 ff:ff:ff:ff:ff:ff = all .2 .3", "host 5001 :0a = .1",
                   "host 5001 :0b = .2"};
  begin();
  EXPECT_EQ(modify({"PP 2 modify 'vlan_bindings':['map',[[10,@11]]]"}), Lines{"vni 5001 = 11"});
  EXPECT_EQ(modify({"PS 1 modify 'ports':@3"}), gone(", meant"));
  EXPECT_EQ(modify({"PS 1 modify 'ports':['set',[@3]]"}), back);
  // What goes in the same message is the controller's doing all the same.
  EXPECT_EQ(
      modify({"PP 3 modify 'vlan_bindings':['map',[[11,@11]]]", "U 31 delete", "M 51 delete"}),
      (Lines{"list 5001 ff:ff:ff:ff:ff:ff gone", "host 5001 :0a gone, meant", "host 5001 :0b gone",
             "vni 5001 gone, meant"}));
  EXPECT_EQ(modify({"PP 3 modify 'vlan_bindings':['map',[[11,@11]]]", start[9], start[14]}), back);
  EXPECT_EQ(modify({"LS 11 modify 'tunnel_key':0"}), gone(""));
  EXPECT_EQ(modify({"LS 11 modify 'tunnel_key':5001"}), back);
  EXPECT_EQ(modify({"LS 11 modify 'tunnel_key':['set',[]]", "PS 1 modify 'ports':@3"}), gone(""));
  EXPECT_EQ(modify({"LS 11 modify 'tunnel_key':5001", "PS 1 modify 'ports':@3"}), back);
  EXPECT_EQ(modify({"LS 11 delete"}), gone(""));
  EXPECT_EQ(modify({start[3]}), back);
  // Hosts and lists go with the old VNI and come with the new one.
  EXPECT_EQ(
      modify({"LS 11 modify 'tunnel_key':4000"}),
      (Lines{"vni 4000 = 11", "list 5001 ff:ff:ff:ff:ff:ff gone",
             "list 4000 ff:ff:ff:ff:ff:ff = all .2 .3", "host 5001 :0a gone", "host 5001 :0b gone",
             "host 4000 :0a = .1", "host 4000 :0b = .2", "vni 5001 gone"}));
  EXPECT_EQ(modify({"LS 11 modify 'tunnel_key':5000", "LS 12 modify 'tunnel_key':4000"}),
            (Lines{"vni 4000 = 20", "vni 5000 = 11", "list 4000 ff:ff:ff:ff:ff:ff gone",
                   "list 5000 ff:ff:ff:ff:ff:ff = all .2 .3", "host 4000 :0a gone",
                   "host 4000 :0b gone", "host 5000 :0a gone", "host 4000 :0a = .3",
                   "host 5000 :0a = .1", "host 5000 :0b = .2"}));
  // The switch's own row.
  EXPECT_EQ(modify({"PS 1 delete"}),
            (Lines{"list 5000 ff:ff:ff:ff:ff:ff gone, meant", "host 4000 :0a gone, meant",
                   "host 5000 :0a gone, meant", "host 5000 :0b gone, meant", "vni 4000 gone, meant",
                   "vni 5000 gone, meant"}));
  EXPECT_EQ(problemsNow(), Lines{"Physical_Switch us = "});
  EXPECT_EQ(events, Lines());
  EXPECT_EQ(modify({start[0]}).size(), 6U);
  EXPECT_EQ(problemsNow(), Lines());
}

TEST_F(OvsdbRows, GivesEachVniAVlan) {
  const auto bind = [&](const std::string& pairs, const std::string& port = "3") {
    return modify({"PP " + port + " modify 'vlan_bindings':['map',[" + pairs + "]]"});
  };
  begin();
  EXPECT_EQ(modify({"LS 13 modify 'tunnel_key':16777215"}),
            (Lines{"vni 16777215 = 30", "host 16777215 :0c = .3"}));
  EXPECT_EQ(bind("[5,@11],[4094,@11]"), Lines{"vni 5001 = 5"});
  // Tag 10 is that of two switches now, whether they have VNIs or not.
  EXPECT_EQ(bind("[5,@14],[10,@14],[11,@14],[4094,@11]"), Lines{"vni 5001 = 4094"});
  EXPECT_EQ(bind("[20,@12]", "2"), Lines{"vni 5000 = 4093"});
  EXPECT_EQ(bind("[10,@14]"), Lines{"vni 5001 = 10"});
  EXPECT_EQ(bind("[4093,@13]"), Lines{"vni 5000 = 4094"});
  // Its number is kept for a switch that has no VNI for a moment, but not for one that is unbound.
  EXPECT_EQ(modify({"LS 12 modify 'tunnel_key':0"}),
            (Lines{"host 5000 :0a gone", "vni 5000 gone"}));
  EXPECT_EQ(bind("[10,@15]"), Lines{"vni 5001 = 4092"});
  EXPECT_EQ(modify({"LS 12 modify 'tunnel_key':5000"}),
            (Lines{"vni 5000 = 4094", "host 5000 :0a = .3"}));
  EXPECT_EQ(bind("[0,@13],[30,@13],[4093,@13]"),
            (Lines{"vni 16777215 = 4094", "host 5000 :0a gone, meant", "vni 5000 gone, meant"}));
  EXPECT_EQ(bind("[0,@12]", "2"), (Lines{"vni 5000 = 4093", "host 5000 :0a = .3"}));
  EXPECT_EQ(bind("[0,@12]", "2").size(), 2U);
  // Tags that are no VLANs bind nothing.
  EXPECT_EQ(bind("[5000,@12],[-1,@12],[4095,@12]"), Lines());
  EXPECT_EQ(problemsNow(), Lines{"Physical_Port @3: vlan_bindings = -1"});
  EXPECT_EQ(bind("[-1,@12],[5000,@12]"), Lines());
  EXPECT_EQ(problemsNow(), Lines{"Physical_Port @3: vlan_bindings = 4095"});
  EXPECT_EQ(bind("[4095,@12]"), Lines());
  EXPECT_EQ(problemsNow(), Lines());
  // No VLAN is left.
  std::string all;
  for (int vlan = 1; vlan <= 4094; ++vlan)
    all += (vlan == 1 ? "[" : ",[") + std::to_string(vlan) + ",@14]";
  EXPECT_EQ(modify({"PS 1 modify 'ports':@4", "PP 4 insert 'vlan_bindings':['map',[" + all + "]]"}),
            (Lines{"list 5001 ff:ff:ff:ff:ff:ff gone", "host 5001 :0a gone", "host 5001 :0b gone",
                   "host 16777215 :0c gone", "vni 5001 gone", "vni 16777215 gone"}));
  EXPECT_EQ(problemsNow(),
            (Lines{"Logical_Switch @11: VNI = 5001", "Logical_Switch @13: VNI = 16777215"}));
  EXPECT_EQ(bind("[1,@14]", "4"), (Lines{"vni 5001 = 1", "list 5001 ff:ff:ff:ff:ff:ff = all .2 .3",
                                         "host 5001 :0a = .1", "host 5001 :0b = .2"}));
  EXPECT_EQ(modify({"PS 1 delete"}).size(), 4U);
  EXPECT_EQ(problemsNow(), Lines{"Physical_Switch us = "});
}

TEST_F(OvsdbRows, GivesAVniToOneSwitch) {
  begin();
  EXPECT_EQ(modify({"LS 13 modify 'tunnel_key':5001,'name':'a'"}), Lines());
  EXPECT_EQ(problemsNow(), Lines{"Logical_Switch @13: VNI = 5001"});
  EXPECT_EQ(modify({"LS 11 modify 'tunnel_key':['set',[]]"}),
            (Lines{"vni 5001 = 30", "list 5001 ff:ff:ff:ff:ff:ff gone", "host 5001 :0a gone",
                   "host 5001 :0b gone", "host 5001 :0c = .3"}));
  EXPECT_EQ(problemsNow(), Lines());
  EXPECT_EQ(modify({"LS 11 modify 'tunnel_key':5001"}), Lines());
  EXPECT_EQ(problemsNow(), Lines{"Logical_Switch @11: VNI = 5001"});
  EXPECT_EQ(modify({"PS 1 modify 'ports':['set',[@2,@3]]"}).size(), 4U);
  EXPECT_EQ(problemsNow(), Lines());
  // Bound anew, nobody has it: the lowest name has.
  EXPECT_EQ(modify({"PS 1 modify 'ports':['set',[@2,@3]]"}),
            (Lines{"vni 5000 = 20", "vni 5001 = 30", "host 5000 :0a = .3", "host 5001 :0c = .3"}));
  EXPECT_EQ(modify({"PS 1 modify 'ports':['set',[@2,@3]]", "LS 13 modify 'name':'z'"}).size(), 4U);
  EXPECT_EQ(modify({"PS 1 modify 'ports':['set',[@2,@3]]"})[1], "vni 5001 = 10");
}

TEST_F(OvsdbRows, WaitsForItsSwitch) {
  const Lines other{"PS 9 insert 'name':'other','tunnel_ips':'10.0.0.9','ports':@3"};
  EXPECT_EQ(play(whole, startWithout({"PS 1"})), Lines());
  import.caughtUp();
  EXPECT_EQ(modify(other), Lines());
  EXPECT_EQ(modify({"U 31 delete"}), Lines());
  EXPECT_EQ(events, Lines{"switch missing"});
  EXPECT_EQ(problemsNow(), Lines{"Physical_Switch us = "});
  EXPECT_EQ(believer.commits, 0);
  EXPECT_EQ(modify({start[0]}), Lines(startSaid.begin(), startSaid.end() - 1));
  EXPECT_EQ(events, (Lines{"switch missing", "caught up"}));
  EXPECT_EQ(problemsNow(), Lines());
  // A later whole state that lacks it says no more; what it would have told is forgotten when the
  // connection is lost.
  EXPECT_EQ(play(whole, {}), Lines());
  import.caughtUp();
  import.step(1000);
  take(whole, "{}");
  import.caughtUp();
  import.inSyncLost();
  EXPECT_EQ(play(whole, start), Lines{"host 5001 :0b = .2"});
  EXPECT_EQ(events, (Lines{"switch missing", "caught up", "switch missing", "switch missing"}));
  import.caughtUp();
  EXPECT_TRUE(import.hasWork());
  EXPECT_FALSE(import.step(1000));
  EXPECT_EQ(events.back(), "caught up");
}

TEST_F(OvsdbRows, TellsWhatIsBadAndGoesOn) {
  const std::string us = ",'logical_switch':@11,'locator':@22";
  const std::string vxlan = ",'encapsulation_type':'vxlan_over_ipv4'";
  const std::map<std::string, std::string> all{
      {"U 61 insert 'MAC':'not-a-mac'" + us, "Ucast_Macs_Remote @61: MAC = not-a-mac"},
      {"U 61 insert 'MAC':'2:0:0:0:0:1'" + us, "Ucast_Macs_Remote @61: MAC = 2:0:0:0:0:1"},
      {"U 61 insert 'MAC':'00:00:00:00:00:00'" + us,
       "Ucast_Macs_Remote @61: MAC = 00:00:00:00:00:00"},
      {"U 61 insert 'MAC':'01:00:5e:00:00:01'" + us,
       "Ucast_Macs_Remote @61: MAC = 01:00:5e:00:00:01"},
      {"U 61 insert 'MAC':'unknown-dst'" + us, "Ucast_Macs_Remote @61: MAC = unknown-dst"},
      {"U 61 insert 'MAC':7" + us, "Ucast_Macs_Remote @61: MAC = 7"},
      {"U 61 insert 'MAC':'" + std::string(90, 'x') + "'" + us,
       "Ucast_Macs_Remote @61: MAC = " + std::string(80, 'x') + "..."},
      {"U 61 insert 'x':1" + us, "Ucast_Macs_Remote @61: MAC = "},
      {"U 61 insert 'MAC':'02:00:00:00:00:01','logical_switch':@11,'locator':['uuid','x']",
       R"(Ucast_Macs_Remote @61: locator = ["uuid","x"])"},
      {"U 61 insert 'MAC':'02:00:00:00:00:01','logical_switch':['set',[]],'locator':@22",
       R"(Ucast_Macs_Remote @61: logical_switch = ["set",[]])"},
      {"M 61 insert 'MAC':'banana','logical_switch':@11,'locator_set':@41",
       "Mcast_Macs_Remote @61: MAC = banana"},
      {"M 61 insert 'MAC':'unknown-dst','logical_switch':@12",
       "Mcast_Macs_Remote @61: locator_set = "},
      {"PL 24 insert 'dst_ip':'banana'" + vxlan, "Physical_Locator @24: dst_ip = banana"},
      {"PL 24 insert 'dst_ip':'2001:db8::2'" + vxlan, "Physical_Locator @24: dst_ip = 2001:db8::2"},
      {"PL 24 insert 'dst_ip':'0.0.0.0'" + vxlan, "Physical_Locator @24: dst_ip = 0.0.0.0"},
      {"PL 24 insert 'dst_ip':'224.0.0.1'" + vxlan, "Physical_Locator @24: dst_ip = 224.0.0.1"},
      {"PL 24 insert 'dst_ip':'239.255.0.1'" + vxlan, "Physical_Locator @24: dst_ip = 239.255.0.1"},
      {"PL 24 insert 'dst_ip':'255.255.255.255'" + vxlan,
       "Physical_Locator @24: dst_ip = 255.255.255.255"},
      {"PL 24 insert 'dst_ip':true" + vxlan, "Physical_Locator @24: dst_ip = true"},
      {"PL 24 insert 'dst_ip':'10.0.0.4','encapsulation_type':'gre'",
       R"(Physical_Locator @24: encapsulation_type = "gre")"},
      {"LS 13 insert 'tunnel_key':-7", "Logical_Switch @13: tunnel_key = -7"},
      {"LS 13 insert 'tunnel_key':16777216", "Logical_Switch @13: tunnel_key = 16777216"},
      {"LS 13 insert 'tunnel_key':18446744073709551615",
       "Logical_Switch @13: tunnel_key = 18446744073709551615"},
      {"LS 13 insert 'tunnel_key':1.5", "Logical_Switch @13: tunnel_key = 1.5"},
      {"LS 13 insert 'tunnel_key':['set',[7,8]]",
       R"(Logical_Switch @13: tunnel_key = ["set",[7,8]])"},
      {"LS 13 insert 'name':['set',[]]", R"(Logical_Switch @13: name = ["set",[]])"},
      {"LS 13 insert 'replication_mode':'both'",
       R"(Logical_Switch @13: replication_mode = "both")"},
      {"PP 4 insert 'vlan_bindings':7", "Physical_Port @4: vlan_bindings = 7"},
      {"PP 4 insert 'vlan_bindings':['map',[[1]]]",
       R"(Physical_Port @4: vlan_bindings = ["map",[[1]]])"},
      {"SET 44 insert 'locators':['set',[@21,7]]",
       "Physical_Locator_Set @44: locators = "
       R"(["set",[["uuid","@21"],7]])"},
      {"PS 5 insert 'tunnel_ips':['set',[7]]", R"(Physical_Switch @5: tunnel_ips = ["set",[7]])"}};
  begin();
  // A row and a list for each locator and switch that turn bad; only what is bad is left out.
  modify({"U 71 insert 'MAC':'02:00:00:00:00:0d','logical_switch':@13,'locator':@24",
          "U 72 insert 'MAC':'02:00:00:00:00:0e','logical_switch':@12,'locator':@24",
          "SET 44 insert 'locators':['set',[]]",
          "M 73 insert 'MAC':'unknown-dst','logical_switch':@12,'locator_set':@44"});
  for (const auto& [line, problem] : all) {
    EXPECT_EQ(modify({line}), Lines()) << line;
    EXPECT_EQ(problemsNow(), Lines{problem});
    const std::string row = line.substr(0, line.find(" insert"));
    EXPECT_EQ(modify({row + " modify 'y':2"}), Lines()) << line;
    EXPECT_EQ(problemsNow(), Lines{problem});
    EXPECT_EQ(modify({row + " delete"}), Lines()) << line;
    EXPECT_EQ(problemsNow(), Lines()) << line;
  }
  EXPECT_EQ(problemsTold, static_cast<int>(all.size()));
  // Good rows that turn bad, and good again.
  EXPECT_EQ(
      modify({"U 31 modify 'MAC':'x'", "PL 23 modify 'dst_ip':'::1'"}),
      (Lines{"list 5001 ff:ff:ff:ff:ff:ff = all .2", "host 5000 :0a gone", "host 5001 :0b gone"}));
  EXPECT_EQ(modify({"U 31 modify 'MAC':'02:00:00:00:00:0b'", "PL 23 modify 'dst_ip':'10.0.0.3'"}),
            (Lines{"list 5001 ff:ff:ff:ff:ff:ff = all .2 .3", "host 5000 :0a = .3",
                   "host 5001 :0b = .2"}));
  EXPECT_EQ(problemsNow(), Lines());
  // A set that is none: differences mean nothing until it is told whole.
  EXPECT_EQ(modify({"SET 41 modify 'locators':'x'"}), Lines{"list 5001 ff:ff:ff:ff:ff:ff gone"});
  EXPECT_EQ(modify({"SET 41 modify 'locators':@22"}), Lines());
  EXPECT_EQ(problemsNow().size(), 1U);
  EXPECT_EQ(modify({start[13]}), Lines{"list 5001 ff:ff:ff:ff:ff:ff = all .2 .3"});
  EXPECT_EQ(problemsNow(), Lines());
}

TEST_F(OvsdbRows, TakesAnyShape) {
  begin();
  const std::string row = "'" + uuidText(31) + "'";
  for (const std::string& text :
       Lines{"{'Nonsense':{" + row + ":{'delete':null}}}",
             "{'Ucast_Macs_Remote':{'x':{'delete':null}}}", "{'Ucast_Macs_Remote':{" + row + ":7}}",
             "{'Ucast_Macs_Remote':{" + row + ":{}}}",
             "{'Ucast_Macs_Remote':{" + row + ":{'insert':[]}}}",
             "{'Ucast_Macs_Remote':{" + row + ":{'x':{}}}}", "{'Ucast_Macs_Remote':[]}"})
    for (const Message form : {differences, rows}) EXPECT_EQ(playText(form, text), Lines()) << text;
  EXPECT_EQ(problemsNow(), (Lines{"Ucast_Macs_Remote = []", "Ucast_Macs_Remote @31 = {\"x\":{}}",
                                  "Ucast_Macs_Remote x = x"}));
  EXPECT_EQ(events, Lines());
  // A difference from what is not there is told; its message goes on, those behind it mean nothing
  // until the whole state comes.
  EXPECT_EQ(modify({"U 81 modify 'locator':@22", "U 82 delete", "U 31 delete"}),
            Lines{"host 5001 :0b gone"});
  EXPECT_EQ(modify({"U 31 modify 'x':1", start.back()}), Lines());
  EXPECT_EQ(play(whole, start), Lines{"host 5001 :0b = .2"});
  // Nor is what others refer to there.
  EXPECT_EQ(modify({"U 83 insert 'MAC':'02:00:00:00:00:0b','logical_switch':@85,'locator':@22"}),
            Lines());
  EXPECT_EQ(modify({"LS 85 modify 'tunnel_key':5002", "U 83 delete"}), Lines());
  EXPECT_EQ(play(whole, start), Lines());
  EXPECT_EQ(events, (Lines{"unknown Ucast_Macs_Remote " + uuidText(81),
                           "unknown Logical_Switch " + uuidText(85)}));
  // A column twice.
  EXPECT_EQ(
      modify({"PP 4 insert 'vlan_bindings':7,'vlan_bindings':['map',[[0,@11]]]", "PP 4 delete"}),
      Lines());
  EXPECT_EQ(problemsNow(), Lines());
  // Rows as they were and are.
  EXPECT_EQ(playText(rows, "{'Ucast_Macs_Remote':{" + row + ":{'old':{'locator':@22},'new':" +
                               "{'MAC':'02:00:00:00:00:0b','logical_switch':@11,'locator':@23}}}}"),
            Lines{"host 5001 :0b = .3"});
  EXPECT_EQ(play(rows, {"U 31 old 'MAC':'02:00:00:00:00:0b'"}), Lines{"host 5001 :0b gone"});
}

// Rows that come and go, each with a uuid of its own, leave nothing behind.
TEST_F(OvsdbRows, TakesNoMoreSlotsThanThereAreRows) {
  begin();
  std::size_t slots = 0;
  for (int i = 100; i < 1000; i += 10) {
    const auto number = [i](int row) { return std::to_string(i + row); };
    const auto refer = [i](int row) { return '@' + std::to_string(i + row); };
    modify(
        {"PP 3 modify 'vlan_bindings':['map',[[99," + refer(1) + "]]]",
         "LS " + number(1) + " insert 'name':'n','tunnel_key':7",
         "PL " + number(2) + " insert 'dst_ip':'10.0.0.7','encapsulation_type':'vxlan_over_ipv4'",
         "SET " + number(3) + " insert 'locators':" + refer(2),
         "U " + number(4) + " insert 'MAC':'02:00:00:00:00:0f','logical_switch':" + refer(1) +
             ",'locator':" + refer(2),
         "M " + number(5) + " insert 'MAC':'unknown-dst','logical_switch':" + refer(1) +
             ",'locator_set':" + refer(3)});
    ASSERT_EQ(believer.said.size(), startSaid.size() + 2);
    modify({"LS " + number(1) + " delete", "PL " + number(2) + " delete",
            "SET " + number(3) + " delete", "U " + number(4) + " delete",
            "M " + number(5) + " delete",
            "PP 3 modify 'vlan_bindings':['map',[[99," + refer(1) + "]]]"});
    if (i == 100) slots = import.slots();
  }
  EXPECT_EQ(import.slots(), slots);
}

// A database of the test's own, which changes at random and knows what it would send.
class Database {
 public:
  explicit Database(unsigned seed) : random_(seed) {
    rows_["PS 1"] = {{"name", {{"", "'us'"}}}, {"tunnel_ips", {{"'10.0.0.1'", ""}}}};
  }

  void change() {
    before_ = rows_;
    for (int count = below(6); count >= 0; --count) changeRow();
  }

  Lines differences() const {
    Lines lines;
    for (const auto& [name, row] : before_)
      if (!rows_.contains(name)) lines.push_back(name + " delete");
    for (const auto& [name, row] : rows_) {
      const auto old = before_.find(name);
      if (old == before_.end())
        lines.push_back(name + " insert " + text(row));
      else if (old->second != row)
        lines.push_back(name + " modify " + text(difference(old->second, row)));
    }
    return lines;
  }

  Lines all(const std::string& event) const {
    Lines lines;
    for (const auto& [name, row] : rows_) lines.push_back(name + ' ' + event + ' ' + text(row));
    return lines;
  }

  int below(int end) { return static_cast<int>(random_() % static_cast<unsigned>(end)); }

 private:
  // One value under "", the members of a set as keys, or a map.
  using Column = std::map<std::string, std::string>;
  using Row = std::map<std::string, Column>;

  static bool isMap(const std::string& name) { return name == "vlan_bindings"; }
  static bool isSet(const std::string& name) {
    return name == "ports" || name == "locators" || name == "tunnel_ips";
  }

  static std::string text(const Row& row) {
    std::string all;
    for (const auto& [name, column] : row) {
      std::string members;
      for (const auto& [key, value] : column) {
        if (!members.empty()) members += ',';
        members += isMap(name) ? '[' + key + ',' + value + ']' : key + value;
      }
      if (isMap(name)) members = "['map',[" + members + "]]";
      if (isSet(name) && column.size() != 1) members = "['set',[" + members + "]]";
      all += (all.empty() ? "'" : ",'") + name + "':" + members;
    }
    return all;
  }

  static Row difference(const Row& old, const Row& now) {
    Row different;
    for (const auto& [name, column] : now) {
      Column was = old.contains(name) ? old.at(name) : Column();
      if (was == column) continue;
      Column& told = different[name] = column;
      if (!isMap(name) && !isSet(name)) continue;
      for (const auto& [key, value] : was) {
        if (!column.contains(key) || column.at(key) != value)
          told.try_emplace(key, value);
        else
          told.erase(key);
      }
    }
    return different;
  }

  std::string one(int first, int count) { return '@' + std::to_string(first + below(count)); }
  Column some(int first, int count) {
    Column members;
    for (int i = 0; i < count; ++i)
      if (below(2) == 0) members['@' + std::to_string(first + i)] = "";
    return members;
  }
  std::string mac(int first) {
    return "'02:00:00:00:00:0" + std::to_string(first + below(3)) + "'";
  }

  void changeRow() {
    const int number = below(20);
    const auto row = [&](const std::string& table, int first, int count) -> Row* {
      const std::string name = table + ' ' + std::to_string(first + below(count));
      if (below(4) != 0) return &rows_[name];
      rows_.erase(name);
      return nullptr;
    };
    if (number == 0) {
      rows_["PS 1"]["ports"] = below(3) == 0 ? some(2, 2) : Column{{"@2", ""}, {"@3", ""}};
    } else if (number == 1) {
      if (Row* port = row("PP", 2, 2))
        (*port)["vlan_bindings"] = {{std::to_string(below(3)), one(11, 3)},
                                    {std::to_string(below(3) + 10), one(11, 3)}};
    } else if (number == 2) {
      const int name = below(3);
      if (Row* logicalSwitch = row("LS", 11 + name, 1)) {
        const Lines keys{"0", "-7", "['set',[]]", std::to_string(5000 + name),
                         std::to_string(6000 + name)};
        (*logicalSwitch)["tunnel_key"][""] = keys[static_cast<std::size_t>(std::min(below(12), 4))];
        (*logicalSwitch)["replication_mode"][""] = below(2) == 0 ? "'source_node'" : "['set',[]]";
      }
    } else if (number == 3) {
      if (Row* locator = row("PL", 21, 4))
        *locator = {
            {"dst_ip",
             {{"", below(6) == 0 ? "'banana'" : "'10.0.0." + std::to_string(1 + below(4)) + "'"}}},
            {"encapsulation_type", {{"", "'vxlan_over_ipv4'"}}}};
    } else if (number == 4) {
      if (Row* set = row("SET", 41, 3)) (*set)["locators"] = some(21, 4);
    } else if (number < 8) {
      if (Row* list = row("M", 51, 9))
        *list = {{"MAC", {{"", below(2) == 0 ? "'unknown-dst'" : mac(1)}}},
                 {"logical_switch", {{"", one(11, 3)}}},
                 {"locator_set", {{"", one(41, 3)}}}};
    } else if (Row* host = row("U", 31, 9)) {
      *host = {{"MAC", {{"", below(9) == 0 ? "'x'" : mac(1)}}},
               {"logical_switch", {{"", one(11, 3)}}},
               {"locator", {{"", one(21, 4)}}}};
    }
  }

  std::mt19937 random_;
  std::map<std::string, Row> rows_;
  std::map<std::string, Row> before_;
};

// After each message, all that has been said so far is what the whole state says to one who has
// heard nothing before.
TEST(OvsdbRowsAtRandom, DifferencesEndWhereTheWholeStateDoes) {
  // Numbers that were given for want of a tag depend on what was before.
  const auto withoutGivenVlans = [](std::map<std::string, std::string> said) {
    for (auto& [what, value] : said)
      if (what.starts_with("vni ") && value.size() == 4) value = "given";
    return said;
  };
  std::size_t facts = 0;
  for (unsigned seed = 1; seed <= 8; ++seed) {
    Database database(seed);
    Imported followed;
    Imported another;
    followed.play(Imported::whole, database.all("initial"));
    another.play(Imported::wholeRows, database.all("new"));
    for (int message = 0; message < 150; ++message) {
      database.change();
      const Lines told = database.below(8) == 0
                             ? followed.play(Imported::whole, database.all("initial"))
                             : followed.play(Imported::differences, database.differences());
      EXPECT_EQ(another.play(Imported::wholeRows, database.all("new")), told);
      Imported fresh;
      fresh.play(Imported::wholeRows, database.all("new"));
      ASSERT_EQ(withoutGivenVlans(followed.believer.said), withoutGivenVlans(fresh.believer.said))
          << "seed " << seed << ", message " << message;
      ASSERT_EQ(followed.problemsNow(), fresh.problemsNow());
      ASSERT_EQ(followed.events, Lines());
      facts += followed.believer.said.size();
    }
  }
  EXPECT_GT(facts, 2000U);
}

}  // namespace
