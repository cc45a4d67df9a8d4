// From table updates to announcements: what each message makes the import say, in which order, and
// which problems it raises and cures.
#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <string>

#include "tests/agent/OvsdbImported.h"

namespace AgentTest {
namespace {

// Two ports, three switches of which two have a VNI, hosts and a list.
const std::string start =
    "PS 1 initial 'name':'us','tunnel_ips':'.1','ports':(@2,@3); "
    "PP 2 initial 'name':'p2','vlan_bindings':<10,@11|20,@12>; "
    "PP 3 initial 'name':'p3','vlan_bindings':<0,@12|11,@11|30,@13>; "
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
// has rows, or "whole": that is `start` without the rows that it names. "problems" behind it asks
// for them, and "ports" for attachments.
class OvsdbRows : public testing::Test, public Imported {
 protected:
  void SetUp() override {
    looksAlways = true;
    ASSERT_EQ(play(whole, start), startSaid);
  }

  static std::string startWithout(const std::string& gone) {
    std::string kept;
    for (const std::string& line : split(start, "; "))
      if (gone.find(line.substr(0, line.find(" i"))) == std::string::npos) kept += line + "; ";
    return kept;
  }

  std::string outcome(std::string message) {
    const bool asks = message.ends_with("problems");
    const bool asksForPorts = message.ends_with("ports");
    if (asks || asksForPorts) message.resize(message.size() - (asks ? 8 : 5));
    const std::string said = message.starts_with("whole") ? play(whole, startWithout(message))
                                                          : play(differences, message);
    return joined({said, asks ? problemsNow() : asksForPorts ? attachmentsNow() : ""});
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
      Vxlan1 10.0.0.10; list 5000 01:00:5e:00:00:01 = any .2;
      list 5001 ff:ff:ff:ff:ff:fe = any .1; list 5001 * = any .1; Physical_Switch us: tunnel_ips = 0.0.0.0
  PS 1 ~ 'tunnel_ips':('.10','0.0.0.0'); problems =>
      Vxlan1 10.0.0.3
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
  PS 1 ~ 'ports':@4; PP 4 + 'name':'p4','vlan_bindings':<)" +
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

// They stay for a switch whose VNI is gone for a moment, as long as no other switch has it.
TEST_F(OvsdbRows, TellsWhatPortsAreAttachedTo) {
  std::string script = R"(
  ports => ALL
  LS 11 ~ 'tunnel_key':(); LS 12 ~ 'tunnel_key':-7; ports => GONE; host 5000 :0a gone;
      host 5001 :0a gone; host 5001 :0b gone; vni 5000 gone; vni 5001 gone; ALL
  LS 13 ~ 'tunnel_key':5001; ports =>
      vni 5001 = 30; host 5001 :0c = .3;  .1; p2/20 5000; p3/0 5000; p3/30 5001
  LS 13 ~ 'tunnel_key':0; ports =>
      host 5001 :0c gone; vni 5001 gone;  .1; p2/20 5000; p3/0 5000; p3/30 5001
  LS 11 ~ 'tunnel_key':5001; LS 12 ~ 'tunnel_key':5000; ports =>
      vni 5000 = 20; vni 5001 = 10; list 5001 * = all .2 .3; host 5000 :0a = .3; host 5001 :0a = .1;
      host 5001 :0b = .2; ALL
  LS 11 ~ 'tunnel_key':5002; LS 12 ~ 'tunnel_key':5001; LS 13 ~ 'tunnel_key':5001 =>
      vni 5001 = 30; vni 5002 = 10; GONE; list 5002 * = all .2 .3; host 5000 :0a gone;
      host 5001 :0a gone; host 5001 :0b gone; host 5001 :0c = .3; host 5002 :0a = .1;
      host 5002 :0b = .2; vni 5000 gone
  ports =>  .1; p2/10 5002; p3/11 5002; p3/30 5001
  LS 12 ~ 'tunnel_key':(); LS 13 ~ 'tunnel_key':(); ports =>
      host 5001 :0c gone; vni 5001 gone;  .1; p2/10 5002; p3/11 5002; p3/30 5001
  PP 3 ~ 'vlan_bindings':<30,@13>; ports =>  .1; p2/10 5002; p3/11 5002
  PP 3 ~ 'vlan_bindings':<30,@13>; PP 2 ~ 'name':'p4'; ports =>  .1; p3/11 5002; p4/10 5002
  PS 1 ~ 'tunnel_ips':('.10','.2','::1'); ports =>
      list 5002 * = all .3;  .1 .10 .2; p3/11 5002; p4/10 5002
  PS 1 ~ 'tunnel_ips':('.1','.10','.2'); ports =>  .1 .10 .2; p3/11 5002; p4/10 5002
  PS 1 -; ports => list 5002 * gone, meant; host 5002 :0a gone, meant; host 5002 :0b gone, meant;
      vni 5002 gone, meant;  .1 .10 .2
)";
  script = replaced(script, "ALL", " .1; p2/10 5001; p2/20 5000; p3/0 5000; p3/11 5001");
  expect(replaced(script, "GONE", "list 5001 * gone"));
}

TEST_F(OvsdbRows, AttachesPortsByNamesOfInterfaces) {
  const auto expectProblem = [&](const std::string& name, const std::string& problem) {
    const std::string escaped = replaced(replaced(name, ".", "\\u002e"), "\t", "\\t");
    play(differences, "PP 2 ~ 'name':'" + escaped + "'");
    play(differences, "PS 1 ~ 'tunnel_ips':'.9'");  // is no reason to tell it again
    EXPECT_EQ(problemsNow(), problem);
    EXPECT_EQ(attachments.ports.size(), problem.empty() ? 4U : 2U) << name;
  };
  for (const char* const name :
       {"", ".", "..", "a b", "/p", "p:", "p\x7f", "p\t", "0123456789abcdef"})
    expectProblem(name, std::string("Physical_Port @2: interface = ") + name);
  EXPECT_EQ(problemsTold, 9);
  for (const char* const name : {"...", "a", "0123456789abcde", "\u00e9"}) expectProblem(name, "");
  // One name, two ports: that of the lower uuid has it, if it binds.
  expectProblem("p3", "Physical_Port @3: interface = p3");
  expect(R"(
  ports =>  .1; p3/10 5001; p3/20 5000
  PP 2 ~ 'vlan_bindings':<10,@11|20,@12>; ports =>
      vni 5000 = 4094; vni 5001 = 11;  .1; p3/0 5000; p3/11 5001
  PP 2 ~ 'vlan_bindings':<10,@11|20,@12>; PS 1 ~ 'ports':@3; problems =>
      vni 5000 = 20; vni 5001 = 10
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

}  // namespace
}  // namespace AgentTest
