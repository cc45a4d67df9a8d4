#include "agent/journal/Generate.h"

#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "model/Vorn/EthAddr.h"
#include "model/Vorn/IpAddr.h"

namespace Agent {

namespace {

constexpr std::string_view broadcast = "ff:ff:ff:ff:ff:ff";

void check(std::uint64_t value, std::uint64_t min, std::uint64_t max, const std::string& what) {
  if (value < min || value > max)
    throw std::invalid_argument(what + " is " + std::to_string(value) + ": expected " +
                                std::to_string(min) + " to " + std::to_string(max));
}

// Writes the lines one after the other, each a little later than the one before.
class Generator {
 public:
  Generator(const GenerateOptions& options, std::ostream& out)
      : options_(options),
        out_(out),
        random_(options.seed),
        hosts_(std::size_t{options.vnis} * options.hostsPerVni) {}

  void run() {
    writeSwitch();
    for (std::uint32_t vni = 0; vni < options_.vnis; ++vni) writeFloodList(vni);
    for (std::size_t host = 0; host < hosts_.size(); ++host) {
      hosts_[host].vtep = choice(options_.vteps);
      announce(host);
    }
    settleAndDump("loaded");
    for (std::uint64_t i = 0; i < options_.moves && !hosts_.empty(); ++i) moveOne();
    settleAndDump("moved");
    for (std::uint32_t i = 1; i <= options_.restarts; ++i) restart(std::to_string(i));
  }

 private:
  struct Host {
    std::uint32_t vtep = 0;
    std::uint32_t moveCount = 0;
    bool gone = false;
  };

  // The remainder favours low numbers by less than anybody could see, and is the same everywhere.
  std::uint32_t choice(std::uint64_t count) {
    return static_cast<std::uint32_t>(random_() % count);
  }

  // One line: {"at":S,ACTION}
  void line(std::string_view action) {
    const std::string micro = std::to_string(microseconds_ % 1'000'000);
    out_ << "{\"at\":" << microseconds_ / 1'000'000 << '.' << std::string(6 - micro.size(), '0')
         << micro << ',' << action << "}\n";
    microseconds_ += 10;
  }

  void set(std::string_view path, std::string_view value) {
    line(std::string("\"set\":\"").append(path).append("\",\"value\":").append(value));
  }

  void settleAndDump(std::string_view label) {
    microseconds_ += 1'000'000;
    line(std::string("\"dump\":\"").append(label).append("\""));
  }

  static std::string vniName(std::uint32_t vni) { return std::to_string(10001 + vni); }
  static std::string vlanName(std::uint32_t vni) { return std::to_string(1 + vni); }
  static std::string quoted(const std::string& text) { return '"' + text + '"'; }
  static std::string vtepText(std::uint32_t vtep) {
    return quoted(Vorn::IpAddr(0x0a010001 + vtep).stringValue());
  }

  // text(0) to text(count - 1), with commas between them.
  template <class Text>
  static std::string listOf(std::uint32_t count, Text text) {
    std::string list;
    for (std::uint32_t i = 0; i < count; ++i) list.append(i == 0 ? "" : ",").append(text(i));
    return list;
  }

  void writeSwitch() {
    const auto vni = [](std::uint32_t i) { return quoted(vniName(i)) + ':' + vlanName(i); };
    const auto vlan = [](std::uint32_t i) { return quoted(vlanName(i)) + ':' + vniName(i); };
    set("hw/bum", R"({"bumReplicationMode":3})");
    line(R"("start":true)");  // a client looks for the hardware's BUM status when it starts
    set("mlag/state", "0");
    set("vti/Vxlan1", R"({"controllerClientMode":true,"localVtepAddr":"10.0.0.1",)"
                      R"("vccImportVlans":[)" +
                          listOf(options_.vnis, vlanName) + "]}");
    set("vlanVniMap/Vxlan1", R"({"vniToVlan":{)" + listOf(options_.vnis, vni) +
                                 R"(},"vlanToVsp":{)" + listOf(options_.vnis, vlan) + "}}");
    convergenceIs(false);
  }

  void writeFloodList(std::uint32_t vni) {
    set("controller/" + vniName(vni) + "/flood/" + std::string(broadcast),
        '[' + listOf(options_.vteps, vtepText) + ']');
  }

  std::string hostPath(std::size_t host) const {
    const auto vni = static_cast<std::uint32_t>(host / options_.hostsPerVni);
    const std::uint64_t number = host % options_.hostsPerVni;
    const auto mac =
        Vorn::EthAddr::fromValue(std::uint64_t{2} << 40 | std::uint64_t{vni} << 24 | number);
    return "controller/" + vniName(vni) + "/host/" + mac.stringValue();
  }

  void announce(std::size_t host) {
    const Host& state = hosts_[host];
    const std::string moves =
        state.moveCount == 0 ? "" : ",\"moveCount\":" + std::to_string(state.moveCount);
    set(hostPath(host), "{\"vtep\":" + vtepText(state.vtep) + moves + '}');
  }

  void withdraw(std::size_t host) { line("\"del\":\"" + hostPath(host) + '"'); }

  void moveOne() {
    const std::size_t host = choice(hosts_.size());
    Host& state = hosts_[host];
    if (options_.vteps > 1)
      state.vtep = (state.vtep + 1 + choice(options_.vteps - 1)) % options_.vteps;
    ++state.moveCount;
    announce(host);
  }

  void convergenceIs(bool inProgress) {
    set("controllerState/main",
        inProgress ? R"({"convergenceInProgress":true})" : R"({"convergenceInProgress":false})");
  }

  // The controller forgets every eighth host, and comes to announce half of those again before it
  // has converged. The others stay away.
  void restart(const std::string& number) {
    convergenceIs(true);
    std::vector<std::size_t> withdrawn;
    for (std::size_t host = 0; host < hosts_.size(); ++host) {
      if (hosts_[host].gone || choice(8) != 0) continue;
      withdraw(host);
      withdrawn.push_back(host);
    }
    settleAndDump("restart-" + number);
    for (const std::size_t host : withdrawn) {
      hosts_[host].gone = choice(2) != 0;
      if (!hosts_[host].gone) announce(host);
    }
    convergenceIs(false);
    settleAndDump("converged-" + number);
  }

  const GenerateOptions options_;
  std::ostream& out_;
  std::mt19937_64 random_;
  std::vector<Host> hosts_;
  std::uint64_t microseconds_ = 0;
};

}  // namespace

void generate(const GenerateOptions& options, std::ostream& out) {
  check(options.vnis, 1, GenerateOptions::maxVnis, "the number of VNIs");
  check(options.hostsPerVni, 0, GenerateOptions::maxHostsPerVni, "the number of hosts of a VNI");
  check(options.vteps, 1, GenerateOptions::maxVteps, "the number of VTEPs");
  Generator(options, out).run();
}

}  // namespace Agent
