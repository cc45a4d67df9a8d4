// The withdrawal gate, with a store and a client behind it. A test is a script of lines
// "STEP; STEP => what is emitted": what the source says and what time passes, and all that the gate
// emits for it, in its order. A line that is indented continues the one before. The steps:
//
//   vni VNI VLAN     -vni VNI               host VNI MAC VTEP   -host VNI MAC [meant]
//   all|any VNI MAC VTEP...                 -list VNI MAC       adopt VNI MAC VTEP
//   commit   sync   lost   release          wait SECONDS        turn (the due clocks, once)
//   hold     counts     waits VNI MAC       rib
//
// The last four ask, and the answer stands among what is emitted. MACs and VTEPs are numbers; "1-9"
// is all from 1 to 9. Of the RIB, "deleted" counts the hosts that have left it since it was asked.
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Vxlan/VxlanControllerClientSm.h"
#include "agent/gate/WithdrawalGate.h"
#include "agent/store/StateStore.h"
#include "framework/Moru/ActivityFacility.h"

namespace {

using namespace Agent;  // NOLINT(google-build-using-namespace)
using L2Rib::FloodSetType;
using Moru::create;
using Vorn::EthAddr;
using Vorn::IpAddr;
using Vxlan::VniExt;

constexpr std::uint64_t macBase = 0x020000000000;
constexpr std::uint32_t vtepBase = 0x0a000000;

EthAddr mac(std::uint64_t number) { return EthAddr::fromValue(macBase + number); }
IpAddr vtep(std::uint32_t number) { return IpAddr(vtepBase + number); }
std::uint32_t number(const IpAddr& vtep) { return vtep.value() - vtepBase; }

// What is emitted, as text. Hosts of consecutive MACs become one range.
class Emitted {
 public:
  void add(const std::string& before, std::uint64_t number, const std::string& after) {
    if (!parts_.empty() && parts_.back().before == before && parts_.back().after == after &&
        parts_.back().last + 1 == number)
      parts_.back().last = number;
    else
      parts_.push_back({before, number, number, after});
  }
  void add(const std::string& text) { parts_.push_back({text, 0, 0, ""}); }

  void operator()(const Set<ControllerHost>& c) {
    add("host " + c.target.name.stringValue() + ' ', c.target.mac.value() - macBase,
        ' ' + std::to_string(number(c.value.vtep)));
  }
  void operator()(const Del<ControllerHost>& c) {
    add("-host " + c.target.name.stringValue() + ' ', c.target.mac.value() - macBase, "");
  }
  void operator()(const Set<ControllerFlood>& c) {
    std::string text = c.value.replace ? "replaced" : "all" + place(c.target);
    for (const auto& [vtep, flag] : c.value.vteps)
      text += (flag ? " " : " no ") + std::to_string(number(vtep));
    add(text);
  }
  void operator()(const Set<ControllerMultiPath>& c) {
    std::string text = "any" + place(c.target);
    for (const IpAddr& vtep : c.value) text += ' ' + std::to_string(number(vtep));
    add(text);
  }
  void operator()(const Del<ControllerFlood>& c) { add("-all" + place(c.target)); }
  void operator()(const Del<ControllerMultiPath>& c) { add("-any" + place(c.target)); }
  void operator()(const Set<ControllerEntry>& c) {
    add(c.value.instantiated ? "entry " + c.target.name.stringValue() : "not instantiated");
  }
  void operator()(const Del<ControllerEntry>& c) { add("-entry " + c.target.name.stringValue()); }
  void operator()(const Set<VlanVni>& c) { add("map" + place(c.target) + ' ' + text(c.value)); }
  void operator()(const Del<VlanVni>& c) { add("-map" + place(c.target)); }
  void operator()(const Set<Vti>& c) {
    std::string all = "import";
    for (const auto& vlan : *c.value.vccImportVlans) all += ' ' + text(vlan);
    add(c.target.intf.stringValue() == "Vxlan1" ? all : "import elsewhere");
  }
  void operator()(const Set<ControllerState>& c) {
    EXPECT_EQ(c.target.name, Moru::Name("controller"));
    add(c.value.convergenceInProgress ? "converging" : "converged");
  }
  template <class Other>
  void operator()(const Other&) {
    add("something else");
  }

