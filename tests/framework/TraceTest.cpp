// Trace statements, the stream, the ring file and its reader.
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <rapidcheck/gtest.h>
#include <span>
#include <sstream>
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "framework/Moru/Assert.h"
#include "framework/Moru/Name.h"
#include "framework/Moru/Trace.h"
#include "framework/Ringlog/Reader.h"

namespace TraceTest {

inline constinit Moru::TraceFacility traceFacility{"Test"};

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

template <class Value>
struct Traced {
  friend Value traceValue(const Traced& traced) { return traced.value; }
  Value value;
};
constexpr Traced<Ringlog::Ip4Value> vtep{{0x0a000002}};
constexpr Traced<Ringlog::IpValue> vtep6{{1, {0x20, 1, 0xd, 0xb8, 15}}};
constexpr Traced<Ringlog::MacVlanValue> host{{{{2}}, 4094}};
struct Mac {
  friend Ringlog::EthValue traceValue(const Mac&) { return {{2, 0, 0, 0, 0, 0xab}}; }
};
struct Printed {
  friend std::ostream& operator<<(std::ostream& out, const Printed&) { return out << "printed"; }
};

// A method with parameters, for the signature that both compilers must give.
struct Machine {
  void handle(const TraceTest::Mac& mac, const Moru::Name* name, unsigned int number) const {
    MORU_TRACE(8, " mac ", mac, " name ", *name, " vni: ", number);
  }
};

class TraceTest : public testing::Test {
 protected:
  TraceTest() {
    char name[] = "/tmp/ring-test-XXXXXX";
    directory = mkdtemp(name);
    Moru::traceSinkIs([this](const Moru::TraceMessage& message) { add(stream, message); });
  }
  ~TraceTest() override {
    Ringlog::close();
    Ringlog::directoryIs("");
    Moru::traceSinkIs(nullptr);
    traceFacility.streamLevelsIs(0);
    Ringlog::traceFacility.streamLevelsIs(0);
    std::filesystem::remove_all(directory);
  }

  void open(std::size_t kibibytes = 33) {
    Ringlog::directoryIs(directory);
    Ringlog::open("test.rlg", std::vector<std::size_t>(10, kibibytes));
  }

  std::string path() const { return directory + "/test.rlg"; }

