// The links of VNIs in a real kernel: a test has a network namespace of its own, with the access
// ports p1 and p2, and `own` with the address of our VTEP, 10.0.0.1. It is a script of lines
// "STEP; STEP => what is told of it"; a line that is indented continues the one before. All that
// there is to do is done at the end of a line. The steps:
//
//   start | adopt       a new process            vni VNI   -vni VNI
//   ports [PORT[/TAG]=VNI]...                    local ADDRESS   calm   wait SECONDS
//   deaf                forget what has happened
//   reread              tell all that there is
//   ip ...  bridge ...  what somebody else does
//   look LINK...  problems  due  events  devices  own    ask
#include <gtest/gtest.h>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "agent/base/Text.h"
#include "agent/kernel/Links.h"
#include "agent/netlink/Dump.h"
#include "agent/netlink/Monitor.h"
#include "tests/agent/KernelNamespace.h"

namespace {

using namespace Agent;  // NOLINT(google-build-using-namespace)
using Vorn::IpAddr;
using Vxlan::VniExt;

std::vector<Netlink::Link> dumped() {
  std::vector<Netlink::Link> all;
  Netlink::Dump().readAll(
      RTM_GETLINK, Netlink::allLinks, [&] { all.clear(); },
      [&](const nlmsghdr& message) { all.push_back(*Netlink::linkOf(message)); });
  return all;
}

std::string nameOf(int index) {
  for (const auto& link : dumped())
    if (link.index == index) return link.name;
  return "-";
}

// "NAME in MASTER, up, mtu 1450" and what else is to be seen of it.
std::string pictureOf(const std::string& name) {
  for (const auto& link : dumped()) {
    if (link.name != name) continue;
    std::ostringstream text;
    text << name << " in " << nameOf(link.master) << (link.isUp ? " up " : " down ") << link.mtu;
    if (link.alias == "the mark") text << " ours";
    if (!link.vxlan) return text.str();
    text << ' ' << link.vxlan->vni << ' ' << link.vxlan->local << ' ' << link.vxlan->port;
    if (link.vxlan->learns) text << " learns";
    if (link.portLearns == true) text << " port learns";
    return text.str();
  }
  return "no " + name;
}

class LinksTest : public AgentTest::KernelTest {
 protected:
  void SetUp() override {
    KernelTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    requests_.emplace();
    monitor_.emplace(0);
    for (const std::string port : {"own", "p1", "p2"}) run("ip link add " + port + " type veth");
    run("ip addr add 10.0.0.1/24 dev own");
    start(true);
  }

  void play(const std::string& script) {
    std::istringstream in(std::regex_replace(script, std::regex("\n +"), " "));
    for (std::string line; std::getline(in, line);) {
      const std::size_t arrow = line.find(" => ");
      std::istringstream steps(line.substr(0, arrow));
      for (std::string step; std::getline(steps, step, ';');) take(step);
      settle();
      EXPECT_EQ(std::exchange(told_, ""), arrow == std::string::npos ? "" : line.substr(arrow + 4))
          << line;
    }
  }

 private:
  void take(const std::string& step) {
    std::istringstream words(step);
    std::string verb;
    std::string word;
    words >> verb;
    if (verb == "ip" || verb == "bridge") {
      run(step);
    } else if (verb == "start" || verb == "adopt") {
      start(verb == "start");
    } else if (verb == "ports") {
      links_->portsAre(ports(words));
    } else if (verb == "calm") {
      links_->calmIs(true);
    } else if (verb == "deaf") {
      hear([](const nlmsghdr&) {});
    } else if (verb == "reread") {
      readAll();
    } else if (verb == "vni" || verb == "-vni" || verb == "local" || verb == "wait") {
      while (words >> word) {
        if (verb == "vni") links_->vniIs(VniExt(std::stoi(word)));
        if (verb == "-vni") links_->vniDel(VniExt(std::stoi(word)));
        if (verb == "local") links_->localAddressIs(*IpAddr::parse(word));
        if (verb == "wait") now_ += std::stod(word);
      }
    } else {
      settle();
      appendTo(told_, "; ", answer(verb, words));
    }
  }

  std::string answer(const std::string& verb, std::istringstream& words) {
    std::string text;
    if (verb == "look")
      for (std::string name; words >> name;) appendTo(text, "; ", pictureOf(name));
    if (verb == "problems")
      for (const auto& [what, problem] : problems_.all())
        appendTo(text, "; ", what + " = " + problem.value + ": " + problem.why);
    if (verb == "own")
      for (const auto& link : dumped())
        if (links_->vniOf(link.index)) appendTo(text, " ", link.name);
    if (verb == "events") text = std::exchange(events_, "");
    if (verb == "devices") text = std::to_string(links_->devices());
    if (verb == "due" && links_->due()) text = secondsText(*links_->due() - now_);
    return text.empty() ? "no " + verb : text;
  }