  std::string take() {
    std::string all;
    for (const Part& part : std::exchange(parts_, {})) {
      all += (all.empty() ? "" : "; ") + part.before;
      if (part.first != 0) all += std::to_string(part.first);
      if (part.last != part.first) all += '-' + std::to_string(part.last);
      all += part.after;
    }
    return all;
  }

 private:
  struct Part {
    std::string before;
    std::uint64_t first, last;
    std::string after;
  };
  template <class T>
  static std::string text(const T& number) {
    return std::to_string(number.value());
  }
  template <class List>
  static std::string place(const List& list) requires requires {
    list.mac;
  }
  { return ' ' + list.name.stringValue() + ' ' + std::to_string(list.mac.value() - macBase); }
  static std::string place(const VlanVni& map) { return ' ' + text(map.vlan); }

  std::vector<Part> parts_;
};

// Counts the hosts that leave the layer-2 RIB.
class Deletions final : public L2Rib::HostInput::NotifieeConst {
 public:
  void onAttribute(Moru::AttributeId, const void* key) override {
    if (!notifier()->host().contains(*Moru::keyOf<&L2Rib::HostInput::host>(key))) ++count;
  }
  std::size_t count = 0;
};

class World {
 public:
  explicit World(const GateOptions& options = {}) {
    Moru::ActivityFacility::currentIs(facility);
    store.apply(Set<HwBum>{{}, Vxlan::BumReplicationMode::controller});
    Vti::Value vti;
    vti.controllerClientMode = true;
    store.apply(Set<Vti>{{Vorn::IntfId("Vxlan1")}, vti});
    client = Vxlan::vxlanControllerClientSmFactory(store.inputs());
    deletions->notifierIs(store.l2RibZepInput);
    deletions->hasNotificationActiveIs(true);
    gate = std::make_unique<WithdrawalGate>(options, [this](const Change& change) {
      std::visit(emitted, change);
      store.apply(change);
    });
    EXPECT_EQ(emitted.take(), "converging");
    EXPECT_TRUE(gate->converging());
  }

  // Says the steps, and returns what is emitted.
  std::string play(const std::string& script) {
    std::istringstream steps(script);
    for (std::string step; std::getline(steps, step, ';');) {
      std::istringstream words(step);
      std::string verb;
      words >> verb;
      say(verb, words);
    }
    return emitted.take();
  }

  Moru::Ptr<Moru::VirtualTime> time = create<Moru::VirtualTime>(100);
  Moru::Ptr<Moru::ActivityFacility> facility = create<Moru::ActivityFacility>(time);
  Emitted emitted;
  StateStore store;
  Moru::Ptr<Vxlan::VxlanControllerClientSm> client;
  Moru::Ptr<Deletions> deletions = create<Deletions>();
  std::unique_ptr<WithdrawalGate> gate;

