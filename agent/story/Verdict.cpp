#include "agent/story/Verdict.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "Vxlan/Trace.h"
#include "Vxlan/Walk.h"
#include "agent/base/Text.h"
#include "agent/view/FloodSetText.h"
#include "framework/Moru/Exception.h"
#include "framework/Ringlog/Ring.h"
#include "model/VxlanController/VniFdbStatusV2.h"

namespace Agent {

namespace {

using Client = Vxlan::VxlanControllerClientSm;
using Machine = Moru::Ptr<Vxlan::ZepPerVniFdbStatusSm>;

// The client's predicates trace what they are asked, and who asks for a story must not overwrite
// it.
class TraceSilence {
 public:
  TraceSilence() {
    Ringlog::levelsIs(0);
    Vxlan::traceFacility.streamLevelsIs(0);
  }
  TraceSilence(const TraceSilence&) = delete;
  TraceSilence& operator=(const TraceSilence&) = delete;
  ~TraceSilence() {
    Ringlog::levelsIs(ring_);
    Vxlan::traceFacility.streamLevelsIs(stream_);
  }

 private:
  const Ringlog::Levels ring_ = Ringlog::levels();
  const Ringlog::Levels stream_ = Vxlan::traceFacility.streamLevels();
};

std::string vlanText(std::uint32_t vlan) { return "VLAN " + std::to_string(vlan); }

// "10, 12 to 14"
std::string rangesText(std::vector<Bridging::VlanId> vlans) {
  std::sort(vlans.begin(), vlans.end());
  std::string text;
  for (std::size_t i = 0; i < vlans.size();) {
    std::size_t last = i;
    while (last + 1 < vlans.size() && vlans[last + 1].value() == vlans[last].value() + 1) ++last;
    std::string range = std::to_string(vlans[i].value());
    if (last != i) range += " to " + std::to_string(vlans[last].value());
    appendTo(text, ", ", range);
    i = last + 1;
  }
  return text.empty() ? "nothing" : text;
}

class Judge {
 public:
  Judge(const EmbeddedClient& embedded, const Vorn::EthAddr& mac, const StoryScope& scope)
      : embedded_(embedded), store_(embedded.store()), mac_(mac), scope_(scope) {}

  std::vector<Finding> judge() {
    for (const auto& [name, entry] : store_.controllerStatusBaseDir->entityPtr())
      if (const auto status =
              Moru::dynamicPtrCast<VxlanController::VniFdbStatusV2 const>(entry.entityPtr))
        tryVni(name, *status, entry.entryState);
    judgeKept();
    if (findings_.empty()) notAnnounced();
    return std::move(findings_);
  }

 private:
  void add(std::string_view gate, std::uint16_t vlan, const std::string& text) {
    if (!scope_.has({.vlan = vlan, .vni = vni_})) return;
    const std::string where = vni_ == 0 ? "" : "VNI " + std::to_string(vni_) + ": ";
    findings_.push_back({gate, vni_, vlan, where + text});
  }

  // Raw tables may hold a VLAN that is none, which the client refuses, too.
  void tryVni(const Moru::Name& name, const VxlanController::VniFdbStatusV2& status,
              bool isInstantiated) {
    try {
      judgeVni(name, status, isInstantiated);
    } catch (const Moru::RangeException& exception) {
      add("outOfRange", 0, exception.what());
    }
    vni_ = 0;
  }

  void judgeVni(const Moru::Name& name, const VxlanController::VniFdbStatusV2& status,
                bool isInstantiated) {
    const std::string& text = name.stringValue();
    vni_ = 0;
    std::from_chars(text.data(), text.data() + text.size(), vni_);
    if (!scope_.has({.vni = vni_})) return;
    const auto* const row = status.macVtepTable().find(mac_);
    const auto* const list = status.macVtepFloodListTable().find(mac_);
    const bool isFlooded =
        (list != nullptr && *list) || status.macVtepMultiPathTable().contains(mac_);
    if (row != nullptr || isFlooded) {
      if (const auto machine = follow(isInstantiated)) {
        if (row != nullptr) judgeHost(*row);
        if (isFlooded) judgeFlood(*machine);
      }
    }
  }

