// From table updates to announcements: what each message makes the import say, in which order, and
// which problems it raises and cures.
#include <algorithm>
#include <gtest/gtest.h>
#include <initializer_list>
#include <map>
#include <memory>
#include <random>
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
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

// "@7" becomes ["uuid", "..."], (a,b) a set, <a,b|c,d> a map, and ' becomes ". '.2' is 10.0.0.2,
// ':0a' is 02:00:00:00:00:0a.
std::string json(std::string text) {
  for (const auto& [from, to] :
       std::initializer_list<std::pair<const char*, const char*>>{{"'.", "'10.0.0."},
                                                                  {":':", ":'02:00:00:00:00:"},
                                                                  {"(", "['set',["},
                                                                  {")", "]]"},
                                                                  {"<", "['map',[["},
                                                                  {"|", "],["},
                                                                  {">", "]]]"},
                                                                  {"'", "\""}})
    text = replaced(text, from, to);
  for (std::size_t at = 0; (at = text.find('@', at)) != std::string::npos;) {
    std::size_t digits = 0;
    const auto number = std::stoull(text.substr(at + 1), &digits);
    text.replace(at, digits + 1, R"(["uuid",")" + uuidText(number) + R"("])");
  }
  return text;
}

Lines split(const std::string& text, const std::string& separator) {
  Lines parts;
  for (std::size_t at = 0, end = 0; end != std::string::npos; at = end + separator.size()) {
    end = text.find(separator, at);
    if (end != at) parts.push_back(text.substr(at, end - at));
  }
  if (!parts.empty() && parts.back().empty()) parts.pop_back();
  return parts;
}

std::string joined(const Lines& parts) {
  std::string all;
  for (const std::string& part : parts) all += (all.empty() || part.empty() ? "" : "; ") + part;
  return all;
}

std::string shortened(const std::string& text) {
  return replaced(replaced(replaced(text, "02:00:00:00:00:", ":"), "10.0.0.", "."),
                  "ff:ff:ff:ff:ff:ff", "*");
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
    return shortened(out.str());
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
  std::string play(Message form, const std::string& rows) {
    static const std::map<std::string, std::string> events{
        {"+", "insert"}, {"-", "delete"}, {"~", "modify"}};
    std::string tables;
    for (const std::string& line : split(rows, "; ")) {
      std::istringstream in(line);
      std::string table;
      std::string event;
      std::string columns;
      std::uint64_t number = 0;
      std::getline(in >> table >> number >> event, columns);
      if (const auto known = events.find(event); known != events.end()) event = known->second;
      tables += (tables.empty() ? "{'" : ",'") + tableNames.at(table) + "':{'" + uuidText(number) +
                "':{'" + event + "':{" + columns + "}}}";
    }
    return playText(form, tables.empty() ? "{}" : tables + '}');
  }

  std::string playText(Message form, const std::string& tables) {
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

  std::string said() { return joined(std::exchange(believer.told, {})); }

  // "place = value" of all, with uuids as @number.
  std::string problemsNow() const {
    Lines all;
    for (const auto& [what, problem] : problems.all()) {
      all.push_back(shortened(what + " = " + problem.value));
      for (std::uint64_t number = 1; number < 100; ++number)
        all.back() = replaced(all.back(), uuidText(number), '@' + std::to_string(number));
    }
    return joined(all);
  }

  Believer believer;
  std::string events;  // each with "; " behind it
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
                {[this] { events += "caught up; "; },
                 [this](const std::string& row) { events += "unknown " + row + "; "; },
                 [this] { events += "switch missing; "; }}};
};