 private:
  void say(const std::string& verb, std::istringstream& words) {
    if (verb == "commit") return gate->commit();
    if (verb == "sync" || verb == "lost") return gate->inSyncIs(verb == "sync");
    if (verb == "release") return gate->release();
    if (verb == "turn") return static_cast<void>(facility->fireDue());
    if (verb == "hold") return emitted.add(hold());
    if (verb == "rib") return emitted.add(rib());
    if (verb == "counts")
      return emitted.add(std::to_string(gate->hosts()) + " hosts, " +
                         std::to_string(gate->waiting()) + " waiting");
    double amount = 0;  // of seconds, or a VNI
    words >> amount;
    if (verb == "wait") return facility->runUntil(time->time() + amount);
    const VniExt vni(static_cast<std::int64_t>(amount));
    std::uint64_t first = 0;
    if (verb == "-vni") return gate->vniDel(vni, Cause::controller);
    words >> first;
    if (verb == "vni") return gate->vniIs(vni, Bridging::VlanId(static_cast<int>(first)));
    if (verb == "waits") return emitted.add(gate->isWaiting(vni, mac(first)) ? "waits" : "not");
    if (verb == "-list") return gate->listDel(vni, mac(first), Cause::controller);
    if (verb == "all" || verb == "any") {
      FloodList list{verb == "all" ? FloodSetType::sendToAll : FloodSetType::sendToAny, {}};
      for (std::uint32_t each = 0; words >> each;) list.vteps.push_back(vtep(each));
      return gate->listIs(vni, mac(first), list);
    }
    std::uint64_t last = first;
    if (words.peek() == '-') words.get() && words >> last;
    std::string more;
    words >> more;
    for (std::uint64_t each = first; each <= last; ++each) host(verb, vni, mac(each), more);
  }

  void host(const std::string& verb, const VniExt& vni, const EthAddr& mac,
            const std::string& more) {
    if (verb == "-host")
      return gate->hostDel(vni, mac, more == "meant" ? Cause::meant : Cause::controller);
    const IpAddr address = vtep(static_cast<std::uint32_t>(std::stoul(more)));
    if (verb == "host") return gate->hostIs(vni, mac, address);
    if (verb == "adopt") return gate->adopt(vni, mac, address);
    ADD_FAILURE() << "no such step: " << verb;
  }

  std::string hold() const {
    const auto hold = gate->hold();
    if (!hold) return "no hold";
    std::ostringstream out;
    out << "hold " << hold->since - 100 << " waiting " << hold->waiting << " ends ";
    if (hold->ends)
      out << *hold->ends - 100;
    else
      out << "never";
    return out.str();
  }

  std::string rib() {
    std::ostringstream out;
    out << "hosts " << store.l2RibZepInput->host().size() << " marked "
        << client->hostTable()->markedForDelCount() << " deleted "
        << std::exchange(deletions->count, 0);
    for (unsigned vlan = 1; vlan < 50; ++vlan) {
      const auto set = store.zepSde->vlanFloodSet(Bridging::VlanId(vlan));
      if (!set) continue;
      for (const auto& [mac, floodSet] : set->floodSet()) {
        out << " / " << vlan
            << (floodSet->floodSetType() == FloodSetType::sendToAll ? " all" : " any");
        for (const auto& [dest, flag] : floodSet->destSet())
          out << ' ' << number(dest.vxlan().vtepAddr.ip4());
      }
    }
    return out.str();
  }
};

// Plays a script; each line must emit what it says. Those that are indented go on.
void play(std::string script, const GateOptions& options = {}) {
  for (std::size_t at = 0; (at = script.find("\n      ", at)) != std::string::npos;)
    script.replace(at, 7, " ");
  World world(options);
  std::istringstream in(script);
  for (std::string line; std::getline(in >> std::ws, line);) {
    const auto arrow = line.find("=>");
    const std::string emitted = world.play(line.substr(0, arrow));
    EXPECT_EQ(emitted, line.size() > arrow + 3 ? line.substr(arrow + 3) : "")
        << line << ", at " << world.time->time() - 100;
  }
}

TEST(Gate, LetsAnnouncementsThroughAtOnceAndOnce) {
  play(R"(
  vni 1 10; vni 2 20; all 1 9 2 3; any 2 9 2; host 1 1-2 2; host 2 1 3; commit =>
      map 10 1; map 20 2; import 10 20; entry 1; entry 2; all 1 9 2 3; any 2 9 2;
      host 1 1-2 2; host 2 1 3
  vni 1 10; vni 2 20; all 1 9 2 3; any 2 9 2; host 1 1-2 2; host 2 1 3; commit =>
  sync; sync; lost; lost; sync; hold => converged; converging; converged; no hold
  vni 3 5; commit => map 5 3; import 5 10 20; entry 3
  host 1 7 2 => host 1 7 2
  host 1 1 3; any 2 9 2 4; commit => host 1 1 3; any 2 9 2 4
  host 1 1 2; any 2 9 2; commit => host 1 1 2
  wait 5; counts => any 2 9 2; 4 hosts, 0 waiting
)");
}

const std::string twoVnis = R"(
  vni 1 10; vni 2 20; all 1 9 2 3; host 1 1-2 2; host 2 1 2; commit; sync =>
      map 10 1; map 20 2; import 10 20; entry 1; entry 2; all 1 9 2 3; host 1 1-2 2; host 2 1 2;
      converged
)";