  // "p1/7=5": VNI 5 at tag 7.
  static std::vector<Attachment> ports(std::istringstream& words) {
    std::vector<Attachment> all;
    for (std::string word; words >> word;) {
      const std::size_t name = word.find_first_of("/=");
      const int tag = word[name] == '/' ? std::stoi(word.substr(name + 1)) : 0;
      const int vni = std::stoi(word.substr(word.find('=') + 1));
      all.push_back({word.substr(0, name), static_cast<std::uint16_t>(tag), VniExt(vni)});
    }
    return all;
  }

  static void run(const std::string& command) { AgentTest::output(command); }

  void start(bool manages) {
    const auto deviceIs = [this](const VniExt& vni, const std::optional<Kernel::Device>& device) {
      EXPECT_EQ(links_->device(vni), device);
      appendTo(events_, ", ", std::to_string(vni.value()) + (device ? " is " : " is gone"));
      if (device) events_ += nameOf(device->index) + " in " + nameOf(device->bridge);
    };
    const auto tell = [this](const std::string& text) { appendTo(told_, ", ", text); };
    problems_ = Problems([](const std::string&, const Problem&) {});
    links_.emplace(Kernel::LinkOptions{manages, "the mark"}, *requests_, problems_,
                   Kernel::Links::Events{deviceIs, tell});
    readAll();
    links_->localAddressIs(*IpAddr::parse("10.0.0.1"));
  }

  void readAll() {
    links_->beginAll();
    Netlink::Dump().readAll(
        RTM_GETLINK, Netlink::allLinks, [] {}, handler_);
    Netlink::Dump().readAll(
        RTM_GETADDR, Netlink::allAddresses, [] {}, handler_);
    links_->endAll();
  }

  void settle() {
    hear(handler_);
    do {
      news_ = 0;
      if (links_->work(now_)) news_ = 1;
      hear(handler_);
    } while (news_ > 0);
  }

  void hear(const Netlink::Handler& handler) {
    for (auto state = Netlink::Monitor::State::more; state != Netlink::Monitor::State::drained;) {
      state = monitor_->drain(handler);
      if (state == Netlink::Monitor::State::overrun) readAll();
    }
  }

  void hand(const nlmsghdr& message) {
    ++news_;
    const auto type = message.nlmsg_type;
    if (type == RTM_NEWLINK || type == RTM_DELLINK) {
      const auto port = Netlink::bridgePortOf(message);
      if (port && type == RTM_NEWLINK) links_->portIs(*port);
      if (const auto link = Netlink::linkOf(message))
        type == RTM_NEWLINK ? links_->linkIs(*link) : links_->linkDel(*link);
    }
    if (type == RTM_NEWADDR || type == RTM_DELADDR)
      if (const auto address = Netlink::addressOf(message))
        type == RTM_NEWADDR ? links_->addressIs(*address) : links_->addressDel(*address);
  }