// Two ports, three switches of which two have a VNI, hosts and a list.
const std::string start =
    "PS 1 initial 'name':'us','tunnel_ips':'.1','ports':(@2,@3); "
    "PP 2 initial 'vlan_bindings':<10,@11|20,@12>; "
    "PP 3 initial 'vlan_bindings':<0,@12|11,@11|30,@13>; "
    "LS 11 initial 'name':'one','tunnel_key':5001,'replication_mode':'source_node'; "
    "LS 12 initial 'name':'two','tunnel_key':(5000); "
    "LS 13 initial 'name':'three','tunnel_key':(); "
    "PL 21 initial 'dst_ip':'.1','encapsulation_type':'vxlan_over_ipv4'; "
    "PL 22 initial 'dst_ip':'.2','encapsulation_type':'vxlan_over_ipv4'; "
    "PL 23 initial 'dst_ip':'.3','encapsulation_type':'vxlan_over_ipv4'; "
    "U 31 initial 'MAC':':0b','logical_switch':@11,'locator':@22; "
    "U 32 initial 'MAC':':0A','logical_switch':@11,'locator':@21; "
    "U 33 initial 'MAC':':0a','logical_switch':@12,'locator':@23; "
    "U 34 initial 'MAC':':0c','logical_switch':@13,'locator':@23; "
    "SET 41 initial 'locators':(@23,@21,@22); "
    "M 51 initial 'MAC':'unknown-dst','logical_switch':@11,'locator_set':@41";
const std::string announced =
    "vni 5000 = 20; vni 5001 = 10; list 5001 * = all .2 .3; host 5000 :0a = .3; host 5001 :0a = .1";
const std::string startSaid = "Vxlan1 10.0.0.1; " + announced + "; host 5001 :0b = .2";

// Plays scripts of lines "MESSAGE => WHAT IS SAID", which go on where they are indented. A message
// has rows, or "whole": that is `start` without the rows that it names. "problems" behind it asks.
class OvsdbRows : public testing::Test, public Imported {
 protected:
  void SetUp() override { ASSERT_EQ(play(whole, start), startSaid); }

  static std::string startWithout(const std::string& gone) {
    std::string kept;
    for (const std::string& line : split(start, "; "))
      if (gone.find(line.substr(0, line.find(" i"))) == std::string::npos) kept += line + "; ";
    return kept;
  }

  std::string outcome(std::string message) {
    const bool asks = message.ends_with("problems");
    if (asks) message.resize(message.size() - 8);
    const std::string said = message.starts_with("whole") ? play(whole, startWithout(message))
                                                          : play(differences, message);
    return asks ? joined({said, problemsNow()}) : said;
  }

  void expect(const std::string& script) {
    for (const std::string& line : split(replaced(script, "\n      ", " "), "\n")) {
      const auto arrow = line.find(" =>");
      EXPECT_EQ(outcome(line.substr(2, arrow - 2)), line.substr(std::min(arrow + 4, line.size())))
          << line;
    }
  }
};

TEST_F(OvsdbRows, SaysAWholeStateInOrder) {
  EXPECT_EQ(believer.commits, 1);
  // The same again, in either form and any order, says nothing; what is lacking goes.
  Lines reversed = split(start, "; ");
  std::reverse(reversed.begin(), reversed.end());
  EXPECT_EQ(play(whole, joined(reversed)), "");
  EXPECT_EQ(play(wholeRows, replaced(start, " initial ", " new ")), "");
  expect(R"(
  whole U 31, LS 12, M 51 => list 5001 * gone; host 5000 :0a gone; host 5001 :0b gone; vni 5000 gone
  whole; problems => vni 5000 = 20; list 5001 * = all .2 .3; host 5000 :0a = .3; host 5001 :0b = .2
)");
}

// Of rows for one MAC the lowest VTEP wins.
TEST_F(OvsdbRows, FollowsHostsThroughMoves) {
  expect(R"(
  U 31 ~ 'locator':@23 => host 5001 :0b = .3
  U 35 + 'MAC':':0b','logical_switch':@11,'locator':@22; U 31 - => host 5001 :0b = .2
  U 36 + 'MAC':':0b','logical_switch':@11,'locator':@21;
      U 37 + 'MAC':':0b','logical_switch':@11,'locator':@23 => host 5001 :0b = .1
  U 36 - => host 5001 :0b = .2
  U 35 - => host 5001 :0b = .3
  U 37 ~ 'logical_switch':@12 => host 5000 :0b = .3; host 5001 :0b gone
  U 37 ~ 'MAC':':0e' => host 5000 :0b gone; host 5000 :0e = .3
  PL 23 ~ 'dst_ip':'.4' => list 5001 * = all .2 .4; host 5000 :0a = .4; host 5000 :0e = .4
  PL 23 - => list 5001 * = all .2; host 5000 :0a gone; host 5000 :0e gone
  U 33 -; U 34 -; U 37 -; problems =>
)");
}