TEST(Gate, ForgetsAWithdrawalThatIsAnnouncedAgain) {
  play(twoVnis + R"(
  -host 1 1; commit; waits 1 1; waits 1 2; counts; wait 0.75 => waits; not; 3 hosts, 1 waiting
  host 1 1 2; commit; waits 1 1; counts; wait 5 => not; 3 hosts, 0 waiting
  -host 1 1; commit; wait 0.5; host 1 1 4; commit; wait 5 => host 1 1 4
  -host 1 1; commit; wait 0.5; host 1 1 4; -host 1 1; commit; wait 0.75 =>
  -host 1 1; commit; wait 0.25; counts => -host 1 1; 2 hosts, 0 waiting
  -host 1 1; -host 3 1; -list 1 8; -list 3 9; -vni 3; commit; wait 5; hold => no hold
  -vni 1; commit; wait 0.5; vni 1 10; commit; wait 0.75; rib =>
      hosts 2 marked 0 deleted 1 / 10 all 2 3
  -vni 1; commit; wait 0.5; vni 1 10; -vni 1; commit; wait 0.75; -vni 1; commit =>
  wait 0.25; rib =>
      -host 1 2; -all 1 9; -entry 1; -map 10; import 20; hosts 1 marked 0 deleted 1
  vni 1 10; host 1 2 2; commit => map 10 1; import 10 20; entry 1; host 1 2 2
)");
}

TEST(Gate, WithdrawsInOrderAndNotWithinABatch) {
  play(twoVnis + R"(
  -host 1 1; commit; wait 0.5; host 2 1 2; wait 5; host 1 2 2 =>
  commit => -host 1 1
  all 2 9 2; commit; -vni 1; -list 2 9; commit; wait 1 =>
      all 2 9 2; -all 2 9; -host 1 2; -all 1 9; -entry 1; -map 10; import 20
  vni 1 10; all 1 9 2; host 1 1-2 2; commit =>
      map 10 1; import 10 20; entry 1; all 1 9 2; host 1 1-2 2
  -vni 1; -vni 2; wait 0.5; -list 1 9; -host 1 1-2 meant; -host 2 1; commit; wait 0.25 =>
  wait 0.25 => -host 2 1; -host 1 1-2; -all 1 9; -entry 1; -entry 2; -map 10; -map 20; import
)");
}

TEST(Gate, WritesWhatAListGainsAndLetsItLoseLater) {
  play(R"(
  vni 1 10; all 1 9 2 3; commit; sync => map 10 1; import 10; entry 1; all 1 9 2 3; converged
  all 1 9 3 4; commit; wait 0.75 => all 1 9 2 3 4
  wait 0.25 => all 1 9 3 4
  all 1 9 4; commit; wait 0.5; all 1 9 3 4; commit; wait 5 =>
  all 1 9 2 3 4 5; commit; all 1 9 3 5; commit; wait 0.5; all 1 9 5; commit; wait 0.25 =>
      all 1 9 2 3 4 5
  wait 0.25 => all 1 9 3 5
  wait 0.5; rib => all 1 9 5; hosts 0 marked 0 deleted 0 / 10 all 5
  -list 1 9; commit; wait 0.5; all 1 9 5; commit; wait 5 =>
  -list 1 9; commit; wait 0.5; all 1 9 6; commit; wait 0.75 => all 1 9 5 6
  wait 0.25 => all 1 9 6
  any 1 9 6 7; commit; wait 5 => any 1 9 6 7; -all 1 9
  any 1 9 7; commit; wait 0.5; -list 1 9; commit; wait 0.5 => any 1 9 7
  all 1 9 7; commit; wait 5; rib => all 1 9 7; -any 1 9; hosts 0 marked 0 deleted 0 / 10 all 7
  any 1 8 3; -list 1 9; commit; wait 0.75; -list 1 9; commit; wait 0.25 => any 1 8 3; -all 1 9
  -list 1 8; commit; wait 1; all 1 9 2; commit => -any 1 8; all 1 9 2
)");
}