  using Bytes = std::vector<char>;
  Bytes bytesOfFile() const {
    std::ifstream file(path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  static void add(std::vector<std::string>& texts, const auto& message) {
    texts.push_back(std::to_string(message.level) + ' ' + std::string(message.facility) + ' ' +
                    std::string(message.text));
  }

  static std::vector<std::string> texts(const Ringlog::Contents& contents) {
    std::vector<std::string> texts;
    for (const auto& message : contents.messages) add(texts, message);
    return texts;
  }

  // Runs `body` in a process of its own and returns how that ended (see waitpid).
  template <class Body>
  static int inChild(Body body) {
    const pid_t child = fork();
    if (child == 0) {
      body();
      _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status;
  }

  void writeZeros(std::size_t from, std::size_t size) const {
    std::fstream file(path(), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(from));
    file.write(std::string(size, '\0').data(), static_cast<std::streamsize>(size));
  }
  std::string directory;
  std::vector<std::string> stream;
};

void everyKind(const std::string& text, bool up) {
  MORU_TRACE(3, "", true, " ", std::uint8_t{200}, " ", std::int8_t{-5}, " ", std::uint16_t{65535},
             " ", -7, " ", std::numeric_limits<std::uint64_t>::max(), " ", 0.1, " ", 2.5F, " ",
             0.25L);
  MORU_TRACE(4, " ", Mac(), " ", vtep, " ", vtep6, " ", host, " ", Printed(), " ", text);
  MORU_TRACE(9);
  MORU_TRACE(0, "text", " ", Moru::Name("name"), " ", Moru::Ptr<Moru::PtrInterface>());
  // What is no literal may be another text at the next run.
  const char buffer[4] = {up ? 'o' : 'n', up ? 'n' : 'o', up ? '\0' : 't', 'x'};
  const char* const none = nullptr;
  MORU_TRACE(2,
             " link "
             "(is ",
             up ? "up  " : "down", ") ", buffer, ", ", none, ' ', "\"", __func__);
}

TEST_F(TraceTest, StreamAndRingGiveTheSameTextForEveryKind) {
  open();
  traceFacility.streamLevelsIs(Moru::TraceFacility::allLevels);
  everyKind("text", true);
  everyKind("", false);
  const Moru::Name name("hostTable");
  Machine().handle(Mac(), &name, 7);
  const std::string start = "Test void TraceTest::everyKind(const std::string&, bool)";
  const std::string first =
      "3 " + start + " true 200 -5 65535 -7 18446744073709551615 0.1 2.5 0.25";
  const std::string second =
      "4 " + start +
      " 02:00:00:00:00:ab 10.0.0.2 2001:db8:f00:: 02:00:00:00:00:00 vlan 4094 printed ";
  const std::string third = "9 " + start;
  const std::string fourth = "0 " + start + " text name 0x0";
  const std::string link = "2 " + start + " link (is ";
  EXPECT_THAT(
      stream,
      ElementsAre(first, second + "text", third, fourth, link + "up  ) on, (null)32\"everyKind",
                  first, second, third, fourth, link + "down) notx, (null)32\"everyKind",
                  "8 Test void TraceTest::Machine::handle(const TraceTest::Mac&, const "
                  "Moru::Name*, unsigned int) const mac 02:00:00:00:00:ab name hostTable "
                  "vni: 7"));
  const auto contents = Ringlog::read(path());
  EXPECT_THAT(contents.problems, IsEmpty());
  EXPECT_EQ(texts(contents), stream) << "also in the order of time, across levels";
  EXPECT_EQ(contents.process, static_cast<std::uint64_t>(getpid()));
}

TEST(Spelling, TellsLiteralsFromAllElse) {
  const auto labels = [](std::string_view text, std::size_t arguments) {
    const auto spelling = Ringlog::spellingOf(text);
    EXPECT_EQ(spelling.arguments, arguments) << text;
    return spelling.labels;
  };
  EXPECT_EQ(labels("", 0), 0U);
  EXPECT_EQ(labels(R"("a" "b", x, "c\"d, ", "")", 4), 0b1101U);
  EXPECT_EQ(labels(R"(up ? "a" : "b", ("c"), "d"[0], "e"sv, u8"f", "g" + 1, f("h", i))", 7), 0U);
  EXPECT_EQ(labels(R"(',', "a", 10'000, "b", m[{1, 2}], "c", '\'', "d")", 8), 0b10101010U);
  EXPECT_EQ(labels("f<a, b>(), \"c\"", 3), 0b100U) << "which does not compile";
  std::string many(3 * Ringlog::Spelling::most, ' ');
  for (std::size_t i = 0; i < many.size(); i += 3) many.replace(i, 3, "\"\",");
  EXPECT_EQ(labels(many, Ringlog::Spelling::most + 1), ~std::uint64_t{0});
}

TEST_F(TraceTest, EvaluatesNothingThatIsOffAndKeepsToOneSink) {
  int evaluated = 0;
  const auto count = [&] { return ++evaluated; };
  MORU_TRACE(5, " ", count());
  EXPECT_EQ(evaluated, 0);
  traceFacility.streamLevelsIs(1U << 5);
  MORU_TRACE(5, " both ", count());
  MORU_TRACE(4, " other level ", count());
  MORU_TRACE_RING(5, " ring ", count());
  EXPECT_EQ(evaluated, 1);
  open();
  MORU_TRACE_STREAM(5, " stream ", count());
  MORU_TRACE_RING(5, " ring ", count());
  Moru::traceSinkIs([text = std::string(100, 'x')](const Moru::TraceMessage&) {
    Moru::traceSinkIs(nullptr);
    EXPECT_EQ(text, std::string(100, 'x')) << "a sink stays until it returns";
  });
  MORU_TRACE_STREAM(5, " to one that goes");
  EXPECT_THAT(stream, ElementsAre(HasSubstr(" both 1"), HasSubstr(" stream 2")));
  EXPECT_THAT(texts(Ringlog::read(path())), ElementsAre(HasSubstr(" ring 3")));
}

TEST_F(TraceTest, CutsLongTextsAndKeepsTheNewestWholeRecords) {
  open(4);
  MORU_TRACE(1, " ", std::string(1000, 'x'));
  for (std::size_t i = 0; i < 5'000; ++i) {
    if (i % 50 == 0 && i < 4'000) writeZeros(3 * 4096, 4096);  // reads nothing back
    MORU_TRACE(2, " ", i, " ", std::string(i % 40, 'y'));
  }
  const auto contents = Ringlog::read(path());
  EXPECT_THAT(contents.problems, IsEmpty());
  EXPECT_EQ(std::filesystem::file_size(path()), 11 * 4096 + 65536) << "statements enter it once";
  ASSERT_GT(contents.messages.size(), 60U) << "4 KiB hold more than that";
  EXPECT_TRUE(contents.messages[0].text.ends_with(" " + std::string(255, 'x')));
  std::size_t expected = 5'000;
  for (std::size_t i = contents.messages.size() - 1; i > 0; --i) {
    const std::string filling(--expected % 40, 'y');
    EXPECT_TRUE(
        contents.messages[i].text.ends_with(" " + std::to_string(expected) + " " + filling));
  }
}

TEST_F(TraceTest, OpensOnceAndKeepsTheFilesBefore) {
  for (int i = 0; i < 6; ++i) {
    if (i == 5) Ringlog::predecessorsIs(1);
    open();
    Ringlog::open("other.rlg", std::vector<std::size_t>(10, 33));
    MORU_TRACE(1, " process ", i);
    Ringlog::close();
    MORU_TRACE(1, " nowhere");
  }
  Ringlog::predecessorsIs(3);
  const auto holds = [&](const std::string& suffix, const std::string& text) {
    EXPECT_THAT(texts(Ringlog::read(path() + suffix)), ElementsAre(HasSubstr(text))) << suffix;
  };
  holds("", " process 5");
  holds(".prev", " process 4");
  holds(".prev.2", " process 2");
  holds(".prev.3", " process 1");
  const std::filesystem::directory_iterator files(directory);
  EXPECT_EQ(std::distance(begin(files), end(files)), 4) << "neither .prev.4 nor other.rlg";
  for (const unsigned kept : {3, 0}) {
    if (kept > 0) std::filesystem::resize_file(path(), 0);  // which is not worth a place
    Ringlog::predecessorsIs(kept);
    open();
    Ringlog::close();
    holds(".prev", " process 4");
  }
  Ringlog::predecessorsIs(3);
}

TEST_F(TraceTest, WantsTheLevelsThatItIsToldAlsoWithoutARing) {
  Moru::TraceFacility::ringLevelsIs(1U << 3);
  MORU_TRACE(3, " nowhere");
  for (int i = 0; i < 2; ++i) {
    open();
    MORU_TRACE(3, " wanted");
    MORU_TRACE(4, " unwanted");
    EXPECT_THAT(texts(Ringlog::read(path())), ElementsAre(HasSubstr(" wanted")));
    Ringlog::close();
  }
  EXPECT_EQ(Moru::TraceFacility::ringLevels(), 1U << 3);
  Moru::TraceFacility::ringLevelsIs(Moru::TraceFacility::allLevels);
  MORU_TRACE(3, " nowhere");
}

TEST_F(TraceTest, TakesTheRecordsOfGlobalsThatAreDestroyedAtTheExit) {
  const int status = inChild([&] {
    static const struct Global {
      ~Global() { MORU_TRACE(1, " the last one"); }
    } global;
    Moru::traceSinkIs([](const Moru::TraceMessage&) {});
    traceFacility.streamLevelsIs(Moru::TraceFacility::allLevels);
    open();
    std::exit(0);
  });
  EXPECT_EQ(status, 0);
  EXPECT_THAT(texts(Ringlog::read(path())), ElementsAre(HasSubstr(" the last one")));
  const auto anchors = [this] { return bytesOfFile().at(48); };
  const int before = WEXITSTATUS(inChild([&] {
    open();
    std::exit(anchors());
  }));
  EXPECT_EQ(anchors(), before + 1) << "the last at the exit";
  EXPECT_EQ(inChild([&] {
              ::close(STDERR_FILENO);
              open();
              _exit(::write(STDERR_FILENO, "x", 1) == 1 ? 1 : 0);
            }),
            0)
      << "what goes to standard error does not go to the file";
}

// At any place of the region, and in the middle of a record's values.
TEST_F(TraceTest, AProcessThatIsKilledLeavesOnlyWholeRecords) {
  for (unsigned records = 0; records < 60; ++records) {
    const int status = inChild([&] {
      open(1);
      for (unsigned i = 0; i < records; ++i) MORU_TRACE(8, " ", i, " ", std::string(i % 7, 'z'));
      Ringlog::ring()->record(8, 0, 40, [](std::byte* to) {
        std::memset(to, 0xff, 20);
        raise(SIGKILL);
      });
    });
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    const auto contents = Ringlog::read(path());
    EXPECT_THAT(contents.problems, IsEmpty());
    EXPECT_GE(contents.messages.size(), std::min(records, 20U));
    unsigned i = records - static_cast<unsigned>(contents.messages.size());
    for (const auto& message : contents.messages) {
      EXPECT_TRUE(message.text.ends_with(" " + std::to_string(i) + " " + std::string(i % 7, 'z')));
      ++i;
    }
  }
}

TEST_F(TraceTest, AFailedAssertionIsToldWhateverItsContextDoes) {
  const std::string text = "assertion failed: 1 + 1 == 3: it is 2";
  const struct {
    std::string (*context)();
    std::string last;  // what the line and the records end with
  } cases[] = {{nullptr, text},
               {[] { return std::string("a.jsonl:17"); }, " (a.jsonl:17)"},
               {[]() -> std::string { throw std::runtime_error("no context"); }, text},
               {[] {
                  Moru::assertThat(false, "one in the context");
                  return std::string();
                },
                "one in the context"}};
  for (const auto& [context, last] : cases) {
    const int status = inChild([&, context = context] {
      std::freopen((directory + "/errors").c_str(), "w", stderr);
      open();
      Moru::assertionContextIs(context);
      Moru::assertThat(1 + 1 == 3, "1 + 1 == 3", [] { return std::string("it is 2"); });
    });
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT);
    std::ifstream errors(directory + "/errors");
    std::string told;
    EXPECT_TRUE(std::getline(errors, told)) << "there is one line";
    EXPECT_TRUE(told.starts_with("tests/framework/TraceTest.cpp:")) << told;
    EXPECT_THAT(told, HasSubstr(text));
    EXPECT_TRUE(told.ends_with(last)) << told;
    const auto records = texts(Ringlog::read(path()));
    EXPECT_THAT(records.at(0), HasSubstr(text));
    EXPECT_EQ(records.size(), last == text ? 1U : 2U);
    EXPECT_TRUE(records.back().ends_with(last)) << records.back();
  }
}

// What a process says whose ring cannot be written: once, and it goes on.
class RingFailure : public TraceTest {
 protected:
  RingFailure() { Ringlog::traceFacility.streamLevelsIs(1); }  // level 0

  bool saidOnce(const std::string& text) const {
    return stream.size() == 1 && stream[0].find(text) != std::string::npos &&
           Ringlog::error().find(text) != std::string::npos;
  }
};

TEST_F(RingFailure, OfADirectoryThatIsNotThere) {
  for (int i = 0; i < 2; ++i) {
    Ringlog::directoryIs(directory + "/missing");
    Ringlog::open("test.rlg", std::vector<std::size_t>(10, 33));
    MORU_TRACE(8, " goes on");
  }
  EXPECT_TRUE(saidOnce("No such file or directory"));
}

TEST_F(RingFailure, OfALimitOnTheSizeOfFiles) {
  // At opening, and when the table of statements wants to grow: the statements known by then go on.
  const auto limited = [&](rlim_t bytes, auto body) {
    return inChild([&] {
      const rlimit limit{bytes, bytes};
      setrlimit(RLIMIT_FSIZE, &limit);
      open();
      _exit(body() ? EXIT_SUCCESS : EXIT_FAILURE);
    });
  };
  EXPECT_EQ(limited(100'000, [&] { return saidOnce("may write files of 100000"); }), 0);
  EXPECT_FALSE(std::filesystem::exists(path()));
  const auto fill = [&] {
    static const std::string name(60'000, 'f');  // nearly fills the first step of the table
    static Moru::TraceFacility traceFacility{name.c_str()};
    MORU_TRACE(8, " known");
    for (int i = 0; i < 3; ++i) MORU_TRACE(8, " too much");
    MORU_TRACE(8, " too much as well");
    everyKind("small enough", true);
    return saidOnce("takes no further statements");
  };
  EXPECT_EQ(limited(420'000, fill), 0);
  const auto contents = Ringlog::read(path());
  EXPECT_THAT(contents.problems, IsEmpty());
  EXPECT_EQ(contents.messages.size(), 7U);
  EXPECT_EQ(contents.droppedMessages, 4U);
}

TEST_F(RingFailure, OfAFullDisk) {
  if (mount("none", directory.c_str(), "tmpfs", 0, "size=200k") != 0)
    GTEST_SKIP() << "no right to mount a small file system here: " << std::strerror(errno);
  open();
  EXPECT_TRUE(saidOnce("No space left on device"));
  EXPECT_FALSE(std::filesystem::exists(path()));
  umount(directory.c_str());
}

TEST_F(RingFailure, LeavesTheFormerFileAlone) {
  open();
  MORU_TRACE(1, " precious");
  const int other = ::open(path().c_str(), O_RDONLY);
  EXPECT_NE(flock(other, LOCK_EX | LOCK_NB), 0) << "which other processes see";
  Ringlog::close();
  EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
  const auto openInVain = [this](const std::string& why) {
    stream.clear();
    open();
    EXPECT_TRUE(saidOnce(why)) << testing::PrintToString(stream);
    EXPECT_THAT(texts(Ringlog::read(path())), ElementsAre(HasSubstr(" precious")));
  };
  openInVain("another process is writing it");
  ::close(other);
  const std::ofstream empty(path() + ".prev.2");
  std::filesystem::create_directory(path() + ".prev.3");
  openInVain("cannot keep " + path() + ".prev.2 as " + path() + ".prev.3: Is a directory");
}

// What others do to the file while it is written: the process goes on in a new one, and says so.
TEST_F(RingFailure, OfALostFileBeginsANewOne) {
  const auto lose = [this](const std::string& why, const auto& doIt) {
    SCOPED_TRACE(why);
    stream.clear();
    open(1);
    MORU_TRACE(1, " before");
    doIt();
    // Enough records for the ring to look after its file.
    for (int i = 0; i < 100'000 && stream.empty(); ++i) {
      MORU_TRACE(1, " lost", i);
      MORU_TRACE(2, std::string(200, 'x'));
    }
    MORU_TRACE(1, " after");
    EXPECT_TRUE(saidOnce("is begun anew: " + why)) << testing::PrintToString(stream);
    const auto contents = Ringlog::read(path());
    EXPECT_THAT(contents.problems, IsEmpty());
    auto newest = texts(contents);
    if (newest.size() == 3) newest.erase(newest.begin() + 1);  // the statement that met the loss
    EXPECT_THAT(newest, ElementsAre(HasSubstr(why), HasSubstr(" after")));
    Ringlog::close();
  };
  const auto moveAway = [this] { std::filesystem::rename(path(), path() + ".1"); };
  const auto size = [this] { return std::filesystem::file_size(path()); };
  lose("others have cut it", [&] { std::filesystem::resize_file(path(), 5000); });
  EXPECT_FALSE(std::filesystem::exists(path() + ".prev")) << "what is left of it is not kept";
  lose("others have cut it", [&] { std::filesystem::resize_file(path(), 0); });
  lose("others have cut it", [&] { std::filesystem::resize_file(path(), size() - 1); });
  lose("others have written over it", [&] { writeZeros(0, size()); });
  lose("No such file or directory", [&] { std::filesystem::remove(path()); });
  lose("No such file or directory", moveAway);
  EXPECT_THAT(texts(Ringlog::read(path() + ".1")), testing::Contains(HasSubstr(" before")));
  lose("another file has its name", [&] {
    moveAway();
    std::ofstream(path()) << "of somebody else";
  });
  EXPECT_EQ(std::filesystem::file_size(path() + ".prev"), 16U) << "is kept, as any other";
}

TEST_F(RingFailure, OfALostFileIsSeenAtOnceAndMendedOnceASecond) {
  // One statement: to enter another into the file would make that long enough again.
  const auto record = [] { MORU_TRACE(2, " recorded"); };
  open(1);
  for (int i = 0; i < 100'000; ++i) record();
  Ringlog::ring()->anchor();  // puts the next look off, by about as long as that took
  std::filesystem::resize_file(path(), 0);
  const auto start = std::chrono::steady_clock::now();
  record();
  EXPECT_TRUE(saidOnce("others have cut it")) << "by the fault, whenever the next look were due";
  std::filesystem::remove(path());
  Ringlog::Detail::attend();
  const bool isMended = std::filesystem::exists(path());
  const auto passed = std::chrono::steady_clock::now() - start;
  EXPECT_TRUE(!isMended || passed >= std::chrono::seconds(1));
  Ringlog::close();
  open(1);  // for which the second does not count
  std::filesystem::remove_all(directory);
  stream.clear();
  Ringlog::Detail::attend();
  EXPECT_TRUE(saidOnce("is not written: No such file or directory"));
  EXPECT_EQ(Ringlog::ring(), nullptr);
}

TEST_F(RingFailure, LeavesOtherFaultsToWhomTheyConcern) {
  const auto ends = [this](void (*handler)(int), const auto& body) {
    return inChild([&] {
      std::signal(SIGBUS, handler);
      open(1);
      body();
    });
  };
  // Touches a page of a file of its own that is cut off.
  const auto touch = [this] {
    const int file = ::open((directory + "/other").c_str(), O_RDWR | O_CREAT, 0644);
    void* const map = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    *static_cast<volatile char*>(map) = 1;
  };
  const auto closeAndTouch = [&] {
    Ringlog::close();
    touch();
  };
  const auto mine = [](int) { _exit(7); };
  EXPECT_EQ(WEXITSTATUS(ends(mine, touch)), 7);
  EXPECT_EQ(WEXITSTATUS(ends(mine, closeAndTouch)), 7);
  EXPECT_EQ(WTERMSIG(ends(SIG_DFL, touch)), SIGBUS);
  EXPECT_EQ(WTERMSIG(ends(SIG_IGN, touch)), SIGBUS) << "a fault cannot be ignored";
  const auto raiseAndClose = [] {
    raise(SIGBUS);
    Ringlog::close();
    if (std::signal(SIGBUS, SIG_DFL) != SIG_IGN) _exit(1);
  };
  EXPECT_EQ(ends(SIG_IGN, raiseAndClose), 0) << "ignored as before, and then the former handler";
  const auto displace = [&] {
    std::signal(SIGBUS, mine);
    closeAndTouch();
  };
  EXPECT_EQ(WEXITSTATUS(ends(SIG_DFL, displace)), 7) << "who has come in front stays there";
}

class RingCorruption : public TraceTest {
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
                               region0 = 4096;
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
  const std::size_t record = region0 + 3 * 1024, huge = std::size_t{1} << 60;
  const struct {
    std::size_t offset, size, number;
    std::string text;
  } cases[] = {
      {8, 4, 0x04030201, "another byte order"},
      {levels, 4, 11, "the number of levels is 11, expected at most 10"},
      {sitesOffset, 8, bytes.size() + 1, "the offset of the site table"},
      {sitesSize, 8, bytes.size(), "the size of the site table"},
      {sites, 4, 0xffffff, "goes beyond the end of the site table"},
      {firstItem + 5, 1, 2, "does not describe a statement"},
      {firstItem + 4, 1, 0x63, "does not describe a statement"},
      {sites + 4, 1, 10, "does not describe a statement"},
      {level0, 8, bytes.size(), "does not lie within the file"},
      {level0 + tail, 8, huge, "are no bounds of records"},
      {level0 + head, 8, huge, "are no bounds of records"},
      {level0 + tail, 8, 4, "are no bounds of records"},
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
  const auto all = texts(read(after));
  const auto contents = read(bytes, before, after);
  EXPECT_THAT(contents.problems, IsEmpty());
  const std::vector<std::string> settled(all.begin(), all.end() - 40);
  EXPECT_EQ(texts(contents), settled) << "up to 59";
  EXPECT_GT(settled.size(), 10U);
  // One level as it was at first: 60 is not seen yet, and so nothing behind it is told.
  put(bytes, level0 + 2 * levelSize + head, std::uint64_t{720});
  EXPECT_EQ(texts(read(bytes, before, after)), settled);
}

TEST_F(RingCorruption, OfTheClockIsNoneOfTheTimes) {
  open(1);
  auto bytes = bytesOfFile();
  EXPECT_TRUE(
      std::equal(bytes.begin() + anchor, bytes.begin() + anchor + 24, bytes.begin() + anchor + 48))
      << "the first is the last at first";
  everyKind("", true);
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  Ringlog::close();
  bytes = bytesOfFile();
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
  set(2, 0, 1500, 88);
  EXPECT_EQ(read(bytes).messages[0].time, 88) << "no time has passed between the two";
}

}  // namespace TraceTest
