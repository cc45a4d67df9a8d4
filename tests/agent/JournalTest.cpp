// The journal reader: what it makes of lines, and what it says of those that are wrong.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include "agent/Journal.h"
#include "framework/Moru/Exception.h"

namespace {

using Agent::Journal;
using testing::ElementsAre;
using testing::HasSubstr;
using Vorn::IpAddr;

// What the reader has against the only line of `text`; empty if nothing.
std::string complaint(const std::string& text) {
  std::istringstream in(text);
  Journal journal(in, "test.jsonl");
  try {
    journal.next();
    return "";
  } catch (const Agent::JournalError& error) {
    return error.what();
  } catch (const Moru::RangeException& error) {
    return std::string("RangeException: ") + error.what();
  }
}

std::string set(const std::string& path, const std::string& value) {
  return R"({"set":")" + path + R"(","value":)" + value + "}";
}

// The change of the only line of `text`, which is one of a C.
template <class C>
C changeOf(const std::string& text) {
  std::istringstream in(text);
  return std::get<C>(std::get<Agent::Change>(Journal(in, "test.jsonl").next().value().action));
}

struct Wrong {
  std::string line;
  std::string complaint;
};

void PrintTo(const Wrong& wrong, std::ostream* out) { *out << wrong.line; }

class WrongLine : public testing::TestWithParam<Wrong> {};

TEST_P(WrongLine, IsRefusedWithWhatWasExpected) {
  EXPECT_THAT(complaint(GetParam().line), HasSubstr(GetParam().complaint));
}

INSTANTIATE_TEST_SUITE_P(
    Lines, WrongLine,
    testing::Values(
        Wrong{"{\"dump\":",
              "not JSON at column 9 (unexpected end of input; expected '[', '{', or a"},
        Wrong{R"({"dump":"a"} {"dump":"b"})",
              "not JSON at column 14 (unexpected '{'; expected end of"},
        Wrong{"{\"d\xc3\xbcmp\":\"\xc3\x28\"}",
              "at column 11 (invalid string: ill-formed UTF-8 byte):"},
        Wrong{std::string("{\"dump\":\"\0\"}", 12), "not JSON at column 10 (invalid string"},
        Wrong{"\t[{\"dump\":\"a\"}]", "an array at column 2: expected one JSON object on the line"},
        Wrong{"12", "no object at column 1: expected one JSON object"},
        Wrong{"\xef\xbb\xbf{\"dump\":\"a\"}", "a byte order mark at column 1: expected none"},
        Wrong{R"({"at":1e999,"dump":"a"})", "the number 1e999 at column 7 is too large"},
        Wrong{R"({"d\"1e999":-1,"at":18446744073709551616})",
              "the number 18446744073709551616 at column 21 is too large: expected one that fits"},
        Wrong{"{\"at\":" + std::string(2000, '[') + std::string(2000, ']') + "}",
              "nested too deeply"},
        Wrong{"{}", "no action: expected one of set, del, dump, start, stop, absent"},
        Wrong{R"({"start":true,"stop":true})", "two actions, start and stop: expected one"},
        Wrong{R"({"dump":"a","dump":"b"})", "dump is given twice"},
        Wrong{R"({"dumb":"a"})", "unknown key \"dumb\": expected"},
        Wrong{R"({"dump":"a","value":1})", "expected it beside set only"},
        Wrong{R"({"set":"mlag/state"})", "set has no value"},
        Wrong{R"({"del":"mlag/state","value":1})", "expected it beside set only"},
        Wrong{R"({"set":1,"value":1})", "set is 1: expected a text"},
        Wrong{R"({"start":1})", "start is 1: expected true"},
        Wrong{R"({"stop":false})", "stop is false: expected true"},
        Wrong{R"({"absent":"mlagStatus"})", "expected an array of inputs, which are vtiStatusDir"},
        Wrong{R"({"absent":["mlagStatus","mlag"]})", "the input is \"mlag\": expected an array"},
        Wrong{R"({"absent":[1]})", "expected an array of inputs"},
        Wrong{R"({"at":-0.5,"dump":"a"})", "at is -0.5: expected a number of seconds, 0 or"},
        Wrong{R"({"at":"1","dump":"a"})", "at is \"1\": expected a number"},
        Wrong{R"({"del":"controler/1"})", "expected a path like controller/NAME/host/MAC"}));

