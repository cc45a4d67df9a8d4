// A ring in a directory of its own, the trace stream beside it, and a value of each kind for both.
#pragma once

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

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

inline void everyKind(const std::string& text, bool up) {
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

class RingFile : public testing::Test {
 protected:
  RingFile() {
    char name[] = "/tmp/ring-test-XXXXXX";
    directory = mkdtemp(name);
    Moru::traceSinkIs([this](const Moru::TraceMessage& message) { add(stream, message); });
  }
  ~RingFile() override {
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

  void writeZeros(std::size_t from, std::size_t size) const {
    std::fstream file(path(), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(from));
    file.write(std::string(size, '\0').data(), static_cast<std::streamsize>(size));
  }

  std::string directory;
  std::vector<std::string> stream;
};

}  // namespace TraceTest
