// Hosts and flood sets in the FDBs of a real kernel.
#include <algorithm>
#include <functional>
#include <linux/rtnetlink.h>
#include <map>
#include <memory>
#include <net/if.h>
#include <set>
#include <string>
#include <vector>

#include "agent/kernel/Fdb.h"
#include "agent/netlink/Dump.h"
#include "agent/netlink/Monitor.h"
#include "tests/agent/KernelNamespace.h"

namespace {

using namespace Agent;
using namespace Agent::Kernel;
using AgentTest::output;

using Entries = std::map<std::string, std::string>;

const Vxlan::VniExt vni(5001);

Vorn::EthAddr mac(const std::string& text) { return Vorn::EthAddr::parse(text).value(); }
Vorn::IpAddr vtep(int last) { return Vorn::IpAddr(0x0a000000U + static_cast<std::uint32_t>(last)); }
Route to(int last) { return {vtep(last), 0}; }

const auto host1 = mac("02:00:00:00:00:01");
const auto host2 = mac("02:00:00:00:00:02");
const auto all = mac("ff:ff:ff:ff:ff:ff");
const auto group = mac("01:00:5e:01:02:03");

class FdbTest : public AgentTest::KernelTest {
 protected:
  void SetUp() override {
    KernelTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    ip("link add br1 up type bridge");
    makeDevice();
    start();
  }

  void makeDevice() {
    ip("link add vx1 up master br1 type vxlan id 5001 local 10.0.0.1 dstport 4789 nolearning");
    device_ = {static_cast<int>(if_nametoindex("vx1")), static_cast<int>(if_nametoindex("br1"))};
  }

  // As an agent does that finds what is there.
  void start(int buffer = 0) {
    fdb_.reset();
    requests_ = std::make_unique<Netlink::Requests>();
    monitor_ = std::make_unique<Netlink::Monitor>(buffer);
    groups_ =
        std::make_unique<Groups>(*requests_, problems_,
                                 Groups::Events{[this](GroupId id) { fdb_->groupLost(id); },
                                                [this](const std::string&) { ++groupsPutBack_; }});
    known_.clear();
    fdb_ = std::make_unique<Fdb>(*requests_, *groups_, problems_,
                                 Fdb::Events{[this](const Vxlan::VniExt&, const Vorn::EthAddr& each,
                                                    const Vorn::IpAddr& at) {
                                   known_[each.stringValue()] = at.stringValue();
                                 }});
    fdb_->deviceIs(vni, device_);
    readAll();
  }

  void readAll() {
    Netlink::Dump dump;
    const auto take = [this](const nlmsghdr& message) { this->take(message); };
    dump.readAll(
        RTM_GETNEXTHOP, Netlink::allNexthops, [this] { groups_->beginAll(); }, take);
    groups_->endAll();
    dump.readAll(
        RTM_GETNEIGH, Netlink::allFdbEntries, [this] { fdb_->beginAll(); }, take);
    fdb_->endAll();
  }

  void take(const nlmsghdr& message) {
    switch (message.nlmsg_type) {
      case RTM_NEWNEIGH:
      case RTM_DELNEIGH:
        if (!Netlink::isFdbEntry(message)) break;
        message.nlmsg_type == RTM_NEWNEIGH ? fdb_->entryIs(Netlink::fdbEntryOf(message))
                                           : fdb_->entryDel(Netlink::fdbEntryOf(message));
        break;
      case RTM_NEWNEXTHOP:
        return groups_->nexthopIs(Netlink::nexthopOf(message));
      case RTM_DELNEXTHOP:
        return groups_->nexthopDel(Netlink::nexthopOf(message));
      default:
        break;
    }
  }

  // Until there is nothing to do; whether news were lost meanwhile.
  bool settle(bool isCalm = false) {
    bool isOverrun = false;
    for (bool isMore = true; isMore;) {
      for (auto state = Netlink::Monitor::State::more; state != Netlink::Monitor::State::drained;) {
        state = monitor_->drain([this](const nlmsghdr& message) { take(message); });
        if (state != Netlink::Monitor::State::overrun) continue;
        isOverrun = true;
        monitor_->forget();
        readAll();
      }
      fdb_->judge(time_);
      isMore = groups_->work(time_);
      if (isMore) continue;
      fdb_->work(time_);
      isMore = fdb_->waiting() > 0 || groups_->clean(isCalm);
    }
    return isOverrun;
  }