INSTANTIATE_TEST_SUITE_P(
    Paths, WrongLine,
    testing::Values(
        Wrong{set("", "1"), "the path is \"\""}, Wrong{set("vti/", "{}"), "the path is \"vti/\""},
        Wrong{set("/vti/Vxlan1", "{}"), "the path is \"/vti/Vxlan1\""},
        Wrong{set("controller/1/hosts/02:00:00:00:00:01", "{}"), "expected a path like"},
        Wrong{set(std::string(80, 'a'), "1"), "\"" + std::string(80, 'a') + "\": expected"},
        Wrong{set(std::string(79, 'a') + "\xc3\xbc", "1"), "\"" + std::string(79, 'a') + "...\": "},
        Wrong{set("mlag/peer/flood/1/02:00:00:00:00:01/x", "{}"), "expected a path like"},
        Wrong{R"({"del":"controller/1/host/02:00:00:00:01"})",
              "MAC is \"02:00:00:00:01\": expected a MAC address"},
        Wrong{R"({"del":"vlanVniMap/Vxlan1/-1"})", "VLAN is \"-1\": expected the number"},
        Wrong{R"({"del":"mlag/vtepTypeAddr/4294967296"})", "expected a whole number from 0"},
        Wrong{R"({"del":"mlag/vtepTypeAddr/18446744073709551615"})", "expected a whole number"}));

const std::string host = "controller/10010/host/02:00:00:00:00:01";
const std::string flood = "controller/10010/flood/02:00:00:00:00:01";
const std::string ribFlood = "l2rib/flood/10/02:00:00:00:00:01";

INSTANTIATE_TEST_SUITE_P(
    Values, WrongLine,
    testing::Values(
        Wrong{set(host, "{}"), "vtep is missing"},
        Wrong{set(host, "[]"), "expected an object with any of vtep, moveCount, hostKind"},
        Wrong{set(host, R"({"vtep":1})"), "vtep is 1: expected an IPv4 address"},
        Wrong{set(host, R"({"vtep":"::1"})"), "vtep is \"::1\": expected an IPv4 address"},
        Wrong{set(host, R"({"vtep":"10.0.0.2","moveCount":-1})"), "moveCount is -1"},
        Wrong{set(host, R"({"vtep":"10.0.0.2","moveCount":4294967296})"), "from 0 to 4294967295"},
        Wrong{set(host, R"({"vtep":"10.0.0.2","moveCount":0.5})"), "moveCount is 0.5"},
        Wrong{set(host, R"({"vtep":"10.0.0.2","hostKind":256})"), "from 0 to 255"},
        Wrong{set(host, R"({"vtep":"10.0.0.2","vtep":"10.0.0.2"})"), "vtep is given twice"},
        Wrong{set(host, R"({"vtep":"10.0.0.2","kind":1})"), "unknown key \"kind\""},
        Wrong{set("controller/a", R"({"type":"fdb"})"), "type is \"fdb\": expected \"other\""},
        Wrong{set("controllerState/a", "{}"), "convergenceInProgress is missing"},
        Wrong{set("controllerState/a", R"({"convergenceInProgress":1})"), "expected true or false"},
        Wrong{set(flood, R"("10.0.0.2")"), "expected an array of IPv4 addresses, or an object"},
        Wrong{set(flood, R"({"10.0.0.2":1})"), "value is 1: expected true or false"},
        Wrong{set(flood, R"({"10.0.0.2":true,"10.0.0.2":false})"), "expected each key once"},
        Wrong{set(flood, R"({"replace":[],"10.0.0.2":true})"), "unknown key \"10.0.0.2\""},
        Wrong{set(flood, R"({"replace":{"replace":[]}})"),
              "replace is \"replace\": expected an IPv4"},
        Wrong{set("vti/Vxlan1", R"({"vccImportVlans":{"10":true}})"), "expected an array of VLANs"},
        Wrong{set("vti/Vxlan1", R"({"vccImportVlans":["10"]})"), "expected the number of a VLAN"},
        Wrong{set("vlanVniMap/Vxlan1/10", "1.5"), "value is 1.5: expected the number of a VNI"},
        Wrong{set("vlanVniMap/Vxlan1", R"({"vniToVlan":{"x":10}})"), "the number of a VNI"},
        Wrong{set("mlag/peer/flood/10", R"({"type":1})"), "unknown key \"type\": expected {}"},
        Wrong{set(ribFlood, R"({"type":1})"), "dests is missing"},
        Wrong{set(ribFlood, R"({"dests":[]})"), "type is missing"}));