TEST(Gate, GivesAVniItsNewVlanAtOnce) {
  play(twoVnis + R"(
  adopt 1 7 2; -host 1 2; all 1 9 3; all 1 8 2; commit; -list 1 8; commit => all 1 8 2
  vni 1 11; commit; wait 5; counts =>
      -host 1 1-2; -host 1 7; -all 1 8; -all 1 9; -entry 1; -map 10; map 11 1; import 11 20;
      entry 1; all 1 9 3; host 1 1 2; 2 hosts, 0 waiting
  vni 1 20; vni 2 11; commit; rib =>
      -host 1 1; -all 1 9; -entry 1; -map 11; -host 2 1; -entry 2; -map 20; map 20 1; map 11 2;
      entry 1; entry 2; all 1 9 3; host 1 1 2; host 2 1 2; hosts 2 marked 0 deleted 4 / 20 all 3
  -vni 2; commit; wait 0.5; vni 2 12; commit; wait 5 =>
      -host 2 1; -entry 2; -map 11; map 12 2; import 12 20; entry 2; host 2 1 2
  -vni 2; commit; wait 0.5; vni 3 12; commit; wait 5 =>
      -host 2 1; -entry 2; -map 12; map 12 3; entry 3
  vni 4 20; -vni 1; commit; wait 5 => -host 1 1; -all 1 9; -entry 1; -map 20; map 20 4; entry 4
  vni 1 30; vni 1 31; vni 1 30; commit; counts =>
      map 30 1; -map 30; map 31 1; -map 31; map 30 1; import 12 20 30; entry 1; 0 hosts, 0 waiting
)");
}

// A hold begins with the fourth of twelve hosts.
const GateOptions few{
    .withdrawDelay = 1, .holdAbove = 0.25, .holdMin = 2, .holdTime = 300, .settle = 5};
const std::string twelve = R"(
  vni 1 10; all 1 9 2 3; host 1 1-12 2; commit; sync =>
      map 10 1; import 10; entry 1; all 1 9 2 3; host 1 1-12 2; converged
)";

