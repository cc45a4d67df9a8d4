#include "agent/view/Snapshot.h"

#include <algorithm>
#include <utility>

#include "framework/Moru/Exception.h"

namespace Agent {

namespace {

std::vector<L2Rib::Host> hostsOf(const L2Rib::HostInput& input) {
  std::vector<L2Rib::Host> hosts;
  hosts.reserve(input.host().size());
  for (const auto& [key, host] : input.host()) hosts.push_back(host);
  std::sort(hosts.begin(), hosts.end(),
            [](const L2Rib::Host& left, const L2Rib::Host& right) { return left.key < right.key; });
  return hosts;
}

}  // namespace

FloodSetSnapshot snapshotOf(const L2Rib::FloodSet& floodSet) {
  FloodSetSnapshot snapshot{floodSet.macAddr(), floodSet.floodSetType()};
  snapshot.vteps.reserve(floodSet.destSets());
  for (const auto& [dest, present] : floodSet.destSet()) {
    if (!present) continue;
    if (dest.tag() == L2Rib::DestTag::vxlan)
      snapshot.vteps.push_back(dest.vxlan().vtepAddr);
    else
      snapshot.others.push_back(dest.stringValue());
  }
  std::ranges::sort(snapshot.vteps);
  std::ranges::sort(snapshot.others);
  return snapshot;
}

namespace {

std::vector<VlanFloodSetSnapshot> floodSetsOf(const L2Rib::SourceDirEntry& entry) {
  std::vector<VlanFloodSetSnapshot> floodSets;
  for (const auto& [vlan, vlanFloodSet] : entry.vlanFloodSet()) {
    if (vlanFloodSet->floodSet().empty()) floodSets.push_back({vlan});
    for (const auto& [mac, floodSet] : vlanFloodSet->floodSet())
      floodSets.push_back({vlan, snapshotOf(*floodSet)});
  }
  std::sort(floodSets.begin(), floodSets.end(),
            [](const VlanFloodSetSnapshot& left, const VlanFloodSetSnapshot& right) {
              return left.key() < right.key();
            });
  return floodSets;
}

HostTableSnapshot hostTableOf(const Vxlan::ReceivedHostTable& table) {
  HostTableSnapshot snapshot{table.markedForDelCount()};
  snapshot.entries.reserve(table.receivedEntrys());
  for (const auto& [key, entry] : table.receivedEntry()) snapshot.entries.push_back(entry);
  return snapshot;
}

ClientSnapshot clientOf(const Vxlan::VxlanControllerClientSm& client) {
  ClientSnapshot snapshot;
  snapshot.vxlanControllerClientMode = client.vxlanControllerClientMode();
  snapshot.datapathLearningMode = client.datapathLearningMode();
  for (auto vlan = client.vccImportVlans().begin(); vlan; ++vlan)
    snapshot.vccImportVlans.push_back(vlan.key());
  std::sort(snapshot.vccImportVlans.begin(), snapshot.vccImportVlans.end());
  for (auto vni = client.zepPerVniFdbStatusSm().begin(); vni; ++vni)
    snapshot.vnis.push_back(vni.key());
  std::sort(snapshot.vnis.begin(), snapshot.vnis.end());
  snapshot.mlagBum = client.zepMlagBumStatusSm() != nullptr;
  snapshot.hostTable = hostTableOf(*client.hostTable());
  return snapshot;
}

}  // namespace

Snapshot takeSnapshot(std::string label, double at, const Outputs& outputs,
                      std::optional<ClientSnapshot> client) {
  Snapshot snapshot{std::move(label), at, std::move(client)};
  if (outputs.hosts) snapshot.hosts = hostsOf(*outputs.hosts);
  if (outputs.floodSets) snapshot.floodSets = floodSetsOf(*outputs.floodSets);
  if (outputs.clientView)
    snapshot.convergenceInProgress = outputs.clientView->convergenceInProgress();
  if (const auto& status = outputs.convergenceStatus)
    snapshot.convergenceStatus = ConvergenceSnapshot{status->unicastDeferredDeletionInProgress(),
                                                     status->bumDeferredDeletionInProgress()};
  return snapshot;
}

Snapshot takeSnapshot(std::string label, double at, const EmbeddedClient& embedded) {
  const Vxlan::ClientInputs inputs = embedded.inputs();
  const Outputs outputs{inputs.l2RibZepInput, inputs.zepSde, inputs.zepStateClientView,
                        inputs.zepConvergenceStatus};
  std::optional<ClientSnapshot> client;
  if (embedded.client()) client = clientOf(*embedded.client());
  Snapshot snapshot = takeSnapshot(std::move(label), at, outputs, std::move(client));
  snapshot.vlanToVni = vlanToVni(*embedded.store().vlanVniMaps);
  return snapshot;
}

VlanToVni vlanToVni(const Vxlan::VlanVniMaps& maps) {
  VlanToVni vnis;
  for (const auto& [intf, map] : maps.vlanVniMap()) {
    for (const auto& [vlan, vsp] : map->vlanToVsp()) {
      try {
        if (!!vsp) vnis.emplace(vlan, vsp.vni());
      } catch (const Moru::RangeException&) {
        // A raw table may hold a VNI that is none: such a VLAN is shown without.
      }
    }
  }
  return vnis;
}

std::optional<Vxlan::VniExt> vniOf(const VlanToVni& vlanToVni, const Bridging::VlanId& vlan) {
  const auto vni = vlanToVni.find(vlan);
  return vni == vlanToVni.end() ? std::nullopt : std::optional(vni->second);
}

}  // namespace Agent