INSTANTIATE_TEST_SUITE_P(
    RefusedByTheDataModel, WrongLine,
    testing::Values(
        Wrong{set("vlanVniMap/Vxlan1/4095", "1"), "RangeException: VlanId::value"},
        Wrong{R"({"del":"vlanVniMap/Vxlan1/0"})", "RangeException: VlanId::value"},
        Wrong{R"({"del":"vlanVniMap/Vxlan1/99999999999999999999"})", "RangeException: VlanId::"},
        Wrong{set("vlanVniMap/Vxlan1/10", "4294967295"), "RangeException: VniExt::value"},
        Wrong{set("vlanVniMap/Vxlan1/10", "4294967306"), "RangeException: VniExt::value"},
        Wrong{set("vlanVniMap/Vxlan1/10", "18446744073709551615"), "RangeException: VniExt::"},
        Wrong{set("vti/Vxlan1", R"({"vccImportVlans":[10,70000]})"), "RangeException: VlanId::"},
        Wrong{set("vlanVniMap/Vxlan1", R"({"vlanToVsp":{"4095":1}})"), "RangeException: VlanId::"},
        Wrong{set("vlanVniMap/Vxlan1", R"({"vniToVlan":{"1":4095}})"),
              "RangeException: VlanIdOrNone::value"}));

TEST(Journal, CarriesTheTimeFromLineToLineAndNeverBack) {
  std::istringstream in(
      "\n# head\n{\"dump\":\"a\"}\r\n{\"at\":2.5,\"dump\":\"b\"}\n \t\r\n"
      "{\"at\":2.5,\"dump\":\"c\"}\n{\"at\":2.25,\"dump\":\"d\"}\n"
      "{\"at\":7,\"set\":\"vlanVniMap/Vxlan1/4095\",\"value\":1}\n  # tail\n{\"stop\":true}");
  Journal journal(in, "test.jsonl");
  std::vector<std::pair<std::uint64_t, double>> lines;
  for (int i = 0; i < 3; ++i) {
    const auto line = journal.next();
    ASSERT_TRUE(line);
    lines.emplace_back(line->number, line->at);
  }
  EXPECT_THAT(lines, ElementsAre(std::pair(3, 0.0), std::pair(4, 2.5), std::pair(6, 2.5)));
  EXPECT_THROW(journal.next(), Agent::JournalError);
  EXPECT_EQ(journal.place(), "test.jsonl:7");
  EXPECT_THROW(journal.next(), Moru::RangeException);
  EXPECT_EQ(journal.at(), 7) << "a line that the data model refuses has its time all the same";
  const auto last = journal.next();
  ASSERT_TRUE(last) << "the last line need not end";
  EXPECT_EQ(last->number, 10U);
  EXPECT_EQ(last->at, 7);
  EXPECT_TRUE(std::holds_alternative<Agent::Stop>(last->action));
  EXPECT_FALSE(journal.next());
  EXPECT_FALSE(journal.next());
}