  // {MAC: "10.0.0.2", "10.0.0.2 10.0.0.3", "any 10.0.0.2 10.0.0.3", with a "-" where the bridge
  // lacks it}
  static Entries inKernel() {
    std::map<std::uint32_t, Netlink::Nexthop> nexthops;
    std::map<std::string, std::set<std::string>> device;
    std::set<std::string> bridged;
    Netlink::Dump dump;
    dump.readAll(
        RTM_GETNEXTHOP, Netlink::allNexthops, [&] { nexthops.clear(); },
        [&](const nlmsghdr& message) {
          const auto nexthop = Netlink::nexthopOf(message);
          nexthops[nexthop.id] = nexthop;
        });
    const auto take = [&](const nlmsghdr& message) {
      if (!Netlink::isFdbEntry(message)) return;
      const auto entry = Netlink::fdbEntryOf(message);
      if (entry.index != static_cast<int>(if_nametoindex("vx1"))) return;
      const std::string each = entry.mac.stringValue();
      if (entry.of == Netlink::FdbEntry::Of::bridge) {
        bridged.insert(each);
      } else if (entry.nexthop == 0) {
        device[each].insert(entry.dst.stringValue());
      } else {
        device[each].insert("any");
        for (const std::uint32_t member : nexthops[entry.nexthop].members)
          device[each].insert(nexthops[member].via.stringValue());
      }
    };
    dump.readAll(
        RTM_GETNEIGH, Netlink::allFdbEntries, [] {}, take);
    Entries entries;
    for (const auto& [each, ways] : device) {
      std::string& text = entries[each];
      if (ways.contains("any")) text = "any";
      for (const std::string& way : ways)
        if (way != "any") text += (text.empty() ? "" : " ") + way;
      const bool isUnicast = !Fdb::isFlood(mac(each)) && mac(each) != Vorn::EthAddr();
      if (isUnicast && !bridged.contains(each)) text += " -";
    }
    return entries;
  }

  void expect(const Entries& entries) { EXPECT_EQ(inKernel(), entries); }

  void fill(int number, int at) {
    for (int i = 1; i <= number; ++i)
      fdb_->unicastIs(vni, Vorn::EthAddr::fromValue(0x020000000000 + static_cast<unsigned>(i)),
                      to(at));
  }

