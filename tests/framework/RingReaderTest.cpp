// The reader of ring files: of damaged ones, of live ones, and of their clocks.
#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>
#include <span>
#include <sstream>

#include "tests/framework/RingFile.h"

namespace TraceTest {

class RingCorruption : public RingFile {
 protected:
  Bytes sample() {
    open(1);
    for (int i = 0; i < 30; ++i) everyKind("text " + std::to_string(i), true);
    Ringlog::close();
    return bytesOfFile();
  }

  static Ringlog::Contents read(const Bytes& bytes, const Bytes& before = {},
                                const Bytes& after = {}) {
    return Ringlog::read(std::as_bytes(std::span(bytes)), std::as_bytes(std::span(before)),
                         std::as_bytes(std::span(after)));
  }

  template <class Number>
  static void put(Bytes& bytes, std::size_t offset, Number number) {
    std::memcpy(bytes.data() + offset, &number, sizeof number);
  }

  // Of the header, and of a level's entry in it; see docs/ring-format.md.
  static constexpr std::size_t levels = 12, sitesOffset = 24, sitesSize = 32, anchors = 48,
                               anchor = 56, level0 = 128, levelSize = 32, tail = 16, head = 24,
                               written = 448, region0 = 4096;
};

TEST_F(RingCorruption, IsSaidInWords) {
  EXPECT_THAT(Ringlog::read(path()).problems, ElementsAre(HasSubstr("No such file")));
  EXPECT_THAT(Ringlog::read(directory).problems, ElementsAre(HasSubstr("Is a directory")));
  EXPECT_THAT(read({}).problems,
              ElementsAre("the file's size is 0, expected a header of 4096 bytes"));
  EXPECT_THAT(read(Bytes(10'000, 'x')).problems, ElementsAre(HasSubstr("no trace ring")));
  const auto bytes = sample();
  EXPECT_THAT(read(bytes).problems, IsEmpty());
  const std::size_t sites = region0 + 10 * 1024;
  const auto firstItem = std::string_view(bytes.data(), bytes.size()).find("bool)", sites) + 5;
  const auto say = [](const std::string& text) { return testing::Contains(HasSubstr(text)); };
  EXPECT_EQ(bytes.at(firstItem + 5), 1) << "the first item is a boolean";
  const auto numberAt = [&](std::size_t offset) {
    std::uint64_t number = 0;
    std::memcpy(&number, bytes.data() + offset, sizeof number);
    return number;
  };
  const std::size_t record = region0 + 3 * 1024, huge = std::size_t{1} << 60;
  const struct {
    std::size_t offset, size;
    std::uint64_t number;
    std::string text;
  } cases[] = {
      {8, 4, 0x04030201, "another byte order"},
      {levels, 4, 11, "the number of levels is 11, expected at most 10"},
      {sitesOffset, 8, bytes.size() + 1, "the offset of the site table"},
      {sitesSize, 8, bytes.size(), "the size of the site table"},
      {sitesSize, 8, numberAt(sitesSize) - 1, "goes beyond the end of the site table"},
      {sites, 4, 0xffffff, "goes beyond the end of the site table"},
      {sites, 4, 1, "site 0 at offset 14336 does not describe a statement"},
      {firstItem + 5, 1, 2, "does not describe a statement"},
      {firstItem + 4, 1, 0x63, "does not describe a statement"},
      {sites + 4, 1, 10, "does not describe a statement"},
      {level0, 8, bytes.size(), "does not lie within the file"},
      {level0 + tail, 8, huge, "are no bounds of records"},
      {level0 + head, 8, huge, "are no bounds of records"},
      {level0 + tail, 8, 4, "are no bounds of records"},
      {level0 + head, 8, numberAt(level0 + head) - 4, "are no bounds of records"},
      {level0 + head, 8, numberAt(level0 + head) - 8, "says a size of"},
      {record + 4, 2, 999, "which the site table does not"},
      {record + 4, 2, 1, "which has other values"},
      {record + 6, 2, 1, "says a size of 8, expected 16"},
      {record + 6, 2, 200, "says a size of 1600"},
  };
  for (const auto& [offset, size, number, text] : cases) {
    auto changed = bytes;
    std::memcpy(changed.data() + offset, &number, size);
    EXPECT_THAT(read(changed).problems, say(text));
  }
  std::filesystem::resize_file(path(), std::size_t{1} << 40);
  EXPECT_THAT(Ringlog::read(path()).problems, say("is 1099511627776, expected at most 67108864"));
}

TEST_F(RingCorruption, CrashesAndHangsNothing) {
  const auto bytes = sample();
  EXPECT_TRUE(rc::check("cut off anywhere, with any bytes changed", [&] {
    // The sites stand at the end, the bounds of the levels at the beginning, and records between.
    const auto damaged = [&] {
      auto changed = bytes;
      changed.resize(
          *rc::gen::element(bytes.size(), *rc::gen::inRange<std::size_t>(0, bytes.size())));
      using Change = std::pair<std::size_t, char>;
      for (const auto& [where, byte] : *rc::gen::container<std::vector<Change>>(
               rc::gen::pair(rc::gen::oneOf(rc::gen::inRange<std::size_t>(0, 600),
                                            rc::gen::inRange<std::size_t>(0, bytes.size())),
                             rc::gen::arbitrary<char>())))
        if (where < changed.size() && where >= 12) changed[where] = byte;
      return changed;
    };
    const auto contents = read(damaged(), damaged(), damaged());
    std::ostringstream out;
    for (const auto& message : contents.messages) out << message << '\n';
    RC_ASSERT(contents.messages.size() <= bytes.size());
  }));
}

TEST_F(RingCorruption, OfALiveFileIsNone) {
  // Copied while it is written: the header first, with the heads of some levels from before, and
  // the regions last, when the oldest records of before have been overwritten.
  open(1);
  MORU_TRACE(1, " seldom");
  const auto say = [](unsigned from, unsigned to) {
    for (unsigned i = from; i < to; ++i) {
      if (i % 2 == 0)
        MORU_TRACE(2, " ", i);
      else
        MORU_TRACE(3, " ", i);
    }
  };
  say(0, 60);
  const auto before = bytesOfFile();
  say(60, 80);
  const auto header = bytesOfFile();
  say(80, 100);
  const auto after = bytesOfFile();
  auto bytes = after;
  std::copy_n(header.begin(), 4096, bytes.begin());
  // Of a time before the numbers wrapped around: it is not new for that.
  put(bytes, region0 + 1024, std::uint32_t{0x90000000});
  const auto all = texts(read(after));
  const auto contents = read(bytes, before, after);
  EXPECT_THAT(contents.problems, IsEmpty());
  const std::vector<std::string> settled(all.begin(), all.end() - 40);
  EXPECT_EQ(texts(contents), settled) << "up to 59";
  EXPECT_GT(settled.size(), 10U);
  EXPECT_THAT(settled.front(), HasSubstr(" seldom"));
  EXPECT_EQ(contents.written, 61U);
  EXPECT_EQ(contents.overwritten(), 61 - settled.size());
  // One level as it was at first: 60 is not seen yet, and so nothing behind it is told.
  put(bytes, level0 + 2 * levelSize + head, std::uint64_t{720});
  EXPECT_EQ(texts(read(bytes, before, after)), settled);
}

TEST_F(RingCorruption, OfTheCountIsNoneOfTheMessages) {
  open(1);
  MORU_TRACE(2, " the first");
  const auto whole = Ringlog::read(path());
  EXPECT_EQ(whole.overwritten(), 0U);
  EXPECT_EQ(whole.wholeSince(), std::nullopt);
  for (unsigned i = 1; i < 100; ++i) MORU_TRACE(8, " ", i);
  Ringlog::close();
  const auto bytes = bytesOfFile();
  const auto plain = read(bytes);
  EXPECT_EQ(plain.wholeSince(7), std::nullopt);
  EXPECT_EQ(plain.wholeSince(8), plain.messages.at(1).time);
  EXPECT_EQ(plain.overwritten(), 100 - plain.messages.size());
  EXPECT_LE(plain.openedAt, plain.messages.at(0).time);
  // Numbers have 32 bits, and the count of the last anchor is about theirs.
  constexpr std::uint64_t wrap = std::uint64_t{1} << 32;
  const struct {
    std::uint64_t anchor, state;
    std::optional<std::uint64_t> written;
  } cases[] = {{0, 1, 100},
               {100, 1, 100},
               {wrap - 9, 1, wrap + 100},
               {wrap + 9, 1, wrap + 100},
               {wrap / 2 + 101, 2, wrap + 100},
               {100, 0, std::nullopt},
               {100, 4, std::nullopt}};
  for (const auto& [anchor, state, expected] : cases) {
    auto changed = bytes;
    put(changed, written, anchor);
    put(changed, written + 8, state);
    const auto contents = read(changed);
    EXPECT_EQ(contents.written, expected) << anchor;
    EXPECT_EQ(contents.overwritten().has_value(), expected.has_value());
    EXPECT_EQ(contents.wholeSince(), plain.wholeSince());
    put(changed, region0 + 8 * 1024, ~std::uint64_t{0});
    EXPECT_EQ(read(changed).overwritten(), std::nullopt) << "damaged";
  }
}

TEST_F(RingCorruption, OfTheClockIsNoneOfTheTimes) {
  open(1);
  auto bytes = bytesOfFile();
  EXPECT_TRUE(
      std::equal(bytes.begin() + anchor, bytes.begin() + anchor + 24, bytes.begin() + anchor + 48))
      << "the first is the last at first";
  everyKind("", true);
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const int before = bytesOfFile().at(anchors);
  Ringlog::close();
  bytes = bytesOfFile();
  EXPECT_EQ(bytes.at(anchors), before + 1) << "the last at the end";
  const auto messages = read(bytes).messages;
  EXPECT_NEAR(static_cast<double>(messages[0].time),
              static_cast<double>(std::chrono::nanoseconds(now).count()), 5e8);
  // A tick is 2 ns; the calendar has been set since the first anchor, and the last of two counts.
  const auto set = [&](unsigned i, std::uint64_t counter, std::int64_t steady, std::int64_t time) {
    put(bytes, anchor + i * 24, messages[0].counter + counter);
    put(bytes, anchor + i * 24 + 8, steady);
    put(bytes, anchor + i * 24 + 16, time);
  };
  constexpr std::int64_t year2001 = 1'000'000'000'000'000'000;
  set(0, 0, 500, 77);
  set(1, 1000, 2500, year2001);
  set(2, 500, 1500, 0);
  put(bytes, anchors, std::uint64_t{4});
  EXPECT_EQ(read(bytes).messages[0].time, year2001 - 2000);
  put(bytes, anchors, std::uint64_t{5});
  EXPECT_EQ(read(bytes).messages[0].time, -1000);
  EXPECT_THAT(testing::PrintToString(read(bytes).messages[0]),
              HasSubstr("1969-12-31 23:59:59.999999000 3 "));
  set(2, 0, 1500, 88);
  EXPECT_EQ(read(bytes).messages[0].time, 88) << "no time has passed between the two";
}

}  // namespace TraceTest
