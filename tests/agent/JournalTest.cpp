// The journal reader: what it makes of lines, and what it says of those that are wrong.
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "agent/journal/Journal.h"
#include "framework/Moru/Exception.h"

namespace {

using Agent::Journal;
using testing::ElementsAre;
using testing::HasSubstr;

// Bytes that no file of text holds, and long lines; what else can be wrong with a line stands in
// golden/journal.complaints.
TEST(Journal, SaysWhatIsWrongWithALine) {
  const std::string longest(79, 'a');
  const auto cases = std::to_array<std::pair<std::string, std::string>>({
      {"{\"d\xc3\xbcmp\":\"\xc3\x28\"}", "at column 11 (invalid string"},
      {{"{\"dump\":\"\0\"}", 12}, "at column 10 (invalid string"},
      {"\xef\xbb\xbf{\"dump\":\"a\"}", "a byte order mark at column 1"},
      {"{\"at\":" + std::string(2000, '[') + std::string(2000, ']') + "}", "nested too deeply"},
      {"{\"del\":\"" + longest + "b\"}", '"' + longest + "b\": expected"},
      // Cut before the character and not within it.
      {"{\"del\":\"" + longest + "\xc3\xbc\"}", '"' + longest + "...\": "},
  });
  for (const auto& [line, complaint] : cases) {
    std::istringstream in(line);
    EXPECT_THAT([&] { Journal(in, "test.jsonl").next(); },
                testing::ThrowsMessage<Agent::InputError>(HasSubstr(complaint)));
  }
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