  Problems problems_{[](const std::string&, const Problem&) {}};
  std::unique_ptr<Netlink::Requests> requests_;
  std::unique_ptr<Netlink::Monitor> monitor_;
  std::unique_ptr<Groups> groups_;
  std::unique_ptr<Fdb> fdb_;
  Device device_;
  Entries known_;
  int groupsPutBack_ = 0;
  double time_ = 100;
};

TEST_F(FdbTest, HostsComeMoveAndGo) {
  fdb_->unicastIs(vni, host1, to(2));
  fdb_->unicastIs(vni, host2, to(3));
  settle();
  expect({{"02:00:00:00:00:01", "10.0.0.2"}, {"02:00:00:00:00:02", "10.0.0.3"}});
  fdb_->unicastIs(vni, host1, to(4));
  fdb_->unicastIs(vni, host2, {});
  settle();
  expect({{"02:00:00:00:00:01", "10.0.0.4"}});
  EXPECT_EQ(fdb_->counts().wanted, 1U);
  EXPECT_EQ(fdb_->counts().programmed, 1U);
  fdb_->unicastIs(vni, host1, {});
  fdb_->unicastIs(vni, host1, to(5));  // and back, before anything is sent
  settle();
  expect({{"02:00:00:00:00:01", "10.0.0.5"}});
  EXPECT_EQ(fdb_->putBack(), 0U);
}

TEST_F(FdbTest, AVtepAndAGroupTakeEachOthersPlace) {
  const GroupId any = groups_->of({vtep(2), vtep(3)});
  fdb_->unicastIs(vni, host1, to(2));
  fdb_->unicastIs(vni, host2, {{}, any});
  fdb_->floodIs(vni, all, {{vtep(2), vtep(3)}, 0});
  fdb_->floodIs(vni, group, {{}, any});
  settle();
  expect({{"02:00:00:00:00:01", "10.0.0.2"},
          {"02:00:00:00:00:02", "any 10.0.0.2 10.0.0.3"},
          {"00:00:00:00:00:00", "10.0.0.2 10.0.0.3"},
          {"01:00:5e:01:02:03", "any 10.0.0.2 10.0.0.3"}});
  fdb_->unicastIs(vni, host1, {{}, any});
  fdb_->unicastIs(vni, host2, to(4));
  fdb_->floodIs(vni, all, {{}, groups_->of({vtep(4), vtep(5)})});
  fdb_->floodIs(vni, group, {{vtep(3), vtep(4)}, 0});
  settle();
  expect({{"02:00:00:00:00:01", "any 10.0.0.2 10.0.0.3"},
          {"02:00:00:00:00:02", "10.0.0.4"},
          {"00:00:00:00:00:00", "any 10.0.0.4 10.0.0.5"},
          {"01:00:5e:01:02:03", "10.0.0.3 10.0.0.4"}});
  EXPECT_EQ(groups_->size(), 2U);
  for (const auto& each : {host1, host2}) fdb_->unicastIs(vni, each, {});
  for (const auto& each : {all, group}) fdb_->floodIs(vni, each, {});
  settle(true);
  expect({});
  EXPECT_EQ(output("ip nexthop"), "") << "what nobody uses goes when all is calm";
}

TEST_F(FdbTest, MembersOfAFloodSetComeBeforeOthersGo) {
  std::vector<Vorn::IpAddr> many;
  for (int i = 2; i < 302; ++i) many.push_back(vtep(i));
  fdb_->floodIs(vni, all, {many, 0});
  settle();
  const auto count = [] {
    const std::string text = inKernel()["00:00:00:00:00:00"];
    return 1 + std::ranges::count(text, ' ');
  };
  EXPECT_EQ(count(), 300);
  std::vector<Vorn::IpAddr> others;
  for (int i = 200; i < 400; ++i) others.push_back(vtep(i));
  fdb_->floodIs(vni, all, {others, 0});
  fdb_->work(time_);
  EXPECT_EQ(count(), 398) << "the new ones are there, and none is gone";
  settle();
  EXPECT_EQ(count(), 200);
}

TEST_F(FdbTest, GroupsAreSharedAndFollowTheirUsers) {
  const GroupId any = groups_->of({vtep(2), vtep(3)});
  EXPECT_EQ(groups_->of({vtep(2), vtep(3)}), any);
  fdb_->floodIs(vni, all, {{}, any});
  fdb_->floodIs(vni, group, {{}, any});
  settle();
  EXPECT_EQ(fdb_->wanters(any), 2U);
  EXPECT_TRUE(groups_->repoint(any, {vtep(3), vtep(4)}));
  EXPECT_FALSE(groups_->repoint(groups_->of({vtep(7)}), {vtep(3), vtep(4)})) << "there is one";
  settle();
  expect({{"00:00:00:00:00:00", "any 10.0.0.3 10.0.0.4"},
          {"01:00:5e:01:02:03", "any 10.0.0.3 10.0.0.4"}});
  EXPECT_EQ(groups_->of({vtep(3), vtep(4)}), any);
  fdb_->floodIs(vni, group, {{}, groups_->of({vtep(2), vtep(3)})});
  settle(true);
  EXPECT_EQ(groups_->size(), 2U);
  expect({{"00:00:00:00:00:00", "any 10.0.0.3 10.0.0.4"},
          {"01:00:5e:01:02:03", "any 10.0.0.2 10.0.0.3"}});
}

TEST_F(FdbTest, WhatOthersChangeIsPutBackAndTheirsIsLeft) {
  const GroupId any = groups_->of({vtep(2), vtep(3)});
  fill(3, 2);
  fdb_->floodIs(vni, all, {{vtep(2), vtep(3)}, 0});
  fdb_->floodIs(vni, group, {{}, any});
  settle();
  const Entries right = inKernel();
  const auto spoil = [&](const std::string& words, std::size_t entries) {
    const std::size_t before = fdb_->putBack();
    bridge(words);
    settle();
    EXPECT_EQ(inKernel(), right) << words;
    EXPECT_EQ(fdb_->putBack() - before, entries) << words;
  };
  spoil("fdb del 02:00:00:00:00:01 dev vx1 self", 1);
  spoil("fdb del 02:00:00:00:00:01 dev vx1 master", 1);
  spoil("fdb replace 02:00:00:00:00:02 dev vx1 dst 10.9.9.9 self", 1);
  spoil("fdb replace 02:00:00:00:00:02 dev vx1 dst 10.9.9.9 self static extern_learn", 1);
  spoil("fdb replace 02:00:00:00:00:03 dev vx1 dst 10.0.0.2 self", 1);  // no longer marked as ours
  EXPECT_NE(
      output("bridge fdb show dev vx1").find("02:00:00:00:00:03 dst 10.0.0.2 self extern_learn"),
      std::string::npos);
  spoil("fdb del 00:00:00:00:00:00 dev vx1 dst 10.0.0.3 self", 1);
  time_ += 60;
  spoil("fdb flush dev vx1 self", 5);
  bridge("fdb add 02:00:00:00:00:99 dev vx1 dst 10.9.9.9 self static extern_learn");
  bridge("fdb append 00:00:00:00:00:00 dev vx1 dst 10.9.9.9 self");
  settle(true);
  Entries withTheirs = right;
  withTheirs["02:00:00:00:00:99"] = "10.9.9.9 -";
  withTheirs["00:00:00:00:00:00"] += " 10.9.9.9";
  expect(withTheirs);
  EXPECT_EQ(fdb_->counts().foreign, 2U);
  bridge("fdb del 02:00:00:00:00:99 dev vx1 self");
  settle();
  EXPECT_EQ(fdb_->counts().foreign, 1U);
}

TEST_F(FdbTest, GroupsThatOthersChangeArePutBackWithWhatUsedThem) {
  const GroupId any = groups_->of({vtep(2), vtep(3)});
  fdb_->unicastIs(vni, host1, {{}, any});
  fdb_->floodIs(vni, all, {{}, any});
  settle();
  const Entries right = inKernel();
  const std::string id = std::to_string(any);
  for (const std::string& words :
       {"nexthop del id " + id,
        "nexthop replace id " + id + " group " + std::to_string(any + 1) + " fdb",
        "nexthop del id " + std::to_string(any + 1),
        "nexthop replace id " + std::to_string(any + 2) + " via 10.9.9.9 fdb"}) {
    const int before = groupsPutBack_;
    ip(words);
    settle();
    EXPECT_EQ(inKernel(), right) << words;
    EXPECT_GT(groupsPutBack_, before) << words;
    time_ += 60;
  }
}

TEST_F(FdbTest, NobodyIsFoughtWithForever) {
  fdb_->unicastIs(vni, host1, to(2));
  settle();
  for (int i = 0; i < 20; ++i) {
    bridge("fdb replace 02:00:00:00:00:01 dev vx1 dst 10.9.9.9 self");
    settle();
  }
  expect({{"02:00:00:00:00:01", "10.9.9.9"}});
  EXPECT_LT(fdb_->putBack(), 10U);
  EXPECT_EQ(fdb_->counts().refused, 1U);
  time_ = fdb_->due().value();
  settle();
  expect({{"02:00:00:00:00:01", "10.0.0.2"}});
  EXPECT_EQ(fdb_->counts().refused, 0U);
  EXPECT_TRUE(problems_.all().empty());
}

TEST_F(FdbTest, WhatIsRefusedIsToldAndTriedAgain) {
  bridge("fdb add 02:00:00:00:00:01 dev vx1 dst 10.9.9.9 self");
  fill(300, 2);
  settle();
  EXPECT_EQ(fdb_->counts().programmed, 299U) << "the others of its batch";
  EXPECT_EQ(fdb_->counts().refused, 1U);
  EXPECT_EQ(inKernel()["02:00:00:00:00:01"], "10.9.9.9") << "theirs is left";
  ASSERT_EQ(problems_.all().size(), 1U);
  EXPECT_EQ(problems_.all().begin()->second.value, "02:00:00:00:00:01");
  EXPECT_EQ(problems_.all().begin()->second.why, *fdb_->refusal(vni, host1));
  const double first = fdb_->due().value() - time_;
  time_ = fdb_->due().value();
  settle();
  EXPECT_GT(fdb_->due().value() - time_, first) << "less often";
  bridge("fdb del 02:00:00:00:00:01 dev vx1 self");
  time_ = fdb_->due().value();
  settle();
  EXPECT_EQ(fdb_->counts().programmed, 300U);
  EXPECT_TRUE(problems_.all().empty());
  EXPECT_FALSE(fdb_->due());
}

TEST_F(FdbTest, AWholeBatchIsRefused) {
  ip("link del vx1");  // which nobody has been told of
  fill(200, 2);
  fdb_->work(time_);
  EXPECT_EQ(fdb_->counts().refused, 128U);
  makeDevice();
  fdb_->deviceIs(vni, device_);
  settle();
  EXPECT_EQ(fdb_->counts().programmed, 200U);
  EXPECT_EQ(inKernel().size(), 200U);
}

TEST_F(FdbTest, ANewDeviceOrBridgeGetsAllOfIt) {
  fill(300, 2);
  fdb_->floodIs(vni, all, {{vtep(2)}, 0});
  settle();
  const Entries right = inKernel();
  ip("link del vx1");
  fdb_->deviceIs(vni, {});
  settle();
  EXPECT_EQ(fdb_->counts().programmed, 0U);
  makeDevice();
  fdb_->deviceIs(vni, device_);
  settle();
  expect(right);
  ip("link add br2 up type bridge");
  ip("link set vx1 master br2");
  device_.bridge = static_cast<int>(if_nametoindex("br2"));
  fdb_->deviceIs(vni, device_);
  settle();
  expect(right);
}

TEST_F(FdbTest, WhatIsThereIsTakenOverAndTheRestGoesWhenAllIsCalm) {
  fill(3, 2);
  fdb_->floodIs(vni, all, {{vtep(2), vtep(3)}, 0});
  fdb_->floodIs(vni, group, {{}, groups_->of({vtep(2), vtep(3)})});
  settle();
  const Entries before = inKernel();
  start();
  EXPECT_EQ(known_.size(), 3U);
  EXPECT_EQ(known_["02:00:00:00:00:01"], "10.0.0.2");
  fdb_->unicastIs(vni, host1, to(2));
  fdb_->unicastIs(vni, host2, to(9));
  fdb_->floodIs(vni, all, {{vtep(3)}, 0});
  settle();
  Entries now = before;
  now["02:00:00:00:00:02"] = "10.0.0.9";
  now["00:00:00:00:00:00"] = "10.0.0.3";
  expect(now);
  fdb_->calmIs(true);
  settle(true);
  now.erase("02:00:00:00:00:03");
  now.erase("01:00:5e:01:02:03");
  expect(now);
  EXPECT_EQ(output("ip nexthop"), "");
}

// Who adds to a flood set takes the mark from all of it, and the kernel does not give it back.
TEST_F(FdbTest, WhatHasLostItsMarkIsStillTakenOver) {
  const auto program = [this] {
    fdb_->floodIs(vni, all, {{vtep(2), vtep(3)}, 0});
    fdb_->floodIs(vni, group, {{}, groups_->of({vtep(2), vtep(3)})});
    settle(true);
  };
  program();
  bridge("fdb append 00:00:00:00:00:00 dev vx1 dst 10.9.9.9 self");
  bridge("fdb append 01:00:5e:01:02:03 dev vx1 dst 10.9.9.9 self");
  settle();
  const Entries theirs = inKernel();
  start();
  EXPECT_EQ(fdb_->counts().foreign, 3U);
  program();
  EXPECT_EQ(fdb_->counts().foreign, 1U);
  EXPECT_TRUE(problems_.all().empty());
  expect(theirs);
  fdb_->floodIs(vni, all, {{vtep(3)}, 0});
  fdb_->floodIs(vni, group, {});
  settle();
  expect({{"00:00:00:00:00:00", "10.0.0.3 10.9.9.9"}});
}

TEST_F(FdbTest, NothingIsWrittenThatIsThere) {
  fill(300, 2);
  fdb_->floodIs(vni, group, {{}, groups_->of({vtep(2), vtep(3)})});
  settle();
  start();
  fill(300, 2);
  fdb_->floodIs(vni, group, {{}, groups_->of({vtep(2), vtep(3)})});
  settle(true);
  EXPECT_EQ(fdb_->counts().programmed, 300U);
  int told = 0;
  monitor_->drain([&told](const nlmsghdr&) { ++told; });
  EXPECT_EQ(told, 0);
}

TEST_F(FdbTest, LostNewsAreMadeUpForByReadingAll) {
  fill(600, 2);
  fdb_->floodIs(vni, all, {{vtep(2), vtep(3)}, 0});
  settle();
  const Entries right = inKernel();
  start(1);  // the smallest buffer that there is
  fill(600, 2);
  fdb_->floodIs(vni, all, {{vtep(2), vtep(3)}, 0});
  settle();
  bridge("fdb flush dev vx1 self");
  output(
      "i=600; while [ $i -gt 300 ]; do printf 'fdb del 02:00:00:00:%02x:%02x dev vx1 master\\n' "
      "$((i / 256)) $((i % 256)); i=$((i - 1)); done | bridge -batch -");
  EXPECT_TRUE(settle());
  expect(right);
}

}  // namespace