  // The machine that follows the VNI; null, with the reason, if there is none.
  Machine follow(bool isInstantiated) {
    const auto& client = embedded_.client();
    if (!client) {
      add("noClient", 0, "no client runs");
      return nullptr;
    }
    if (!client->vxlanControllerClientMode()) {
      add("controllerMode", 0, "no VTI is in controller mode (" + vtisText() + ")");
      return nullptr;
    }
    if (!isInstantiated) {
      add("notInstantiated", 0, "the controller has announced its entry, but not instantiated it");
      return nullptr;
    }
    if (auto machine = client->zepPerVniFdbStatusSm(Vxlan::VniExt(vni_))) return machine;
    notFollowed(*client);
    return nullptr;
  }

  void notFollowed(const Client& client) {
    bool isMapped = false;
    for (const auto& [intf, mapped] :
         Vxlan::vlansOfVni(client.vlanVniMaps(), Vxlan::VniExt(vni_))) {
      if (!mapped) continue;
      isMapped = true;
      const Bridging::VlanId vlan(mapped.value());
      if (client.vccImportVlans().contains(vlan)) continue;
      return add("notImported", vlan.value(),
                 vlanText(vlan.value()) + " of " + intf.stringValue() +
                     " is not imported, and so the VNI is not followed: " + importsText());
    }
    if (isMapped)
      add("notFollowed", 0, "the client does not follow it");
    else
      add("notMapped", 0, "no VTI maps it to a VLAN");
  }

  std::string vtisText() const {
    std::string text;
    for (const auto& [intf, status] : store_.vtiStatusDir->vtiStatus())
      appendTo(text, ", ", intf.stringValue() + ": " + onOff(status->controllerClientMode()));
    return text.empty() ? "there is no VTI" : text;
  }

  std::string importsText() const {
    std::string text;
    for (const auto& [intf, status] : store_.vtiStatusDir->vtiStatus()) {
      std::vector<Bridging::VlanId> vlans;
      for (auto vlan = status->vccImportVlans().begin(); vlan; ++vlan) vlans.push_back(vlan.key());
      appendTo(text, ", ", intf.stringValue() + " imports " + rangesText(std::move(vlans)));
    }
    return text;
  }

  void judgeHost(const VxlanController::MacVtepV2& row) {
    const Client& client = *embedded_.client();
    const std::string announced = "announced behind " + row.vtepIp.stringValue();
    if (client.datapathLearningMode())
      return add("dataPathLearning", 0, announced + ", but all VTIs learn in the data path");
    for (const auto& [intf, mapped] :
         Vxlan::vlansOfVni(client.vlanVniMaps(), Vxlan::VniExt(vni_))) {
      if (!mapped) continue;
      const Bridging::VlanId vlan(mapped.value());
      judged_.insert(vlan.value());
      judgeEntry(vlan, announced, intf, ownText(client, row.vtepIp, intf));
    }
  }

  static std::string ownText(const Client& client, const Vorn::IpAddr& vtep,
                             const Vorn::IntfId& intf) {
    const auto status = client.vtiStatusDir() ? client.vtiStatusDir()->vtiStatus(intf) : nullptr;
    switch (status ? client.ownVtep(vtep, *status) : Client::OwnVtep::none) {
      case Client::OwnVtep::local:
        return "our own VTEP: the address of " + intf.stringValue();
      case Client::OwnVtep::vArp:
        return "our own VTEP: the virtual-ARP address of " + intf.stringValue();
      case Client::OwnVtep::mlag:
        return "the MLAG pair's VTEP";
      case Client::OwnVtep::none:
        break;
    }
    return "";
  }

  // `own` says which of our VTEPs it is behind; empty: none.
  void judgeEntry(const Bridging::VlanId& vlan, const std::string& announced,
                  const Vorn::IntfId& intf, const std::string& own) {
    if (!own.empty()) return add("ownVtep", vlan.value(), announced + ", which is " + own);
    const Bridging::MacVlanPair key{mac_, vlan};
    const auto* const host = store_.l2RibZepInput->host().find(key);
    if (host == nullptr)
      return add("unexplained", vlan.value(),
                 announced + ", but not in the RIB in " + vlanText(vlan.value()) + " of " +
                     intf.stringValue() + ", though no gate is in its way");
    add("none", vlan.value(), "in the RIB: " + entryText(key, *host));
  }