TEST_F(OvsdbRows, FollowsLists) {
  expect(R"(
  SET 41 ~ 'locators':@23 => list 5001 * = all .2
  LS 11 ~ 'replication_mode':'service_node' => list 5001 * = any .2
  LS 11 ~ 'replication_mode':('source_node') => list 5001 * = all .2
  LS 11 ~ 'replication_mode':() => list 5001 * = any .2
  SET 42 + 'locators':(@23,@22);
      M 52 + 'MAC':'unknown-dst','logical_switch':@11,'locator_set':@42;
      M 53 + 'MAC':'01:00:5e:00:00:01','logical_switch':@12,'locator_set':@42;
      M 54 + 'MAC':':0a','logical_switch':@11,'locator_set':@42 =>
      list 5000 01:00:5e:00:00:01 = any .2 .3; list 5001 :0a = any .2 .3; list 5001 * = any .2 .3
  M 52 ~ 'MAC':'ff:ff:ff:ff:ff:fe' => list 5001 ff:ff:ff:ff:ff:fe = any .2 .3; list 5001 * = any .2
  M 52 ~ 'locator_set':@41; M 54 - => list 5001 :0a gone; list 5001 ff:ff:ff:ff:ff:fe = any .2
  SET 41 ~ 'locators':@22 => list 5001 ff:ff:ff:ff:ff:fe gone; list 5001 * gone
  PS 1 ~ 'tunnel_ips':'.1'; problems => Physical_Switch us: tunnel_ips = 
  PS 1 ~ 'tunnel_ips':('.3','.10','::1','0.0.0.0'); problems =>
      Vxlan1 10.0.0.10; list 5001 ff:ff:ff:ff:ff:fe = any .1; list 5001 * = any .1;
      Physical_Switch us: tunnel_ips = 0.0.0.0
  PS 1 ~ 'tunnel_ips':('.10','0.0.0.0'); problems =>
      Vxlan1 10.0.0.3; list 5000 01:00:5e:00:00:01 = any .2
)");
}

TEST_F(OvsdbRows, TellsWhatIsMeantFromWhatTheControllerWithdraws) {
  const std::string gone =
      "list 5001 * gone?; host 5001 :0a gone?; host 5001 :0b gone?; vni 5001 gone?";
  const std::string back =
      "vni 5001 = 11; list 5001 * = all .2 .3; host 5001 :0a = .1; host 5001 :0b = .2";
  const Lines rows = split(start, "; ");
  std::string script = R"(
  PP 2 ~ 'vlan_bindings':<10,@11> => vni 5001 = 11
  PS 1 ~ 'ports':@3 => MEANT
  PS 1 ~ 'ports':(@3) => BACK
  PP 3 ~ 'vlan_bindings':<11,@11>; U 31 -; M 51 => MEANT
  PP 3 ~ 'vlan_bindings':<11,@11>; HOST; LIST => BACK
  LS 11 ~ 'tunnel_key':0 => GONE
  LS 11 ~ 'tunnel_key':5001 => BACK
  LS 11 ~ 'tunnel_key':(); PS 1 ~ 'ports':@3 => MEANT
  LS 11 ~ 'tunnel_key':5001; PS 1 ~ 'ports':@3 => BACK
  LS 11 - => GONE
  SWITCH => BACK
  LS 11 ~ 'tunnel_key':4000 =>
      vni 4000 = 11; list 5001 * gone; list 4000 * = all .2 .3; host 5001 :0a gone;
      host 5001 :0b gone; host 4000 :0a = .1; host 4000 :0b = .2; vni 5001 gone
  LS 11 ~ 'tunnel_key':5000; LS 12 ~ 'tunnel_key':4000 =>
      vni 4000 = 20; vni 5000 = 11; list 4000 * gone; list 5000 * = all .2 .3; host 4000 :0a gone;
      host 4000 :0b gone; host 5000 :0a gone; host 4000 :0a = .3; host 5000 :0a = .1;
      host 5000 :0b = .2
  PS 1 -; problems =>
      list 5000 * gone, meant; host 4000 :0a gone, meant; host 5000 :0a gone, meant;
      host 5000 :0b gone, meant; vni 4000 gone, meant; vni 5000 gone, meant; Physical_Switch us = 
  OURS; problems =>
      vni 4000 = 20; vni 5000 = 11; list 5000 * = all .2 .3; host 4000 :0a = .3; host 5000 :0a = .1;
      host 5000 :0b = .2
)";
  for (const auto& [word, text] :
       std::map<std::string, std::string>{{"M 51 =>", "M 51 - =>"},
                                          {"MEANT", replaced(gone, "?", ", meant")},
                                          {"GONE", replaced(gone, "?", "")},
                                          {"BACK", back},
                                          {"OURS", rows[0]},
                                          {"SWITCH", rows[3]},
                                          {"HOST", rows[9]},
                                          {"LIST", rows[14]}})
    script = replaced(script, word, text);
  expect(script);
  // A whole state may have lost what it lacks.
  Imported another;
  another.play(whole, start);
  EXPECT_EQ(another.play(whole, startWithout("PP 2, PP 3, U 31, M 51")),
            "list 5001 * gone; host 5000 :0a gone, meant; host 5001 :0a gone, meant; "
            "host 5001 :0b gone; vni 5000 gone, meant; vni 5001 gone, meant");
}

