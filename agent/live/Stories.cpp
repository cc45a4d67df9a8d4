#include "agent/live/Stories.h"

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "agent/base/Text.h"
#include "agent/story/StoryView.h"
#include "agent/view/Snapshot.h"
#include "framework/Moru/ActivityFacility.h"

namespace Agent {

namespace {

double now() { return Moru::ActivityFacility::current()->now(); }

EventKind kindOf(Kernel::Fdb::Happening what) {
  switch (what) {
    case Kernel::Fdb::Happening::programmed:
      return EventKind::programmed;
    case Kernel::Fdb::Happening::removed:
      return EventKind::unprogrammed;
    case Kernel::Fdb::Happening::refused:
      return EventKind::refused;
    case Kernel::Fdb::Happening::putBack:
      break;
  }
  return EventKind::putBack;
}

}  // namespace

Stories::Stories(const EmbeddedClient& embedded, WithdrawalGate& gate, Witness::Sinks sinks)
    : embedded_(embedded),
      gate_(gate),
      sinks_(std::move(sinks)),
      witness_(embedded, std::nullopt,
               [] {
                 return Witness::Moment{now(), 0};
               },
               {.event = [this](const Event& event) { add(event); }, .batch = sinks_.batch}) {
  gate.eventsAre(
      {.waits =
           [this](const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, bool isHeld) {
             add({.at = now(),
                  .mac = mac,
                  .kind = EventKind::waiting,
                  .flag = isHeld,
                  .vni = vni.value()});
           },
       .cameBack =
           [this](const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) {
             add({.at = now(), .mac = mac, .kind = EventKind::notWaiting, .vni = vni.value()});
           },
       .hold =
           [this](bool isHold) {
             add({.at = now(), .kind = isHold ? EventKind::holdBegan : EventKind::holdEnded});
           }});
}

void Stories::add(const Event& event) {
  chronicle_.add(event);
  sinks_.event(event);
}

void Stories::kernelHas(Kernel::Fdb::Happening what, const Vxlan::VniExt& vni,
                        const Vorn::EthAddr& mac, const Vorn::IpAddr& vtep) {
  add({.at = now(), .mac = mac, .kind = kindOf(what), .vni = vni.value(), .vtep = vtep});
}

// Behind each host that is in the RIB, what keeps it there, and what the kernel has of it.
std::vector<Finding> Stories::findings(const Vorn::EthAddr& mac, const StoryScope& scope,
                                       const Kernel::DataPlane* plane) const {
  std::vector<Finding> all;
  const VlanToVni vnis = vlanToVni(*embedded_.store().vlanVniMaps);
  for (Finding& each : verdictOn(embedded_, mac, scope)) {
    std::uint32_t number = each.vni;
    if (number == 0 && each.vlan != 0)
      if (const auto at = vnis.find(Bridging::VlanId(each.vlan)); at != vnis.end())
        number = at->second.value();
    const bool isInRib = each.vlan != 0 && (each.gate == "none" || each.gate == "kept");
    const std::uint16_t vlan = each.vlan;
    all.push_back(std::move(each));
    if (number == 0) continue;
    const Vxlan::VniExt vni(number);
    const auto find = [&](const char* gate, const std::string& text) {
      all.push_back({gate, number, vlan, "VNI " + std::to_string(number) + ": " + text});
    };
    if (gate_.isWaiting(vni, mac) || gate_.isListWaiting(vni, mac))
      find(gate_.hold() ? "held" : "waiting",
           gate_.hold() ? "its withdrawal is held" : "its withdrawal waits in the gate");
    if (!isInRib || plane == nullptr) continue;
    const std::string why = plane->whyOther(vni, mac);
    if (!why.empty())
      find("kernel", "not in the kernel: " + why);
    else if (plane->isProgrammed(vni, mac))
      find("none", "programmed into the kernel");
  }
  return all;
}

Answer Stories::answer(const Vorn::EthAddr& mac, const StoryScope& scope,
                       const Kernel::DataPlane* plane) const {
  const auto systemNow = std::chrono::system_clock::now();
  const double facilityNow = now();
  const StoryTimes times{
      {}, [=](double at) {
        const std::chrono::duration<double> away(at - facilityNow);
        return rfc3339Text(systemNow +
                           std::chrono::duration_cast<std::chrono::system_clock::duration>(away));
      }};
  Explanation explanation{.mac = mac,
                          .lines = storyOf(chronicle_.of(mac), scope),
                          .verdict = findings(mac, scope, plane),
                          .now = facilityNow};
  if (const auto since = chronicle_.wholeSince())
    explanation.remarks.push_back("what was before " + times.rfc3339(*since) +
                                  " is no longer known");
  return linesAnswer(jsonOf(explanation, times));
}

}  // namespace Agent