  std::string entryText(const Bridging::MacVlanPair& key, const L2Rib::Host& host) const {
    const bool isMarked = embedded_.client() && embedded_.client()->hostTable()->isMarked(key);
    return vlanText(key.vlan.value()) + " behind " + host.dest.vtepAddr(0).stringValue() +
           (isMarked ? ", marked for deletion" : "");
  }

  // What the RIB has for the MAC though no VNI announces it there.
  void judgeKept() {
    for (std::uint16_t vlan = Bridging::VlanId::min; vlan <= Bridging::VlanId::max; ++vlan) {
      if (judged_.contains(vlan)) continue;
      const Bridging::MacVlanPair key{mac_, Bridging::VlanId(vlan)};
      if (const auto* const host = store_.l2RibZepInput->host().find(key))
        add("kept", vlan, "still in the RIB: " + entryText(key, *host));
    }
  }

  void judgeFlood(const Vxlan::ZepPerVniFdbStatusSm& machine) {
    const bool isMultiPath = machine.multiPath(mac_) != nullptr;
    if (!machine.checkBumStatus())
      return add(
          "replicationMode", 0,
          "flooded, but the hardware does not replicate in the controller's mode: " + modeText());
    if (isMultiPath && machine.floodList(mac_) != nullptr)
      add("overridden", 0, "its multipath entry overrides its flood list");
    for (const auto& [intf, mapped] : machine.vlans()) {
      if (!mapped) continue;
      const Bridging::VlanId vlan(mapped.value());
      add("none", vlan.value(), floodText(vlan));
    }
    if (embedded_.client()->zepMlagBumStatusSm())
      add("mlagCopy", 0, "MLAG is active: what the peer floods to is copied, too");
  }

  std::string modeText() const {
    const auto& status = store_.vxlanHwStatusDir->bumStatus();
    return status ? "it is " + std::to_string(traceValue(status->bumReplicationMode()))
                  : "it tells none";
  }

  std::string floodText(const Bridging::VlanId& vlan) const {
    const auto vlanFloodSet = store_.zepSde->vlanFloodSet(vlan);
    const auto floodSet = vlanFloodSet ? vlanFloodSet->floodSet(mac_) : nullptr;
    if (!floodSet) return vlanText(vlan.value()) + " has no flood set for it";
    const FloodSetSnapshot snapshot = snapshotOf(*floodSet);
    return "flooded in " + vlanText(vlan.value()) + ", " + typeText(snapshot.type) + ", to " +
           destsText(snapshot);
  }

  void notAnnounced() {
    if (scope_.vnis && scope_.vnis->size() == 1) {
      const std::string vni = std::to_string(*scope_.vnis->begin());
      if (!store_.controllerStatusBaseDir->entityPtr(vni))
        return add("notAnnounced", 0, "the controller has no entry for VNI " + vni);
      return add("notAnnounced", 0, "not announced in VNI " + vni);
    }
    add("notAnnounced", 0, "no VNI announces it");
  }

  const EmbeddedClient& embedded_;
  const StateStore& store_;
  const Vorn::EthAddr mac_;
  const StoryScope& scope_;
  std::uint32_t vni_ = 0;  // that is judged; 0: none
  std::set<std::uint16_t> judged_;
  std::vector<Finding> findings_;
};

}  // namespace

std::vector<Finding> verdictOn(const EmbeddedClient& embedded, const Vorn::EthAddr& mac,
                               const StoryScope& scope) {
  const TraceSilence silence;
  return Judge(embedded, mac, scope).judge();
}

StoryScope scopeOf(const StateStore& store, const Filter& filter) {
  if (filter.vlans.empty() && filter.vnis.empty()) return {};
  std::set<std::uint16_t> vlans;
  std::set<std::uint32_t> vnis;
  for (const Bridging::VlanId& vlan : filter.vlans) vlans.insert(vlan.value());
  for (const Vxlan::VniExt& vni : filter.vnis) vnis.insert(vni.value());
  for (const auto& [intf, map] : store.vlanVniMaps->vlanVniMap())
    for (const auto& [vni, mapped] : map->vniToVlan()) {
      if (!mapped) continue;
      if (filter.vnis.contains(vni)) vlans.insert(mapped.value());
      if (filter.vlans.contains(Bridging::VlanId(mapped.value()))) vnis.insert(vni.value());
    }
  return {vlans, vnis};
}

}  // namespace Agent