// Its own tag that no other switch has; else a free one, from the last, which is kept for a switch
// that has no VNI for a moment, but not for one that is unbound.
TEST_F(OvsdbRows, GivesEachVniAVlan) {
  std::string all;
  for (int vlan = 1; vlan <= 4094; ++vlan)
    all += (vlan == 1 ? "" : "|") + std::to_string(vlan) + ",@14";
  expect(R"(
  LS 13 ~ 'tunnel_key':16777215 => vni 16777215 = 30; host 16777215 :0c = .3
  PP 3 ~ 'vlan_bindings':<5,@11|4094,@11> => vni 5001 = 5
  PP 3 ~ 'vlan_bindings':<5,@14|10,@14|11,@14|4094,@11> => vni 5001 = 4094
  PP 2 ~ 'vlan_bindings':<20,@12> => vni 5000 = 4093
  PP 3 ~ 'vlan_bindings':<10,@14> => vni 5001 = 10
  PP 3 ~ 'vlan_bindings':<4093,@13> => vni 5000 = 4094
  LS 12 ~ 'tunnel_key':0 => host 5000 :0a gone; vni 5000 gone
  PP 3 ~ 'vlan_bindings':<10,@15> => vni 5001 = 4092
  LS 12 ~ 'tunnel_key':5000 => vni 5000 = 4094; host 5000 :0a = .3
  PP 3 ~ 'vlan_bindings':<0,@13|30,@13|4093,@13> =>
      vni 16777215 = 4094; host 5000 :0a gone, meant; vni 5000 gone, meant
  PP 2 ~ 'vlan_bindings':<0,@12> => vni 5000 = 4093; host 5000 :0a = .3
  PP 2 ~ 'vlan_bindings':<0,@12> => host 5000 :0a gone, meant; vni 5000 gone, meant
  PP 3 ~ 'vlan_bindings':<5000,@12|-1,@12|4095,@12>; problems =>
      Physical_Port @3: vlan_bindings = -1
  PP 3 ~ 'vlan_bindings':<-1,@12|5000,@12>; problems => Physical_Port @3: vlan_bindings = 4095
  PP 3 ~ 'vlan_bindings':<4095,@12>; problems =>
  PS 1 ~ 'ports':@4; PP 4 + 'vlan_bindings':<)" +
         all + R"(>; problems =>
      list 5001 * gone; host 5001 :0a gone; host 5001 :0b gone; host 16777215 :0c gone;
      vni 5001 gone; vni 16777215 gone; Logical_Switch @11: VNI = 5001;
      Logical_Switch @13: VNI = 16777215
  PP 4 ~ 'vlan_bindings':<1,@14> =>
      vni 5001 = 1; list 5001 * = all .2 .3; host 5001 :0a = .1; host 5001 :0b = .2
  PS 1 -; problems =>
      list 5001 * gone, meant; host 5001 :0a gone, meant; host 5001 :0b gone, meant;
      vni 5001 gone, meant; Physical_Switch us = 
)");
}