  const Netlink::Handler handler_ = [this](const nlmsghdr& message) { hand(message); };
  std::optional<Netlink::Requests> requests_;
  std::optional<Netlink::Monitor> monitor_;
  Problems problems_{{}};
  std::optional<Kernel::Links> links_;
  int news_ = 0;
  double now_ = 100;
  std::string told_;
  std::string events_;
};

TEST_F(LinksTest, MakesWhatIsMissing) {
  play(R"(
look p1 => p1 in - down 1500
vni 5; ports p1=5 p2=5 => made br5, made vx5, put p1 into br5, put p2 into br5
events; devices; own; problems => 5 is vx5 in -, 5 is vx5 in br5; 1; vx5; no problems
look vx5 br5 p1 => vx5 in br5 up 1450 ours 5 10.0.0.1 4789; br5 in - up 1450 ours;
  p1 in br5 down 1500

start; events; devices; own => 5 is vx5 in br5; 0; vx5
vni 5; ports p1=5 p2=5
vni 6; ports p1=5 p2=6 => made br6, made vx6, put p2 into br6
look p2; devices => p2 in br6 down 1500; 2
vni 11 12 13 14 15 16 17 18 19; look vx19 => made br11, made vx11, made br12, made vx12, made br13,
  made vx13, made br14, made vx14, made br15, made vx15, made br16, made vx16, made br17, made vx17,
  made br18, made vx18, made br19, made vx19; vx19 in br19 up 1450 ours 19 10.0.0.1 4789)");
}

TEST_F(LinksTest, PutsRightWhatSomebodyChanges) {
  play("vni 5; ports p1=5 => made br5, made vx5, put p1 into br5");
  const std::pair<const char*, const char*> cases[] = {
      {"ip link set vx5 down", "vx5: it was down"},
      {"ip link set vx5 nomaster", "vx5: it was in no bridge"},
      {"ip link set vx5 type vxlan learning", "vx5: it learnt"},
      {"ip link set vx5 type bridge_slave learning on", "vx5: its bridge learnt from it"},
      {"bridge link set dev vx5 learning on", "vx5: its bridge learnt from it"},
      {"ip link set vx5 mtu 1400", "vx5: it had another MTU"},
      {"ip link set vx5 type vxlan local 10.0.0.9", "vx5: it had another local address"},
      {"ip link set vx5 alias mine", "vx5: it had another alias"},
      {"ip link del vx5", "vx5: it was gone"},
      {"ip link set br5 down", "br5: it was down"},
      {"ip link set br5 alias mine", "br5: it had another alias"},
      {"ip link set p1 nomaster", "p1: it was in no bridge"},
      {"ip link del br5", "br5: it was gone, put p1 into br5"},
      {"ip link del vx5; ip link set p1 nomaster; deaf; reread",
       "vx5: it was gone, put right p1: it was in no bridge"},
  };
  for (const auto& [steps, told] : cases)
    play(std::string("wait 100; ") + steps + "; look vx5 br5 p1 => put right " + told +
         "; vx5 in br5 up 1450 ours 5 10.0.0.1 4789; br5 in - up 1450 ours; p1 in br5 down 1500");
}

TEST_F(LinksTest, FightsNobodyForLong) {
  play("vni 5 => made br5, made vx5\nwait 20");
  for (int i = 0; i < 5; ++i)
    play("wait 0.125; ip link set vx5 down => put right vx5: it was down");
  play(R"(
wait 0.125; ip link set vx5 down; due => 0.875000 s
wait 0.125; ip link set vx5 mtu 1400 => put right vx5: it had another MTU
wait 0.5
wait 0.25; look vx5; due => put right vx5: it was down; vx5 in br5 up 1450 ours 5 10.0.0.1 4789; no due
wait 10; ip link set vx5 down => put right vx5: it was down
wait 0.125; ip link set vx5 down => put right vx5: it was down)");
}

TEST_F(LinksTest, LeavesAloneWhatHasTheNameOrTheVni) {
  play(R"(
ip link add vx5 type veth; ip link add br6 type bridge; ip link add other type vxlan id 6 dstport 4789
ip link add vx7 type vxlan id 77 dstport 4789 local 10.0.0.9
start; vni 6; due => 0.500000 s
wait 0.5; due => 1.000000 s
wait 0.5; due => 0.500000 s
wait 0.5; due => 2.000000 s
wait 2; due => 4.000000 s
wait 4; due => 8.000000 s
wait 8; due => 16.000000 s
wait 16; due => 30.000000 s
wait 30; due => 30.000000 s
vni 5 7; ports p3=5; problems => made br5, made br7;
  kernel: VNI 5: device = vx5: File exists;
  kernel: VNI 5: port p3 = p3: an interface of this name;
  kernel: VNI 6: bridge = br6: File exists;
  kernel: VNI 6: device = vx6: File exists: A VXLAN device with the specified VNI already exists;
  kernel: VNI 7: device = vx7: File exists
look vx5 br6 vx7 => vx5 in - down 1500; br6 in - down 1500; vx7 in - down 1500 77 10.0.0.9 4789 learns
ip link del vx5; look vx5 => made vx5; vx5 in br5 up 1450 ours 5 10.0.0.1 4789
ip link del other => made vx6
ip link set vx7 name seven; ip link del br6 => made br6, made vx7
look vx6 vx7 => vx6 in br6 up 1450 ours 6 10.0.0.1 4789; vx7 in br7 up 1450 ours 7 10.0.0.1 4789
ip link add p3 type veth; problems; due => put p3 into br5; no problems; no due
ip link del p3; problems => kernel: VNI 5: port p3 = p3: an interface of this name
-vni 5; problems => no problems)");
}

TEST_F(LinksTest, FollowsAPortIntoTheOperatorsBridge) {
  play(R"(
ip link add lan type bridge; ip link add wan type bridge
vni 5; ports p1=5 p2=5 => made br5, made vx5, put p1 into br5, put p2 into br5
ip link set p2 master lan; look vx5 p1 br5 => put p1 into lan;
  vx5 in lan up 1450 ours 5 10.0.0.1 4789; p1 in lan down 1500; br5 in - up 1500 ours
events => 5 is vx5 in -, 5 is vx5 in br5, 5 is vx5 in -, 5 is vx5 in lan
calm; look lan => removed br5; lan in - down 1450
ip link set p1 master wan; look vx5; problems => vx5 in wan up 1450 ours 5 10.0.0.1 4789;
  kernel: VNI 5: port p2 = p2: a port of wan, or of no bridge
ip link set p2 nomaster; problems => put p2 into wan; no problems
ip link set p1 nomaster; look vx5 p2 => made br5, put p1 into br5, put p2 into br5;
  vx5 in br5 up 1450 ours 5 10.0.0.1 4789; p2 in br5 down 1500)");
}

TEST_F(LinksTest, RemovesWhatNobodyWantsWhenCalm) {
  play(R"(
ip link add hand type veth; ip link add vx9 type vxlan id 9 dstport 4789
vni 5 6; ports p1=5 p2=6 => made br5, made vx5, made br6, made vx6, put p1 into br5, put p2 into br6
ip link set hand master br5
ports p1=5; -vni 6; look p2; devices => p2 in br6 down 1500; 1
calm => removed vx6, took p2 out of br6, removed br6
look p2 vx6 br6; events => p2 in - down 1500; no vx6; no br6;
  5 is vx5 in -, 6 is vx6 in -, 5 is vx5 in br5, 6 is vx6 in br6, 6 is gone

start; vni 5; ports p1=5
-vni 5
calm; look hand => removed vx5, took p1 out of br5; hand in br5 down 1500
ip link set hand master br5; ip link set p1 master br5
ip link set p1 nomaster; ip link set hand nomaster; look vx9 => removed br5; vx9 in - down 1500 9 0.0.0.0 4789 learns)");
}

TEST_F(LinksTest, FollowsTheUnderlay) {
  play(R"(
vni 5 => made br5, made vx5
ip link set own mtu 1300; look vx5 => vx5 in br5 up 1250 ours 5 10.0.0.1 4789
local 10.0.0.2; vni 6; problems => made br6, made vx6;
  kernel: address of our VTEP = 10.0.0.2: an address of an interface
look vx5 vx6 => vx5 in br5 up 1250 ours 5 10.0.0.2 4789; vx6 in br6 up 1450 ours 6 10.0.0.2 4789
ip addr add 10.0.0.2/32 dev lo; look vx6; problems => vx6 in br6 up 65486 ours 6 10.0.0.2 4789;
  no problems
ip addr del 10.0.0.2/32 dev lo; deaf; reread; problems =>
  kernel: address of our VTEP = 10.0.0.2: an address of an interface
local 0.0.0.0; vni 7; problems => made br7; no problems)");
}

TEST_F(LinksTest, FindsSubInterfaces) {
  const bool areMade =
      std::system("ip link add link own name own.9 type vlan id 9 2>/dev/null") == 0;
  if (areMade)
    play(R"(
calm; vni 5; ports p1/7=5; look p1.7 => made br5, made vx5, made p1.7, put p1.7 into br5;
  p1.7 in br5 up 1500 ours
ports; look p1.7 => took p1.7 out of br5, removed p1.7; no p1.7)");
  else
    play(R"(
vni 5; ports p1/7=5; problems => made br5, made vx5;
  kernel: VNI 5: port p1.7 = p1.7: Operation not supported: Unknown device type)");
  play(R"(
ports p3/7=5; problems => kernel: VNI 5: port p3.7 = p3: an interface of this name
ip link add p3.7 type veth; problems => put p3.7 into br5; no problems)");
}

TEST_F(LinksTest, AdoptsWhatThereIs) {
  play(R"(
ip link add mine type vxlan id 5 dstport 8472; ip link add lan type bridge
ip link add any type vxlan external dstport 4789
adopt; vni 5 6; ports p1=5; calm; problems; events =>
  kernel: VNI 6: device = 6: a vxlan device with this VNI; 5 is mine in -
ip link set mine master lan; ip link add six type vxlan id 6 dstport 4790
ip link add more type vxlan id 6 dstport 4791; events; problems; devices; own =>
  5 is mine in lan, 6 is six in -; no problems; 2; mine six
ip link del six; events; own => 6 is more in -; mine more
look mine p1 => mine in lan down 1500 5 0.0.0.0 8472 learns port learns; p1 in - down 1500
adopt; events => 5 is mine in -, 5 is mine in lan, 6 is more in -)");
}

}  // namespace