TEST(Gate, HoldsWhatARestartingControllerTakesBack) {
  play(twelve + R"(
  -host 1 1-3; commit; hold => no hold
  wait 0.5; -host 1 4; commit; hold; counts; waits 1 1 =>
      converging; -host 1 1-4; hold 0.5 waiting 4 ends 300.5; 8 hosts, 0 waiting; not
  rib => hosts 12 marked 4 deleted 0 / 10 all 2 3
  -host 1 5-12; -vni 1; all 1 9 2; commit => -host 1 5-12
  wait 1; rib => all 1 9 2; hosts 12 marked 12 deleted 0 / 10 all 2 3
  -list 1 9; commit; wait 18.5; hold; rib =>
      hold 0.5 waiting 12 ends 300.5; hosts 12 marked 12 deleted 0 / 10 all 2 3
  vni 1 10; all 1 9 2 3; commit; wait 10; hold => all 1 9 2 3; hold 0.5 waiting 12 ends 300.5
  host 1 1-6 2; commit; hold => host 1 1-6 2; hold 0.5 waiting 6 ends 35
  wait 4; host 1 7 3 => host 1 7 3
  hold; wait 2; commit; hold => hold 0.5 waiting 5 ends 39; hold 0.5 waiting 5 ends 41
  wait 4; host 1 7 3; commit; -host 1 11; commit; hold => hold 0.5 waiting 5 ends 41
  wait 0.75; rib => hosts 12 marked 5 deleted 0 / 10 all 2 3
  wait 0.25; hold; wait 5; rib => converged; no hold; hosts 7 marked 0 deleted 5 / 10 all 2 3
  host 1 8 2; commit; wait 50; -host 1 1; commit; wait 1; hold => host 1 8 2; -host 1 1; no hold
  -host 1 2-4; commit; hold => converging; -host 1 2-4; hold 97 waiting 3 ends 397
  wait 1; host 1 2 2; commit; hold => host 1 2 2; hold 97 waiting 2 ends 103
  wait 1; all 1 9 2; commit; hold => hold 97 waiting 2 ends 104
  wait 0.5; all 1 9 2 3; commit; hold => hold 97 waiting 2 ends 104.5
  wait 0.5; all 1 9 2 3 4; commit; hold => all 1 9 2 3 4; hold 97 waiting 2 ends 105
  wait 1; -list 1 9; commit; hold => hold 97 waiting 2 ends 106
  wait 0.5; all 1 9 2 3 4; commit; hold => hold 97 waiting 2 ends 106.5
  vni 1 11; commit; hold =>
      -host 1 8; -host 1 7; -host 1 6; -host 1 5; -host 1 2; -entry 1; -map 10; map 11 1; import 11;
      entry 1; all 1 9 2 3 4; host 1 8 2; host 1 7 3; host 1 6 2; host 1 5 2; host 1 2 2;
      hold 97 waiting 0 ends 106.5
)",
       few);
}

TEST(Gate, WaitsForTheEndOfAStreamOfWithdrawals) {
  GateOptions options = few;
  options.holdAbove = 0.5;
  play(twelve + R"(
  -host 1 1-2; commit; wait 0.75; -host 1 3; commit; wait 0.75; -host 1 4; commit; wait 0.75 =>
  wait 0.25; hold => -host 1 1-4; no hold
  -host 1 5-6; commit; wait 0.75; -host 1 7 meant; commit; wait 0.25 => -host 1 5-6
  wait 0.75; host 1 1-7 2; commit => -host 1 7; host 1 1-7 2
  -host 1 1-3; commit; wait 0.75; -host 1 4-5; commit; wait 0.75; -host 1 6-7; commit; rib =>
      converging; -host 1 1-7; hosts 12 marked 7 deleted 7 / 10 all 2 3
)",
       options);
  options.holdAbove = 1;
  std::string stream = "-host 1 1-3; commit; ";
  for (int i = 0; i < 13; ++i) stream += "wait 0.75; host 1 4 2; commit; -host 1 4; commit; ";
  play(twelve + stream + "wait 0 => \n wait 0.25 => -host 1 1-3", options);
}

