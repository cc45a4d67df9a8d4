#include "agent/journal/WholeState.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "agent/base/SortOnce.h"
#include "model/VxlanController/ZepStateV2.h"

namespace Agent {

namespace {

using Moru::Ptr;
using VxlanController::VniFdbStatusV2;
using VxlanController::ZepStateV2;
using Write = std::function<void(const Action&)>;

template <class Target>
void set(const Write& write, Target target, typename Target::Value value) {
  write(Change(Set<Target>{std::move(target), std::move(value)}));
}

// The keys of a collection, ascending.
template <class Collection>
auto ascendingKeys(const Collection& collection) {
  auto keys = Moru::keysOf(collection);
  std::ranges::sort(keys);
  return keys;
}

Vti::Value valueOf(const Vxlan::VtiStatus& status) {
  return {status.controllerClientMode(), status.datapathLearning(), status.localVtepAddr(),
          status.vArpVtepAddr(), ascendingKeys(status.vccImportVlans())};
}

VlanVniTables::Value valueOf(const Vxlan::VlanVniMap& map) {
  VlanVniTables::Value value;
  auto& vlanToVsp = value.vlanToVsp.emplace();
  for (const auto& vlan : ascendingKeys(map.vlanToVsp()))
    vlanToVsp.emplace_back(vlan, map.vlanToVsp(vlan).vni());
  auto& vniToVlan = value.vniToVlan.emplace();
  for (const auto& vni : ascendingKeys(map.vniToVlan()))
    vniToVlan.emplace_back(vni, map.vniToVlan(vni));
  return value;
}

class Writer {
 public:
  Writer(const EmbeddedClient& embedded, const Write& write)
      : store_(embedded.store()), client_(embedded.client().get()), write_(write) {
    for (const auto& [intf, map] : store_.vlanVniMaps->vlanVniMap())
      for (const auto& [vlan, vsp] : map->vlanToVsp())
        if (!!vsp) vlans_.emplace(entryName(vsp.vni()).stringValue(), vlan);
  }

  void run() {
    if (const auto& bum = store_.vxlanHwStatusDir->bumStatus())
      set(write_, HwBum(), bum->bumReplicationMode());
    for (const auto& [intf, status] : store_.vtiStatusDir->vtiStatus())
      set(write_, Vti{intf}, valueOf(*status));
    for (const auto& [intf, map] : store_.vlanVniMaps->vlanVniMap())
      set(write_, VlanVniTables{intf}, valueOf(*map));
    writeConvergence(true);
    if (client_ != nullptr) write_(Start());
    for (const auto& [name, entry] : store_.controllerStatusBaseDir->entityPtr())
      writeEntry(name, entry.entityPtr, entry.entryState);
    if (client_ != nullptr) writeMarked();
    writeConvergence(false);
  }

 private:
  // Where `asBegun`, as if each were converging; then only those that are not.
  void writeConvergence(bool asBegun) {
    for (const auto& [name, entry] : store_.zepStateBaseDir->entityPtr()) {
      const auto& state = static_cast<const ZepStateV2&>(*entry.entityPtr);
      if (asBegun || !state.convergenceInProgress())
        set(write_, ControllerState{name}, {asBegun, entry.entryState});
    }
  }

  void writeEntry(const Moru::Name& name, const Ptr<Moru::Entity const>& entity, bool state) {
    const auto vni = Moru::dynamicPtrCast<VniFdbStatusV2 const>(entity);
    const auto type = vni ? ControllerEntry::Type::vni : ControllerEntry::Type::other;
    set(write_, ControllerEntry{name}, {state, type});
    if (!vni) return;
    for (const auto& mac : ascendingKeys(vni->macVtepFloodListTable())) writeFlood(name, *vni, mac);
    for (const auto& mac : ascendingKeys(vni->macVtepMultiPathTable()))
      writeMultiPath(name, *vni, mac);
    for (const auto& mac : ascendingKeys(vni->macVtepTable())) {
      const auto host = vni->macVtepTable(mac);
      set(write_, ControllerHost{name, mac}, {host.vtepIp, host.moveCount, host.hostKind});
    }
  }

  void writeFlood(const Moru::Name& name, const VniFdbStatusV2& vni, const Vorn::EthAddr& mac) {
    const auto list = vni.macVtepFloodListTable(mac);
    if (!list) return;
    VtepFlags flags;
    for (const auto& vtep : ascendingKeys(list->vtepIpFloodList()))
      flags.emplace_back(vtep, list->vtepIpFloodList(vtep));
    VtepFlags withStale = flags;
    for (const Vorn::IpAddr& vtep : destsOf(name, mac))
      if (!list->vtepIpFloodList().contains(vtep)) withStale.emplace_back(vtep, true);
    std::ranges::sort(withStale);
    if (withStale != flags) set(write_, ControllerFlood{name, mac}, {withStale});
    set(write_, ControllerFlood{name, mac}, {flags});
  }

  void writeMultiPath(const Moru::Name& name, const VniFdbStatusV2& vni, const Vorn::EthAddr& mac) {
    std::vector<Vorn::IpAddr> vteps;
    for (const auto& [vtep, flag] : vni.macVtepMultiPathTable(mac).vtepIpList)
      vteps.push_back(vtep);
    std::vector<Vorn::IpAddr> withStale = destsOf(name, mac);
    withStale.insert(withStale.end(), vteps.begin(), vteps.end());
    sortOnce(withStale);
    if (withStale != vteps) set(write_, ControllerMultiPath{name, mac}, withStale);
    set(write_, ControllerMultiPath{name, mac}, vteps);
  }

  // The VTEPs that the client floods a MAC of a VNI to; unordered, some twice if it has several
  // VLANs.
  std::vector<Vorn::IpAddr> destsOf(const Moru::Name& name, const Vorn::EthAddr& mac) const {
    std::vector<Vorn::IpAddr> vteps;
    const auto [first, last] = vlans_.equal_range(name.stringValue());
    for (auto each = first; each != last; ++each) {
      const auto floodSets = store_.zepSde->vlanFloodSet(each->second);
      const auto floodSet = floodSets ? floodSets->floodSet(mac) : nullptr;
      if (!floodSet) continue;
      for (const auto& [dest, present] : floodSet->destSet())
        if (present) vteps.push_back(dest.vxlan().vtepAddr.ip4());
    }
    return vteps;
  }

  void writeMarked() {
    for (const auto& [key, entry] : client_->hostTable()->receivedEntry()) {
      if (!entry.markedForDel) continue;
      const auto map = store_.vlanVniMaps->vlanVniMap(entry.vtiIntfId);
      const Vxlan::VniSourcePair pair = map ? map->vlanToVsp(key.vlan) : Vxlan::VniSourcePair();
      if (!pair) continue;  // its VNI is gone: it is about to go, too
      const ControllerHost target{entryName(pair.vni()), key.mac};
      set(write_, target, {entry.vtepAddr.ip4(), entry.moveCount});
      write_(Change(Del<ControllerHost>{target}));
    }
  }

  const StateStore& store_;
  const Vxlan::VxlanControllerClientSm* const client_;
  const Write& write_;
  std::multimap<std::string, Bridging::VlanId> vlans_;  // of the VNI of that name
};

}  // namespace

void writeWholeState(const EmbeddedClient& embedded, const Write& write) {
  Writer(embedded, write).run();
}

}  // namespace Agent
