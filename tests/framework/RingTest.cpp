// Trace statements, the stream, and the ring file as it is written.
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <span>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "framework/Moru/Assert.h"
#include "tests/framework/RingFile.h"

namespace TraceTest {

// A method with parameters, for the signature that both compilers must give.
struct Machine {
  void handle(const TraceTest::Mac& mac, const Moru::Name* name, unsigned int number) const {
    MORU_TRACE(8, " mac ", mac, " name ", *name, " vni", ": ", number, ".");
  }
};

using TraceTest = RingFile;

// Runs `body` in a process of its own and returns how that ended (see waitpid).
template <class Body>
int inChild(Body body) {
  const pid_t child = fork();
  if (child == 0) {
    body();
    _exit(0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status;
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
                  "vni: 7."));
  const auto contents = Ringlog::read(path());
  EXPECT_THAT(contents.problems, IsEmpty());
  EXPECT_EQ(texts(contents), stream) << "also in the order of time, across levels";
  EXPECT_EQ(contents.process, static_cast<std::uint64_t>(getpid()));
  std::vector<std::string> values;
  for (const auto& value : contents.messages.back().values())
    values.push_back(value.label + '|' + std::to_string(static_cast<int>(value.kind)) + '|' +
                     value.text);
  EXPECT_THAT(values,
              ElementsAre(" mac |7|02:00:00:00:00:ab", " name |5|hostTable", " vni: |2|7", ".|0|"));
}

TEST(Signature, IsTheSameOfBothCompilers) {
  EXPECT_EQ(Ringlog::normalSignature("void {anonymous}::f(const A *, B &)"),
            "void (anonymous namespace)::f(const A*, B&)");
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
  MORU_TRACE(4, " a level below ", count());
  MORU_TRACE(6, " a level above ", count());
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
  const std::string part(255, 'x');
  for (std::size_t i = 0; i < 5'000; ++i) {
    if (i % 50 == 0 && i < 4'000) writeZeros(3 * 4096, 4096);  // reads nothing back
    MORU_TRACE(2, " ", i, " ", std::string(i % 40, 'y'));
  }
  // More than half of what the level holds: left out.
  MORU_TRACE(2, part, part, part, part, part, part, part, part, part);
  const auto contents = Ringlog::read(path());
  EXPECT_THAT(contents.problems, IsEmpty());
  EXPECT_EQ(std::filesystem::file_size(path()), 11 * 4096 + 65536) << "statements enter it once";
  ASSERT_GT(contents.messages.size(), 60U) << "4 KiB hold more than that";
  EXPECT_TRUE(contents.messages[0].text.ends_with(" " + part));
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

// What the file tells of how it was left.
TEST_F(TraceTest, AFileTellsACrashFromANormalEnd) {
  using Ringlog::Writer;
  const auto crashLate = [] {
    static const struct Global {
      ~Global() { _exit(0); }
    } global;
    std::exit(0);
  };
  const auto forkOff = [] {
    inChild([] { std::exit(0); });
    _exit(0);
  };
  const struct {
    const char* what;
    Writer writer;
    std::function<void()> body;
  } cases[] = {{"exit()", Writer::closed, [] { std::exit(1); }},
               {"_exit()", Writer::gone, [] {}},
               {"abort()", Writer::gone, [] { std::abort(); }},
               {"SIGKILL", Writer::gone, [] { raise(SIGKILL); }},
               {"closed before", Writer::closed,
                [] {
                  Ringlog::close();
                  std::abort();
                }},
               {"in the destructor of a global", Writer::gone, crashLate},
               {"only of one that it forked off", Writer::gone, forkOff}};
  for (const auto& [what, writer, body] : cases) {
    inChild([&, &body = body] {
      open(1);
      MORU_TRACE(8, " last words");
      body();
    });
    EXPECT_EQ(Ringlog::read(path()).writer, writer) << what;
    const auto bytes = bytesOfFile();
    EXPECT_EQ(Ringlog::read(std::as_bytes(std::span(bytes))).writer,
              writer == Writer::gone ? Writer::open : writer)
        << what << ": bytes have no lock";
  }
  open();
  EXPECT_EQ(Ringlog::read(path()).writer, Writer::running);
}

// At any place of the region, and before the record that it writes is there to be read.
TEST_F(TraceTest, AProcessThatIsKilledLeavesOnlyWholeRecords) {
  for (unsigned records = 0; records < 60; ++records) {
    const int status = inChild([&] {
      open(1);
      for (unsigned i = 0; i < records; ++i) MORU_TRACE(8, " ", i, " ", std::string(i % 7, 'z'));
      const std::size_t size = 8 * (records % 4);
      Ringlog::ring()->record(8, 0, size, [size](std::byte* to) {
        std::memset(to, 0xff, size);
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
    EXPECT_THAT(told, testing::AllOf(testing::StartsWith("tests/framework/RingTest.cpp:"),
                                     HasSubstr(text), testing::EndsWith(last)));
    const auto records = texts(Ringlog::read(path()));
    EXPECT_EQ(records.size(), last == text ? 1U : 2U);
    EXPECT_THAT(records.at(0), HasSubstr(text));
    EXPECT_THAT(records.back(), testing::EndsWith(last));
  }
}

// What a process says whose ring cannot be written: once, and it goes on.
class RingFailure : public RingFile {
 protected:
  RingFailure() { Ringlog::traceFacility.streamLevelsIs(1); }  // level 0

  bool saidOnce(const std::string& text) const {
    return stream.size() == 1 && stream[0].find(text) != std::string::npos &&
           Ringlog::error().find(text) != std::string::npos;
  }
};

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
    const bool isSaid = saidOnce("takes no further statements");
    Ringlog::reportError("");  // and so what has been said is said again
    Moru::traceSinkIs([](const Moru::TraceMessage&) { Ringlog::close(); });
    MORU_TRACE(8, " what tells of it may close the ring");
    return isSaid && Ringlog::ring() == nullptr;
  };
  EXPECT_EQ(limited(420'000, fill), 0);
  const auto contents = Ringlog::read(path());
  EXPECT_THAT(contents.problems, IsEmpty());
  EXPECT_EQ(contents.messages.size(), 9U);
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
  const auto moved = Ringlog::read(path() + ".1");
  EXPECT_THAT(texts(moved), testing::Contains(HasSubstr(" before")));
  EXPECT_EQ(moved.writer, Ringlog::Writer::left);
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
  open(1);  // in vain, too
  MORU_TRACE(8, " goes on");
  EXPECT_TRUE(saidOnce("is not written: No such file or directory"));
  EXPECT_EQ(Ringlog::ring(), nullptr);
}

TEST_F(RingFailure, LeavesOtherFaultsToWhomTheyConcern) {
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
  const auto raiseAndClose = [] {
    raise(SIGBUS);
    Ringlog::close();
    if (std::signal(SIGBUS, SIG_DFL) != SIG_IGN) _exit(1);
  };
  const auto mine = [](int) { _exit(7); };
  const auto displace = [&] {
    std::signal(SIGBUS, mine);
    closeAndTouch();
  };
  const struct {
    const char* what;
    void (*handler)(int);
    std::function<void()> body;
    int exit, signal;  // how the process ends
  } cases[] = {{"the handler of before is called", mine, touch, 7, 0},
               {"and is put back", mine, closeAndTouch, 7, 0},
               {"no handler", SIG_DFL, touch, 0, SIGBUS},
               {"a fault cannot be ignored", SIG_IGN, touch, 0, SIGBUS},
               {"but what is sent can, and is in the end as before", SIG_IGN, raiseAndClose, 0, 0},
               {"who has come in front stays there", SIG_DFL, displace, 7, 0}};
  for (const auto& [what, handler, body, exit, signal] : cases) {
    const int status = inChild([&, handler = handler, &body = body] {
      std::signal(SIGBUS, handler);
      open(1);
      body();
    });
    EXPECT_EQ(WEXITSTATUS(status), exit) << what;
    EXPECT_EQ(WTERMSIG(status), signal) << what;
  }
}

// Also of one whose texts are longer than an entry can tell.
TEST_F(RingFailure, OfAFullTableOfStatements) {
  open(1);
  const Ringlog::Site site{1, std::string(70'000, 'f'), "s", {}};
  Ringlog::ring()->record(1, Ringlog::ring()->addSite(site), 0, [](std::byte*) {});
  for (std::size_t i = 1; i < Ringlog::Format::mostSites; ++i)
    ASSERT_EQ(Ringlog::ring()->addSite({1, "f", "s", {}}), i);
  MORU_TRACE(8, " one more");
  EXPECT_TRUE(saidOnce("it has all the 65535 statements that it can have"));
  const auto contents = Ringlog::read(path());
  EXPECT_THAT(contents.problems, IsEmpty());
  EXPECT_EQ(contents.droppedMessages, 2U) << "of what tells of it, too";
  EXPECT_EQ(contents.messages.at(0).facility.size(), 65535U);
}

}  // namespace TraceTest