TEST(Gate, EndsAHoldInAnOrderThatLeavesTheDeletionToTheClient) {
  play(R"(
  vni 1 10; vni 2 20; vni 3 30; all 2 9 2; any 3 9 2; all 1 9 3; host 1 1-8 2; host 2 1-6 2 =>
      map 10 1; map 20 2; map 30 3; import 10 20 30; entry 1; entry 2; entry 3; all 2 9 2;
      any 3 9 2; all 1 9 3; host 1 1-8 2; host 2 1-6 2
  commit; sync; -vni 2; -list 1 9; -list 3 9; -host 2 1-4; commit; wait 50; rib =>
      converged; converging; -host 2 1-4;
      hosts 14 marked 4 deleted 0 / 10 all 3 / 20 all 2 / 30 any 2
  all 1 8 4; commit; -list 1 8; commit; wait 0.5; release; hold =>
      all 1 8 4; -host 2 5-6; -entry 2; import 10 30; converged; no hold
  turn; rib => -all 1 9; -any 3 9; hosts 8 marked 0 deleted 6 / 10 all 4
  wait 0.75; hold => -all 1 8; no hold
  wait 0.25 => -map 20
  vni 2 20; host 2 1-6 2; commit => map 20 2; import 10 20 30; entry 2; host 2 1-6 2
  -vni 2; -host 2 1-6; commit; wait 50; release =>
      converging; -host 2 1-6; -entry 2; import 10 30; converged
  vni 2 20; host 2 1-6 2; commit; wait 5; rib =>
      import 10 20 30; entry 2; host 2 1-6 2; hosts 14 marked 0 deleted 0
  -vni 2; -host 2 1-6; commit; wait 50; release =>
      converging; -host 2 1-6; -entry 2; import 10 30; converged
  vni 3 20; commit; wait 5; rib =>
      -entry 3; -map 30; -map 20; map 20 3; import 10 20; entry 3; hosts 8 marked 0 deleted 6
)",
       few);
}

TEST(Gate, CountsOnlyWhatTheControllerTakesBack) {
  play(twelve + R"(
  -host 1 1-8 meant; commit; hold; counts; wait 1; hold =>
      no hold; 12 hosts, 8 waiting; -host 1 1-8; no hold
  host 1 1-8 2; commit; -host 1 1-2 meant; -host 1 3-6; commit; hold =>
      host 1 1-8 2; converging; -host 1 3-6; hold 1 waiting 4 ends 301
  -host 1 7 meant; commit; wait 0.5; host 1 1 2; commit; hold => hold 1 waiting 4 ends 301
  wait 0.5; hold; counts =>
      -host 1 2; -host 1 7; hold 1 waiting 4 ends 301; 6 hosts, 0 waiting
  wait 200; host 1 3 2; commit; wait 4; -host 1 3 meant; commit; hold =>
      host 1 3 2; hold 1 waiting 3 ends 211
)",
       few);
  play(twelve + R"(
  -host 1 1-4; commit; hold => no hold
  -host 1 5; commit => converging; -host 1 1-5
)",
       {.holdAbove = 0.25, .holdMin = 4});
}

TEST(Gate, EndsAHoldInTimeOrNever) {
  play(twelve + R"(
  -host 1 1-4; commit; wait 299 => converging; -host 1 1-4
  host 1 4 2; commit; wait 0.75; hold => host 1 4 2; hold 0 waiting 3 ends 300
  wait 0.25; hold => converged; no hold
)",
       few);
  GateOptions never = few;
  never.holdTime = 0;
  play(twelve + R"(
  -host 1 1-4; commit; wait 10000; hold =>
      converging; -host 1 1-4; hold 0 waiting 4 ends never
  host 1 9 3; commit; wait 100; hold => host 1 9 3; hold 0 waiting 4 ends never
  release; release; hold => converged; no hold
)",
       never);
}

TEST(Gate, WithdrawsNothingWhileTheSourceIsNotInSync) {
  play(twelve + R"(
  -host 1 1; -host 1 2 meant; all 1 9 2; commit; wait 0.5; lost; wait 1000; counts =>
      converging; 12 hosts, 2 waiting
  release; -vni 1; commit; wait 1000; host 1 1 2; vni 1 10; commit; sync; wait 0.75 => converged
  wait 0.25 => -host 1 2; all 1 9 2
  -host 1 3-7; commit; wait 100; lost; wait 1000; hold =>
      converging; -host 1 3-7; hold 2001.5 waiting 5 ends never
  -host 1 8; commit; wait 10; sync; hold => -host 1 8; hold 2001.5 waiting 6 ends 3411.5
  host 1 3 2; commit; wait 4; lost; wait 100; hold =>
      host 1 3 2; hold 2001.5 waiting 5 ends never
  sync; wait 4; hold; rib =>
      hold 2001.5 waiting 5 ends 3220.5; hosts 11 marked 5 deleted 1 / 10 all 2
  wait 1; rib => converged; hosts 6 marked 0 deleted 5 / 10 all 2
  lost; -host 1 1; -host 1 9-12; commit; hold => converging; hold 3220.5 waiting 5 ends never
  host 1 1 2; commit; sync; wait 4; hold => -host 1 9-12; hold 3220.5 waiting 4 ends 3225.5
  wait 1; lost; -host 1 1; -host 1 3; commit => converged; converging
  -vni 1; commit; release; wait 10; hold; sync => no hold; converged
)",
       few);
  play(twelve + R"(
  lost; -host 1 1-4; commit; release; hold => converging; hold 0 waiting 4 ends never
  wait 1000; sync; hold => -host 1 1-4; converged; no hold
)",
       few);
}

