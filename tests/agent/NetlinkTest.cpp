// What talks to the kernel, on its own.
#include <linux/rtnetlink.h>
#include <set>
#include <string>

#include "agent/netlink/Dump.h"
#include "agent/netlink/Link.h"
#include "tests/agent/KernelNamespace.h"

namespace {

using namespace Agent::Netlink;
using NetlinkTest = AgentTest::KernelTest;

TEST_F(NetlinkTest, ADumpThatIsInterruptedIsBegunAnew) {
  AgentTest::output("seq 100 | sed 's/.*/link add port& type veth/' | ip -batch -");
  Dump dump;
  std::set<std::string> names;
  const auto take = [&names](const nlmsghdr& message) { names.insert(linkOf(message)->name); };
  dump.begin(RTM_GETLINK, allLinks);
  EXPECT_EQ(dump.step(take), Dump::State::more);
  ip("link add late type bridge");
  auto state = Dump::State::more;
  while (state == Dump::State::more) state = dump.step(take);
  EXPECT_EQ(state, Dump::State::interrupted);

  int begun = 0;
  const auto restart = [&] {
    ++begun;
    names.clear();
  };
  dump.readAll(RTM_GETLINK, allLinks, restart, [&](const nlmsghdr& message) {
    if (begun == 1 && names.size() == 50) ip("link add later type bridge");
    take(message);
  });
  EXPECT_EQ(begun, 2);
  EXPECT_EQ(names.size(), 203U) << "a hundred pairs, the loopback, and the two bridges";
  EXPECT_TRUE(names.contains("later"));
}

// What is left of a dump that was given up is passed over.
TEST_F(NetlinkTest, ADumpIsBegunInTheMidstOfAnother) {
  AgentTest::output("seq 100 | sed 's/.*/link add port& type veth/' | ip -batch -");
  Dump dump;
  dump.begin(RTM_GETLINK, allLinks);
  EXPECT_EQ(dump.step([](const nlmsghdr&) {}), Dump::State::more);
  int addresses = 0;
  dump.readAll(
      RTM_GETADDR, allAddresses, [&addresses] { addresses = 0; },
      [&addresses](const nlmsghdr& message) {
        EXPECT_EQ(message.nlmsg_type, RTM_NEWADDR);
        ++addresses;
      });
  EXPECT_EQ(addresses, 0);
}

}  // namespace
