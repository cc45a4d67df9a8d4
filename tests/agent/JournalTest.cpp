// The journal reader: what it makes of lines, and what it says of those that are wrong.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

#include "agent/journal/Journal.h"
#include "framework/Moru/Exception.h"

namespace {

using Agent::Journal;
using testing::ElementsAre;
using testing::HasSubstr;

// What the reader has against the only line of `text`; empty if nothing.
std::string complaint(const std::string& text) {
  std::istringstream in(text);
  Journal journal(in, "test.jsonl");
  try {
    journal.next();
    return "";
  } catch (const Agent::InputError& error) {
    return error.what();
  } catch (const Moru::RangeException& error) {
    return std::string("RangeException: ") + error.what();
  }
}

std::string set(const std::string& path, const std::string& value) {
  return R"({"set":")" + path + R"(","value":)" + value + "}";
}

// A case a line, "set PATH VALUE" standing for the JSON of that.
TEST(Journal, SaysWhatIsWrongWithALine) {
  std::istringstream cases(R"~({"dump": -> not JSON at column 9 (unexpected end of input; expected
{"dump":"a"} {"dump":"b"} -> not JSON at column 14 (unexpected '{'; expected end of input): expected
 [{"dump":"a"}] -> an array at column 2: expected one JSON object on the line
12 -> no object at column 1: expected one JSON object
{"at":1e999,"dump":"a"} -> the number 1e999 at column 7 is too large
{"d\"1e999":-1,"at":18446744073709551616} -> 18446744073709551616 at column 21 is too large: expected
{} -> no action: expected one of set, del, dump, start, stop, absent
{"start":true,"stop":true} -> two actions, start and stop: expected one
{"dump":"a","dump":"b"} -> dump is given twice
{"dumb":"a"} -> unknown key "dumb": expected an object with any of at, set, del
{"dump":"a","value":1} -> expected it beside set only
{"set":"mlag/state"} -> set has no value
{"del":"mlag/state","value":1} -> expected it beside set only
{"set":1,"value":1} -> set is 1: expected a text
{"start":1} -> start is 1: expected true
{"absent":"mlagStatus"} -> expected an array of inputs, which are vtiStatusDir
{"absent":["mlagStatus","mlag"]} -> the input is "mlag": expected an array
{"absent":[1]} -> expected an array of inputs
{"at":-0.5,"dump":"a"} -> at is -0.5: expected a number of seconds, 0 or
{"at":"1","dump":"a"} -> at is "1": expected a number
{"del":"controler/1"} -> expected a path like controller/NAME/host/MAC
set  1 -> the path is ""
set vti/ {} -> the path is "vti/"
set controller/1/hosts/02:00:00:00:00:01 {} -> expected a path like
set mlag/peer/flood/1/02:00:00:00:00:01/x {} -> expected a path like
{"del":"controller/1/host/02:00:00:00:01"} -> MAC is "02:00:00:00:01": expected a MAC address
{"del":"vlanVniMap/Vxlan1/-1"} -> VLAN is "-1": expected the number
{"del":"mlag/vtepTypeAddr/4294967296"} -> expected a whole number from 0
{"del":"mlag/vtepTypeAddr/18446744073709551615"} -> expected a whole number
set controller/1/host/2:0:0:0:0:1 {} -> vtep is missing
set controller/1/host/2:0:0:0:0:1 [] -> expected an object with any of vtep, moveCount, hostKind
set controller/1/host/2:0:0:0:0:1 {"vtep":1} -> vtep is 1: expected an IPv4 address
set controller/1/host/2:0:0:0:0:1 {"vtep":"::1"} -> vtep is "::1": expected an IPv4 address
set controller/1/host/2:0:0:0:0:1 {"vtep":"10.0.0.2","moveCount":-1} -> moveCount is -1
set controller/1/host/2:0:0:0:0:1 {"vtep":"1.0.0.2","moveCount":4294967296} -> from 0 to 4294967295
set controller/1/host/2:0:0:0:0:1 {"vtep":"10.0.0.2","moveCount":0.5} -> moveCount is 0.5
set controller/1/host/2:0:0:0:0:1 {"vtep":"10.0.0.2","hostKind":256} -> from 0 to 255
set controller/1/host/2:0:0:0:0:1 {"vtep":"10.0.0.2","vtep":"10.0.0.2"} -> vtep is given twice
set controller/1/host/2:0:0:0:0:1 {"vtep":"10.0.0.2","kind":1} -> unknown key "kind"
set controller/a {"type":"fdb"} -> type is "fdb": expected "other"
set controllerState/a {} -> convergenceInProgress is missing
set controllerState/a {"convergenceInProgress":1} -> expected true or false
set controller/1/flood/2:0:0:0:0:1 "10.0.0.2" -> expected an array of IPv4 addresses, or an object
set controller/1/flood/2:0:0:0:0:1 {"10.0.0.2":1} -> value is 1: expected true or false
set controller/1/flood/2:0:0:0:0:1 {"10.0.0.2":true,"10.0.0.2":false} -> expected each key once
set controller/1/flood/2:0:0:0:0:1 {"replace":[],"10.0.0.2":true} -> unknown key "10.0.0.2"
set controller/1/flood/2:0:0:0:0:1 {"replace":{"replace":[]}} -> replace is "replace": expected an IPv4
set vti/Vxlan1 {"vccImportVlans":{"10":true}} -> expected an array of VLANs
set vti/Vxlan1 {"vccImportVlans":["10"]} -> expected the number of a VLAN
set vlanVniMap/Vxlan1/10 1.5 -> value is 1.5: expected the number of a VNI
set vlanVniMap/Vxlan1 {"vniToVlan":{"x":10}} -> the number of a VNI
set mlag/peer/flood/10 {"type":1} -> unknown key "type": expected {}
set l2rib/flood/10/2:0:0:0:0:1 {"type":1} -> dests is missing
set l2rib/flood/10/2:0:0:0:0:1 {"dests":[]} -> type is missing
set vlanVniMap/Vxlan1/4095 1 -> RangeException: VlanId::value
{"del":"vlanVniMap/Vxlan1/0"} -> RangeException: VlanId::value
{"del":"vlanVniMap/Vxlan1/99999999999999999999"} -> RangeException: VlanId::
set vlanVniMap/Vxlan1/10 4294967295 -> RangeException: VniExt::value
set vlanVniMap/Vxlan1/10 4294967306 -> RangeException: VniExt::value
set vlanVniMap/Vxlan1/10 18446744073709551615 -> RangeException: VniExt::
set vti/Vxlan1 {"vccImportVlans":[10,70000]} -> RangeException: VlanId::
set vlanVniMap/Vxlan1 {"vlanToVsp":{"4095":1}} -> RangeException: VlanId::
set vlanVniMap/Vxlan1 {"vniToVlan":{"1":4095}} -> RangeException: VlanIdOrNone::value)~");
  for (std::string each; std::getline(cases, each);) {
    const std::size_t arrow = each.find(" -> ");
    std::string line = each.substr(0, arrow);
    if (line.starts_with("set ")) {
      const std::size_t value = line.find(' ', 4);
      line = set(line.substr(4, value - 4), line.substr(value + 1));
    }
    EXPECT_THAT(complaint(line), HasSubstr(each.substr(arrow + 4))) << line;
  }
  EXPECT_THAT(complaint("{\"d\xc3\xbcmp\":\"\xc3\x28\"}"),
              HasSubstr("at column 11 (invalid string"));
  EXPECT_THAT(complaint({"{\"dump\":\"\0\"}", 12}), HasSubstr("at column 10 (invalid string"));
  EXPECT_THAT(complaint("\xef\xbb\xbf{\"dump\":\"a\"}"),
              HasSubstr("a byte order mark at column 1"));
  EXPECT_THAT(complaint("{\"at\":" + std::string(2000, '[') + std::string(2000, ']') + "}"),
              HasSubstr("nested too deeply"));
  const std::string longest(79, 'a');
  EXPECT_THAT(complaint(set(longest + "b", "1")), HasSubstr('"' + longest + "b\": expected"));
  EXPECT_THAT(complaint(set(longest + "\xc3\xbc", "1")), HasSubstr('"' + longest + "...\": "))
      << "cut before the character and not within it";
}

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
  EXPECT_THROW(journal.next(), Agent::InputError);
  EXPECT_EQ(journal.place(), "test.jsonl:7");
  EXPECT_THROW(journal.next(), Moru::RangeException);
  EXPECT_EQ(journal.at(), 7) << "a line that the data model refuses has its time all the same";
  const auto last = journal.next();
  ASSERT_TRUE(last) << "the last line need not end";
  EXPECT_EQ(std::pair(last->number, last->at), std::pair(std::uint64_t{10}, 7.0));
  EXPECT_TRUE(std::holds_alternative<Agent::Stop>(last->action));
  EXPECT_FALSE(journal.next());
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
      EXPECT_THROW(journal.next(), Agent::InputError);
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
}

}  // namespace