TEST(Gate, TakesWhatItHasAdoptedForAnnounced) {
  play(R"(
  adopt 1 1-12 2; adopt 1 1 3; counts; waits 1 1 => 12 hosts, 0 waiting; not
  vni 1 10; host 1 1-9 2; commit; hold => map 10 1; import 10; entry 1; host 1 1-9 2; no hold
  sync; counts; wait 0.75 => converged; 12 hosts, 3 waiting
  host 1 10 2; commit; wait 5; lost; sync; counts =>
      host 1 10 2; -host 1 11-12; converging; converged; 10 hosts, 0 waiting
)",
       few);
  play(R"(
  adopt 1 1-12 2; vni 1 10; host 1 1-8 2; commit; sync =>
      map 10 1; import 10; entry 1; host 1 1-8 2; -host 1 9-12
  hold; host 1 9-12 2; commit; wait 5 => hold 0 waiting 4 ends 300; host 1 9-12 2; converged
)",
       few);
}

TEST(Gate, WithdrawsSliceBySlice) {
  const std::string many = R"(
  vni 1 10; host 1 1-15000 2; commit; sync =>
      map 10 1; import 10; entry 1; host 1 1-15000 2; converged
)";
  const GateOptions noHold{.withdrawDelay = 0, .holdAbove = 1};
  play(many + R"(
  -host 1 1-10000; commit => -host 1 1-4096
  turn => -host 1 4097-8192
  turn; turn; counts => -host 1 8193-10000; 5000 hosts, 0 waiting
  -vni 1; commit => -host 1 10001-14095
  turn => -host 1 14096-15000; -entry 1; -map 10; import
  turn; counts => 0 hosts, 0 waiting
)",
       noHold);
  play(many + R"(
  -host 1 1-14999; commit => -host 1 1-4096
  vni 1 11; commit; turn =>
      -host 1 4097-15000; -entry 1; -map 10; map 11 1; import 11; entry 1; host 1 15000 2
)",
       noHold);
  play(many + R"(
  -host 1 1-15000; commit; hold; counts =>
      converging; -host 1 1-4096; hold 0 waiting 15000 ends 300; 10904 hosts, 10904 waiting
  host 1 9999 2; commit; hold => -host 1 4097-8192; hold 0 waiting 14999 ends 5
  release; hold => -host 1 8193-9998; -host 1 10000-12288; hold 0 waiting 14999 ends 0
  turn; hold => -host 1 12289-15000; converged; no hold
)");
  play(many + R"(
  -vni 1; -host 1 1-9000; commit; wait 5; rib =>
      converging; -host 1 1-9000; hosts 15000 marked 9000 deleted 0
  release; hold => -host 1 9001-13096; hold 0 waiting 9000 ends 0
  turn; hold => -host 1 13097-15000; -entry 1; import; converged; no hold
)");
}

TEST(Gate, IsSilentWhenItIsGone) {
  World world;
  world.play("vni 1 10; host 1 1 2; commit; sync; -host 1 1; commit");
  world.gate.reset();
  EXPECT_EQ(world.play("wait 5"), "");
}

}  // namespace
