// Feeds framing, protocol, rows and mapping with whatever the fuzzer thinks of: frames, of which
// the protocol makes what it can, and {"whole": TABLES} or {"differences": TABLES}, with
// "wholeRows" and "rows" for the older form, are table updates. Frames must not depend on the
// pieces that they come in. What is said must make sense, must not depend on the slices, and must
// all be withdrawn in the end.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "agent/ovsdb/Failure.h"
#include "agent/ovsdb/Frames.h"
#include "agent/ovsdb/Import.h"
#include "agent/ovsdb/Protocol.h"
#include "framework/Moru/Assert.h"

namespace {

using Agent::Announcements;
using Agent::Cause;
using Agent::FloodList;
using Agent::Ovsdb::Failure;
using Agent::Ovsdb::FrameReader;
using Agent::Ovsdb::Updates;
using Moru::assertThat;

class Believer final : public Announcements {
 public:
  void vniIs(const Vxlan::VniExt& vni, const Bridging::VlanId& vlan) override {
    is(vnis_, vni.value(), vlan.value());
  }
  void vniDel(const Vxlan::VniExt& vni, Cause) override {
    const auto isBehind = [&](const auto& items) {
      const auto at = items.lower_bound({vni.value(), 0});
      return at == items.end() || at->first.first != vni.value();
    };
    assertThat(isBehind(hosts_) && isBehind(lists_), "a VNI is withdrawn last");
    del(vnis_, vni.value());
  }
  void hostIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac,
              const Vorn::IpAddr& vtep) override {
    assertThat(vnis_.contains(vni.value()), "a host is one of a VNI");
    is(hosts_, {vni.value(), mac.value()}, vtep.value());
  }
  void hostDel(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, Cause) override {
    del(hosts_, {vni.value(), mac.value()});
  }
  void listIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const FloodList& list) override {
    assertThat(vnis_.contains(vni.value()), "a list is one of a VNI");
    assertThat(!list.vteps.empty(), "a list has VTEPs");
    is(lists_, {vni.value(), mac.value()}, list);
  }
  void listDel(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, Cause) override {
    del(lists_, {vni.value(), mac.value()});
  }
  void commit() override { ++said_; }

  bool isEmpty() const { return vnis_.empty() && hosts_.empty() && lists_.empty(); }
  bool operator==(const Believer& other) const {
    return vnis_ == other.vnis_ && hosts_ == other.hosts_ && lists_ == other.lists_ &&
           said_ == other.said_;
  }

 private:
  using Key = std::pair<std::uint32_t, std::uint64_t>;

  template <class Items>
  void is(Items& items, const typename Items::key_type& key,
          const typename Items::mapped_type& value) {
    const auto [at, isNew] = items.try_emplace(key, value);
    assertThat(isNew || at->second != value, "nothing is said twice");
    at->second = value;
    ++said_;
  }
  template <class Items>
  void del(Items& items, const typename Items::key_type& key) {
    assertThat(items.erase(key) == 1, "what is withdrawn was said");
    ++said_;
  }

  std::map<std::uint32_t, std::uint16_t> vnis_;
  std::map<Key, std::uint32_t> hosts_;
  std::map<Key, FloodList> lists_;
  std::size_t said_ = 0;
};

class Follower {
 public:
  explicit Follower(std::size_t pieces) : pieces_(pieces) {}

  void take(const std::string& line) {
    static const std::map<std::string_view, std::pair<Updates::Form, bool>> kinds{
        {"whole", {Updates::Form::rowDifferences, true}},
        {"differences", {Updates::Form::rowDifferences, false}},
        {"wholeRows", {Updates::Form::rows, true}},
        {"rows", {Updates::Form::rows, false}}};
    Updates updates;
    updates.document = std::make_unique<simdjson::dom::document>();
    simdjson::dom::parser parser;
    simdjson::dom::object message;
    if (parser.parse_into_document(*updates.document, line).get(message) != simdjson::SUCCESS)
      return;
    for (const auto& [key, value] : message) {
      const auto kind = kinds.find(key);
      if (kind == kinds.end() || value.get(updates.tables) != simdjson::SUCCESS) continue;
      std::tie(updates.form, updates.whole) = kind->second;
      import_.take(std::move(updates));
      import_.caughtUp();
      break;
    }
    while (import_.stepPieces(pieces_)) {
    }
  }

  const Believer& believer() const { return believer_; }
  const Agent::Attachments& attachments() const { return attachments_; }
  const std::vector<std::string>& problems() const { return problemsTold_; }

 private:
  const std::size_t pieces_;
  Believer believer_;
  Agent::Attachments attachments_;
  std::vector<std::string> problemsTold_;
  Agent::Problems problems_{
      [this](const std::string& what, const Agent::Problem&) { problemsTold_.push_back(what); }};
  Agent::Ovsdb::Import import_{"us",
                               believer_,
                               [](const Agent::Change&) {},
                               [this](const Agent::Attachments& now) {
                                 assertThat(now != attachments_, "nothing is told twice");
                                 attachments_ = now;
                               },
                               problems_,
                               {[] {}, [](const std::string&) {}, [] {}}};
};

// The frames of a stream that comes in pieces of that size, up to the first that is none.
std::vector<std::string> framesOf(std::string_view stream, std::size_t piece) {
  std::vector<std::string> frames;
  FrameReader reader({.size = 4096, .depth = 20});
  try {
    for (; !stream.empty(); stream.remove_prefix(std::min(piece, stream.size()))) {
      std::string_view bytes = stream.substr(0, piece);
      while (!bytes.empty())
        if (auto frame = reader.next(bytes)) frames.push_back(std::move(*frame));
    }
  } catch (const Failure&) {
  }
  return frames;
}

void converse(const std::vector<std::string>& frames) {
  Agent::Ovsdb::Protocol protocol;
  protocol.open();
  try {
    for (const std::string& frame : frames) protocol.receive(frame);
  } catch (const Failure&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string stream(data, data + size);
  const std::vector<std::string> frames = framesOf(stream, stream.size());
  assertThat(frames == framesOf(stream, 1), "pieces make no difference");
  converse(frames);
  Follower one(1);
  Follower other(1000);
  const auto take = [&](const std::string& line) {
    one.take(line);
    other.take(line);
    assertThat(one.believer() == other.believer() && one.problems() == other.problems() &&
                   one.attachments() == other.attachments(),
               "slices make no difference");
  };
  for (const std::string& frame : frames) take(frame);
  take(R"({"whole":{"Physical_Switch":{"00000000-0000-0000-0000-000000000000":)"
       R"({"initial":{"name":"us"}}}}})");
  assertThat(one.believer().isEmpty() && one.attachments().ports.empty(),
             "an empty state says nothing");
  return 0;
}