// Who has it already, then the lowest name.
TEST_F(OvsdbRows, GivesAVniToOneSwitch) {
  expect(R"(
  LS 13 ~ 'tunnel_key':5001,'name':'a'; problems => Logical_Switch @13: VNI = 5001
  LS 11 ~ 'tunnel_key':(); problems =>
      vni 5001 = 30; list 5001 * gone; host 5001 :0a gone; host 5001 :0b gone; host 5001 :0c = .3
  LS 11 ~ 'tunnel_key':5001; problems => Logical_Switch @11: VNI = 5001
  PS 1 ~ 'ports':(@2,@3); problems =>
      host 5000 :0a gone, meant; host 5001 :0c gone, meant; vni 5000 gone, meant;
      vni 5001 gone, meant
  PS 1 ~ 'ports':(@2,@3) =>
      vni 5000 = 20; vni 5001 = 30; host 5000 :0a = .3; host 5001 :0c = .3
  PS 1 ~ 'ports':(@2,@3); LS 13 ~ 'name':'z' =>
      host 5000 :0a gone, meant; host 5001 :0c gone, meant; vni 5000 gone, meant;
      vni 5001 gone, meant
  PS 1 ~ 'ports':(@2,@3) =>
      vni 5000 = 20; vni 5001 = 10; list 5001 * = all .2 .3; host 5000 :0a = .3;
      host 5001 :0a = .1; host 5001 :0b = .2
)");
}

TEST_F(OvsdbRows, WaitsForItsSwitch) {
  Imported waiting;
  EXPECT_EQ(waiting.play(whole, startWithout("PS 1")), "");
  waiting.import.caughtUp();
  EXPECT_EQ(waiting.play(differences, "PS 9 + 'name':'other','tunnel_ips':'.9','ports':@3"), "");
  EXPECT_EQ(waiting.play(differences, "U 31 -"), "");
  EXPECT_EQ(waiting.events, "switch missing; ");
  EXPECT_EQ(waiting.problemsNow(), "Physical_Switch us = ");
  EXPECT_EQ(waiting.believer.commits, 0);
  EXPECT_EQ(waiting.play(differences, split(start, "; ")[0]), "Vxlan1 10.0.0.1; " + announced);
  EXPECT_EQ(waiting.problemsNow(), "");
  // A later whole state that lacks it says no more; what it would have told is forgotten when the
  // connection is lost.
  EXPECT_EQ(waiting.play(whole, ""), "");
  waiting.import.caughtUp();
  waiting.import.step(1000);
  waiting.take(whole, "{}");
  waiting.import.caughtUp();
  waiting.import.inSyncLost();
  EXPECT_EQ(waiting.play(whole, start), "host 5001 :0b = .2");
  EXPECT_EQ(waiting.events, "switch missing; caught up; switch missing; switch missing; ");
  waiting.import.caughtUp();
  EXPECT_TRUE(waiting.import.hasWork());
  EXPECT_FALSE(waiting.import.step(1000));
  EXPECT_EQ(waiting.events,
            "switch missing; caught up; switch missing; switch missing; caught up; ");
}

// A row, the column, and the value that is shown.
const std::string badRows = R"(
  U 61 'MAC':'not-a-mac'US => MAC = not-a-mac
  U 61 'MAC':'2:0:0:0:0:1'US => MAC = 2:0:0:0:0:1
  U 61 'MAC':'00:00:00:00:00:00'US => MAC = 00:00:00:00:00:00
  U 61 'MAC':'01:00:5e:00:00:01'US => MAC = 01:00:5e:00:00:01
  U 61 'MAC':'unknown-dst'US => MAC = unknown-dst
  U 61 'MAC':7US => MAC = 7
  U 61 'MAC':'X81'US => MAC = X80...
  U 61 'x':1US => MAC = 
  U 61 'MAC':':01','logical_switch':@11,'locator':['uuid','x'] => locator = ["uuid","x"]
  U 61 'MAC':':01','logical_switch':(),'locator':@22 => logical_switch = ["set",[]]
  M 61 'MAC':'banana','logical_switch':@11,'locator_set':@41 => MAC = banana
  M 61 'MAC':'unknown-dst','logical_switch':@12 => locator_set = 
  PL 24 'dst_ip':'banana'VXLAN => dst_ip = banana
  PL 24 'dst_ip':'2001:db8::2'VXLAN => dst_ip = 2001:db8::2
  PL 24 'dst_ip':'0.0.0.0'VXLAN => dst_ip = 0.0.0.0
  PL 24 'dst_ip':'224.0.0.1'VXLAN => dst_ip = 224.0.0.1
  PL 24 'dst_ip':'239.255.0.1'VXLAN => dst_ip = 239.255.0.1
  PL 24 'dst_ip':'255.255.255.255'VXLAN => dst_ip = 255.255.255.255
  PL 24 'dst_ip':trueVXLAN => dst_ip = true
  PL 24 'dst_ip':'.4','encapsulation_type':'gre' => encapsulation_type = "gre"
  LS 13 'tunnel_key':-7 => tunnel_key = -7
  LS 13 'tunnel_key':16777216 => tunnel_key = 16777216
  LS 13 'tunnel_key':18446744073709551615 => tunnel_key = 18446744073709551615
  LS 13 'tunnel_key':1.5 => tunnel_key = 1.5
  LS 13 'tunnel_key':(7,8) => tunnel_key = ["set",[7,8]]
  LS 13 'name':() => name = ["set",[]]
  LS 13 'replication_mode':'both' => replication_mode = "both"
  PP 4 'vlan_bindings':7 => vlan_bindings = 7
  PP 4 'vlan_bindings':<1> => vlan_bindings = ["map",[[1]]]
  SET 44 'locators':(@21,7) => locators = ["set",[["uuid","@21"],7]]
  PS 5 'tunnel_ips':(7) => tunnel_ips = ["set",[7]]
)";

