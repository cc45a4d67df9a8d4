// Feeds the machine with a few hosts on a virtual clock, and shows what it published. Given a
// directory, it leaves a trace ring there, and shows that too.
#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "examples/host-count/HostCountSm.h"
#include "framework/Ringlog/Reader.h"
#include "framework/Ringlog/Ring.h"

namespace {

using Moru::create;
using Moru::Ptr;

// Shows each count as it is published.
class Printer final : public Example::HostCounts::NotifieeConst {
 public:
  explicit Printer(const Moru::VirtualTime& time) : time_(time) {}

  void onAttribute(Moru::AttributeId attribute, const void* key) override {
    if (attribute != Moru::idOf<&Example::HostCounts::count>) return;
    const auto& vtep = *Moru::keyOf<&Example::HostCounts::count>(key);
    std::cout << "  at " << time_.time() << " s: " << notifier()->count(vtep) << " behind " << vtep
              << '\n';
  }

 private:
  const Moru::VirtualTime& time_;
};

Vxlan::ReceivedEntry host(std::uint64_t mac, const char* vtep) {
  Vxlan::ReceivedEntry entry;
  entry.key = {Vorn::EthAddr::fromValue(mac), Bridging::VlanId(10)};
  entry.vtepAddr = Vorn::IpGenAddr::parse(vtep).value_or(Vorn::IpGenAddr());
  return entry;
}

void play(const Ptr<Moru::ActivityFacility>& facility, Vxlan::ReceivedHostTable& table) {
  std::cout << "Five hosts come:\n";
  for (std::uint64_t mac = 1; mac <= 5; ++mac)
    table.receivedEntryIs(host(0x020000000000 + mac, mac % 2 != 0 ? "10.0.0.2" : "10.0.0.3"));
  facility->runUntil(5);
  std::cout << "One moves, and the others behind its old VTEP go:\n";
  table.receivedEntryIs(host(0x020000000002, "10.0.0.2"));
  table.receivedEntryDel(host(0x020000000004, "").key);
  facility->runUntil(Moru::Clock::never);
}

// Reads the file as anybody could, also after a crash.
void showRing(const std::string& path) {
  std::cout << "What " << path << " holds:\n";
  const auto contents = Ringlog::read(path);
  for (const auto& message : contents.messages) std::cout << "  " << message << '\n';
  for (const auto& problem : contents.problems) std::cout << "  problem: " << problem << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  const std::string directory = argc > 1 ? argv[1] : "";
  const std::string ringName = "host-count.rlg";
  Ringlog::directoryIs(directory);
  Ringlog::open(ringName, std::vector<std::size_t>(10, 33));

  const auto time = create<Moru::VirtualTime>();
  const auto facility = create<Moru::ActivityFacility>(time);
  Moru::ActivityFacility::currentIs(facility);

  const auto table = create<Vxlan::ReceivedHostTable>("hostTable");
  const auto counts = create<Example::HostCounts>();
  const auto printer = create<Printer>(*time);
  printer->notifierIs(counts);
  printer->hasNotificationActiveIs(true);

  const auto machine = create<Example::HostCountSm>(table, counts);
  play(facility, *table);
  if (!directory.empty()) showRing(directory + '/' + ringName);
}