TEST(Journal, FillsInWhatALineLeavesOut) {
  const auto hostSet =
      changeOf<Agent::Set<Agent::ControllerHost>>(set(host, R"({"vtep":"10.0.0.2"})"));
  EXPECT_EQ(hostSet.target.name, Moru::Name("10010"));
  EXPECT_EQ(hostSet.target.mac.value(), 0x020000000001U);
  EXPECT_EQ(hostSet.value.moveCount, 0U);
  EXPECT_EQ(hostSet.value.hostKind, VxlanController::HostKind::standard);

  const auto rib = changeOf<Agent::Set<Agent::RibHost>>(
      set("l2rib/host/2:0:0:0:0:1/10", R"({"vtep":"10.0.0.2","source":7})"));
  EXPECT_EQ(rib.value.hostKind, 16U);
  EXPECT_EQ(rib.value.source, 7U);
  EXPECT_EQ(rib.value.vti, Vorn::IntfId());
  EXPECT_EQ(changeOf<Agent::Set<Agent::RibHost>>(
                set("l2rib/host/2:0:0:0:0:1/10", R"({"vtep":"10.0.0.2"})"))
                .value.source,
            10U);

  const auto vti =
      changeOf<Agent::Set<Agent::Vti>>(set("vti/Vxlan1", R"({"vccImportVlans":[20,10.0,20],)"
                                                         R"("vArpVtepAddr":"10.0.0.9"})"));
  EXPECT_THAT(*vti.value.vccImportVlans, ElementsAre(Bridging::VlanId(10), Bridging::VlanId(20)));
  EXPECT_FALSE(vti.value.controllerClientMode);
  EXPECT_FALSE(vti.value.localVtepAddr);
  EXPECT_EQ(vti.value.vArpVtepAddr, IpAddr::parse("10.0.0.9"));

  EXPECT_TRUE(
      changeOf<Agent::Set<Agent::ControllerEntry>>(set("controller/a b", "{}")).value.instantiated);
  EXPECT_TRUE(
      changeOf<Agent::Set<Agent::ControllerFlood>>(set(flood, R"({"replace":{"10.0.0.3":false}})"))
          .value.replace);
}

TEST(Journal, NamesTheInputsThatAreAbsent) {
  // In the order of the client's constructor.
  const std::vector<std::string> inputs{
      "vtiStatusDir", "controllerStatusBaseDir", "zepStateClientView",  "vxlanHwStatusDir",
      "mlagStatus",   "mlagVxlanStatus",         "zepStateBaseDir",     "vlanVniMaps",
      "zepSde",       "l2RibZepInput",           "zepConvergenceStatus"};
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    const std::size_t next = (i + 1) % inputs.size();
    std::istringstream in(R"({"absent":[")" + inputs[i] + R"(",")" + inputs[next] + R"("]})");
    const auto line = Journal(in, "test.jsonl").next();
    EXPECT_EQ(std::get<Agent::Absent>(line->action).inputs.to_ulong(), 1U << i | 1U << next)
        << inputs[i];
  }
}

// Lengths around the sizes of the buffer and of the longest line.
TEST(Journal, ReadsLinesOfAnyLengthUpToTheLongest) {
  constexpr std::size_t longest = Agent::LineReader::maxLineLength;
  const std::string next = "\n{\"dump\":\"next\"}";
  for (const std::size_t length : {std::size_t{65534}, std::size_t{65535}, std::size_t{65536},
                                   std::size_t{131071}, longest, longest + 1}) {
    std::string text = R"({"dump":"")";
    text.insert(9, length - text.size() - 1, 'x');
    text.append("}").append(next);
    std::istringstream in(text);
    Journal journal(in, "test.jsonl");
    if (length > longest)
      EXPECT_THROW(journal.next(), Agent::JournalError);
    else
      EXPECT_EQ(std::get<Agent::Dump>(journal.next()->action).label.size(), length - 11);
    EXPECT_EQ(std::get<Agent::Dump>(journal.next()->action).label, "next") << length;
    EXPECT_EQ(journal.number(), 2U);
  }
}

TEST(Journal, FindsAStartLineWhereverItStands) {
  for (const auto& [text, found] :
       {std::pair<std::string, bool>{"", false},
        {"{\"dump\":\"start\"}", false},
        {"# {\"start\":true}", false},
        {"{\"start\":false}", false},
        {"{\"at\":5,\"dump\":\"a\"}\nno JSON that starts\n{\"at\":6,\"start\":true}", true},
        {"{\"del\":\"vlanVniMap/\\u0061/4095\"}\n{\"st\\u0061rt\":true}", true}}) {
    std::istringstream in(text);
    EXPECT_EQ(Journal(in, "test.jsonl").findStart(), found) << text;
  }
}

TEST(Journal, TellsAStreamThatFailsFromItsEnd) {
  struct Failing final : std::streambuf {
    int_type underflow() override { throw std::ios_base::failure("broken"); }
  } failing;
  std::istream in(&failing);
  EXPECT_THROW(Journal(in, "test.jsonl").next(), std::ios_base::failure);
  std::istream again(&failing);
  EXPECT_THROW(Journal(again, "test.jsonl").findStart(), std::ios_base::failure);
}

}  // namespace