TEST_F(OvsdbRows, TellsWhatIsBadAndGoesOn) {
  // A row and a list for each locator and switch that turn bad; only what is bad is left out.
  expect(R"(
  U 71 + 'MAC':':0d','logical_switch':@13,'locator':@24;
      U 72 + 'MAC':':0e','logical_switch':@12,'locator':@24; SET 44 + 'locators':();
      M 73 + 'MAC':'unknown-dst','logical_switch':@12,'locator_set':@44 =>
)");
  std::string script = badRows;
  for (const auto& [word, text] :
       std::map<std::string, std::string>{{"US", ",'logical_switch':@11,'locator':@22"},
                                          {"VXLAN", ",'encapsulation_type':'vxlan_over_ipv4'"},
                                          {"X81", std::string(81, 'x')},
                                          {"X80", std::string(80, 'x')}})
    script = replaced(script, word, text);
  const Lines lines = split(script, "\n");
  for (const std::string& line : lines) {
    const auto columns = line.find('\'') - 1;
    const auto arrow = line.find(" => ");
    const std::string row = line.substr(2, columns - 2);
    const auto space = row.find(' ');
    const std::string problem = tableNames.at(row.substr(0, space)) + " @" + row.substr(space + 1) +
                                ": " + line.substr(arrow + 4);
    EXPECT_EQ(outcome(row + " +" + line.substr(columns, arrow - columns) + "; problems"), problem);
    EXPECT_EQ(outcome(row + " ~ 'y':2; problems"), problem);
    EXPECT_EQ(outcome(row + " -; problems"), "") << line;
  }
  EXPECT_EQ(problemsTold, static_cast<int>(lines.size()));
  // Good rows that turn bad, and good again. A set that is none: differences mean nothing until it
  // is told whole.
  expect(R"(
  U 31 ~ 'MAC':'x'; PL 23 ~ 'dst_ip':'::1' =>
      list 5001 * = all .2; host 5000 :0a gone; host 5001 :0b gone
  U 31 ~ 'MAC':':0b'; PL 23 ~ 'dst_ip':'.3'; problems =>
      list 5001 * = all .2 .3; host 5000 :0a = .3; host 5001 :0b = .2
  SET 41 ~ 'locators':'x' => list 5001 * gone
  SET 41 ~ 'locators':@22; problems =>
      Physical_Locator_Set @41: locators = ["uuid","@22"]
  SET 41 + 'locators':(@23,@21,@22); problems => list 5001 * = all .2 .3
)");
}

TEST_F(OvsdbRows, TakesAnyShape) {
  const std::string row = "'" + uuidText(31) + "'";
  for (const std::string& text :
       Lines{"{'Nonsense':{ROW:{'delete':null}}}", "{'Ucast_Macs_Remote':{'x':{'delete':null}}}",
             "{'Ucast_Macs_Remote':{ROW:7}}", "{'Ucast_Macs_Remote':{ROW:{}}}",
             "{'Ucast_Macs_Remote':{ROW:{'insert':[]}}}", "{'Ucast_Macs_Remote':{ROW:{'x':{}}}}",
             "{'Ucast_Macs_Remote':[]}"})
    for (const Message form : {differences, rows})
      EXPECT_EQ(playText(form, replaced(text, "ROW", row)), "") << text;
  EXPECT_EQ(problemsNow(),
            "Ucast_Macs_Remote = []; Ucast_Macs_Remote @31 = {\"x\":{}}; "
            "Ucast_Macs_Remote x = x");
  // A difference from what is not there is told; its message goes on, those behind it mean nothing
  // until the whole state comes. Nor is what others refer to there. Then a column twice.
  expect(R"(
  U 81 ~ 'locator':@22; U 82 -; U 31 - => host 5001 :0b gone
  U 31 ~ 'x':1; M 51 + 'MAC':'x' =>
  whole => host 5001 :0b = .2
  U 83 + 'MAC':':0b','logical_switch':@85,'locator':@22 =>
  LS 85 ~ 'tunnel_key':5002; U 83 - =>
  whole =>
  PP 4 + 'vlan_bindings':7,'vlan_bindings':<0,@11>; PP 4 -; problems =>
)");
  EXPECT_EQ(events, "unknown Ucast_Macs_Remote " + uuidText(81) + "; unknown Logical_Switch " +
                        uuidText(85) + "; ");
  // Rows as they were and are.
  EXPECT_EQ(playText(rows, "{'Ucast_Macs_Remote':{" + row + ":{'old':{'locator':@22},'new':" +
                               "{'MAC':':0b','logical_switch':@11,'locator':@23}}}}"),
            "host 5001 :0b = .3");
  EXPECT_EQ(play(rows, "U 31 old 'MAC':':0b'"), "host 5001 :0b gone");
}

// Rows that come and go, each with a uuid of its own, leave nothing behind.
TEST_F(OvsdbRows, TakesNoMoreSlotsThanThereAreRows) {
  std::size_t slots = 0;
  for (int i = 100; i < 1000; i += 10) {
    const auto numbered = [i](std::string text) {
      for (int row = 1; row <= 5; ++row)
        text = replaced(text, 'n' + std::to_string(row), std::to_string(i + row));
      return text;
    };
    play(differences,
         numbered("PP 3 ~ 'vlan_bindings':<99,@n1>; LS n1 + 'name':'n','tunnel_key':7; "
                  "PL n2 + 'dst_ip':'.7','encapsulation_type':'vxlan_over_ipv4'; "
                  "SET n3 + 'locators':@n2; U n4 + 'MAC':':0f','logical_switch':@n1,"
                  "'locator':@n2; M n5 + 'MAC':'unknown-dst','logical_switch':@n1,"
                  "'locator_set':@n3"));
    ASSERT_EQ(believer.said.size(), 9U);
    play(differences,
         numbered("LS n1 -; PL n2 -; SET n3 -; U n4 -; M n5 -; PP 3 ~ 'vlan_bindings':<99,@n1>"));
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

  std::string differences() const {
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
    return joined(lines);
  }

  std::string all(const std::string& event) const {
    Lines lines;
    for (const auto& [name, row] : rows_) lines.push_back(name + ' ' + event + ' ' + text(row));
    return joined(lines);
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
      const std::string told = database.below(8) == 0
                                   ? followed.play(Imported::whole, database.all("initial"))
                                   : followed.play(Imported::differences, database.differences());
      // Causes apart: a whole state may lack what has been lost.
      EXPECT_EQ(replaced(another.play(Imported::wholeRows, database.all("new")), ", meant", ""),
                replaced(told, ", meant", ""));
      Imported fresh;
      fresh.play(Imported::wholeRows, database.all("new"));
      ASSERT_EQ(withoutGivenVlans(followed.believer.said), withoutGivenVlans(fresh.believer.said))
          << "seed " << seed << ", message " << message;
      ASSERT_EQ(followed.problemsNow(), fresh.problemsNow());
      ASSERT_EQ(followed.events, "");
      facts += followed.believer.said.size();
    }
  }
  EXPECT_GT(facts, 2000U);
}

}  // namespace
