#include "agent/store/StateStore.h"

#include <string>
#include <type_traits>
#include <variant>

#include "agent/base/InputError.h"
#include "agent/store/Members.h"
#include "model/VxlanController/ZepStateV2.h"

namespace Agent {

namespace {

using Moru::create;
using Moru::Ptr;
using VxlanController::MacVtepFloodListV2;
using VxlanController::VniFdbStatusV2;
using VxlanController::ZepStateV2;

// A controller's entry that no client knows what to do with.
class OtherEntity final : public Moru::EntityOf<OtherEntity> {};

// For the entities that their owners refer to as const, which only the store makes and writes.
template <class E>
Ptr<E> writable(const Ptr<E const>& entity) {
  return Ptr<E>(const_cast<E*>(entity.get()));
}

void fill(Vxlan::VtiStatus& status, const Vti::Value& value) {
  if (value.controllerClientMode) status.controllerClientModeIs(*value.controllerClientMode);
  if (value.datapathLearning) status.datapathLearningIs(*value.datapathLearning);
  if (value.localVtepAddr) status.localVtepAddrIs(*value.localVtepAddr);
  if (value.vArpVtepAddr) status.vArpVtepAddrIs(*value.vArpVtepAddr);
  if (!value.vccImportVlans) return;
  Table<Bridging::VlanId, Moru::KeyOnly> vlans;
  for (const Bridging::VlanId& vlan : *value.vccImportVlans)
    vlans.emplace_back(vlan, Moru::KeyOnly());
  membersIs(status.vccImportVlans, status.vccImportVlansIs, status.vccImportVlansDel, vlans);
}

// Forgets that the VNI leads to the VLAN; where it leads to another one by now, that stays.
void reverseDel(Vxlan::VlanVniMap& map, const Bridging::VlanId& vlan, const Vxlan::VniExt& vni) {
  if (map.vniToVlan(vni).value() == vlan.value()) map.vniToVlanDel(vni);
}

void fill(Vxlan::VlanVniMap& map, const Bridging::VlanId& vlan, const Vxlan::VniExt& vni) {
  const Vxlan::VniSourcePair before = map.vlanToVsp(vlan);
  if (!!before && before.vni() != vni) reverseDel(map, vlan, before.vni());
  map.vniToVlanIs(vni, Bridging::VlanIdOrNone(vlan.value()));
  map.vlanToVspIs(vlan, Vxlan::VniSourcePair(vni));
}

void fill(Vxlan::VlanVniMap& map, const VlanVniTables::Value& value) {
  if (value.vniToVlan)
    membersIs(map.vniToVlan, map.vniToVlanIs, map.vniToVlanDel, *value.vniToVlan);
  if (!value.vlanToVsp) return;
  Table<Bridging::VlanId, Vxlan::VniSourcePair> pairs;
  for (const auto& [vlan, vni] : *value.vlanToVsp) pairs.emplace_back(vlan, vni);
  membersIs(map.vlanToVsp, map.vlanToVspIs, map.vlanToVspDel, pairs);
}

void fill(MacVtepFloodListV2& list, const VtepFlags& vteps) {
  membersIs(list.vtepIpFloodList, list.vtepIpFloodListIs, list.vtepIpFloodListDel, vteps);
}

// Destinations have no order of their own; all of these are VTEPs.
bool isLess(const L2Rib::Dest& left, const L2Rib::Dest& right) {
  return left.vxlan().vtepAddr < right.vxlan().vtepAddr;
}

void fill(L2Rib::FloodSet& floodSet, const FloodSetValue& value) {
  floodSet.floodSetTypeIs(value.type);
  Table<L2Rib::Dest, bool> dests;
  for (const auto& [vtep, flag] : value.dests)
    dests.emplace_back(L2Rib::Dest(L2Rib::DestId{}, L2Rib::DestDataVxlan{vtep}), flag);
  membersIs(floodSet.destSet, floodSet.destSetIs, floodSet.destSetDel, dests, isLess);
}

void floodSetIs(L2Rib::SourceDirEntry& entry, const Bridging::VlanId& vlan,
                const Vorn::EthAddr& mac, const FloodSetValue& value) {
  Ptr<L2Rib::VlanFloodSet> vlanFloodSet = entry.vlanFloodSet(vlan);
  const bool isNewVlan = !vlanFloodSet;
  if (isNewVlan) vlanFloodSet = create<L2Rib::VlanFloodSet>(vlan);
  if (const Ptr<L2Rib::FloodSet> present = vlanFloodSet->floodSet(mac))
    return fill(*present, value);
  const auto floodSet = create<L2Rib::FloodSet>(mac);
  fill(*floodSet, value);
  vlanFloodSet->floodSetIs(floodSet);
  if (isNewVlan) entry.vlanFloodSetIs(vlanFloodSet);
}

void floodSetDel(L2Rib::SourceDirEntry& entry, const Bridging::VlanId& vlan,
                 const Vorn::EthAddr& mac) {
  if (const Ptr<L2Rib::VlanFloodSet> vlanFloodSet = entry.vlanFloodSet(vlan))
    vlanFloodSet->floodSetDel(mac);
}

// Where a BUM status is referred to from: set there, or made and then referred to.
template <class Attribute, class Is>
void bumStatusModeIs(const Attribute& attribute, Is& is, Vxlan::BumReplicationMode mode) {
  if (attribute()) return writable(attribute())->bumReplicationModeIs(mode);
  const auto status = create<Vxlan::BumStatus>();
  status->bumReplicationModeIs(mode);
  is(status);
}

}  // namespace

StateStore::StateStore()
    : vtiStatusDir(create<Vxlan::VtiStatusDir>()),
      controllerStatusBaseDir(create<Moru::Dir>()),
      vxlanHwStatusDir(create<Vxlan::VxlanHwStatusDir>()),
      mlagStatus(create<Mlag::Status>()),
      mlagVxlanStatus(create<Mlag::VxlanStatus>()),
      zepStateBaseDir(create<Moru::Dir>()),
      vlanVniMaps(create<Vxlan::VlanVniMaps>()),
      zepStateClientView(create<VxlanController::ZepStateClientViewV2>()),
      zepSde(create<L2Rib::SourceDirEntry>()),
      l2RibZepInput(create<L2Rib::HostInput>()),
      zepConvergenceStatus(create<Vxlan::VxlanClientConvergenceStatus>()),
      peerSourceDirEntry_(create<L2Rib::SourceDirEntry>()) {
  mlagVxlanStatus->peerSourceDirEntryIs(peerSourceDirEntry_);
}

Vxlan::ClientInputs StateStore::inputs(const InputSet& absent) const {
  const auto given = [&absent]<class E>(Input input, const Ptr<E>& entity) {
    return absent.test(bitOf(input)) ? Ptr<E>() : entity;
  };
  Vxlan::ClientInputs inputs;
  inputs.vtiStatusDir = given(Input::vtiStatusDir, vtiStatusDir);
  inputs.controllerStatusBaseDir = given(Input::controllerStatusBaseDir, controllerStatusBaseDir);
  inputs.zepStateClientView = given(Input::zepStateClientView, zepStateClientView);
  inputs.vxlanHwStatusDir = given(Input::vxlanHwStatusDir, vxlanHwStatusDir);
  inputs.mlagStatus = given(Input::mlagStatus, mlagStatus);
  inputs.mlagVxlanStatus = given(Input::mlagVxlanStatus, mlagVxlanStatus);
  inputs.zepStateBaseDir = given(Input::zepStateBaseDir, zepStateBaseDir);
  inputs.vlanVniMaps = given(Input::vlanVniMaps, vlanVniMaps);
  inputs.zepSde = given(Input::zepSde, zepSde);
  inputs.l2RibZepInput = given(Input::l2RibZepInput, l2RibZepInput);
  inputs.zepConvergenceStatus = given(Input::zepConvergenceStatus, zepConvergenceStatus);
  return inputs;
}

void StateStore::apply(const Change& change) {
  std::visit(
      [this](const auto& each) {
        if constexpr (requires { each.value; })
          set(each.target, each.value);
        else
          del(each.target);
      },
      change);
}

void StateStore::set(const Vti& target, const Vti::Value& value) {
  if (const Ptr<Vxlan::VtiStatus> present = vtiStatusDir->vtiStatus(target.intf))
    return fill(*present, value);
  const auto status = create<Vxlan::VtiStatus>(target.intf);
  fill(*status, value);
  vtiStatusDir->vtiStatusIs(status);
}

void StateStore::del(const Vti& target) { vtiStatusDir->vtiStatusDel(target.intf); }

void StateStore::set(const VlanVni& target, const VlanVni::Value& value) {
  if (const Ptr<Vxlan::VlanVniMap> present = vlanVniMaps->vlanVniMap(target.intf))
    return fill(*present, target.vlan, value);
  const auto map = create<Vxlan::VlanVniMap>(target.intf);
  fill(*map, target.vlan, value);
  vlanVniMaps->vlanVniMapIs(map);
}

void StateStore::del(const VlanVni& target) {
  const Ptr<Vxlan::VlanVniMap> map = vlanVniMaps->vlanVniMap(target.intf);
  if (!map) return;
  const Vxlan::VniSourcePair pair = map->vlanToVsp(target.vlan);
  if (!!pair) reverseDel(*map, target.vlan, pair.vni());
  map->vlanToVspDel(target.vlan);
}

void StateStore::set(const VlanVniTables& target, const VlanVniTables::Value& value) {
  if (const Ptr<Vxlan::VlanVniMap> present = vlanVniMaps->vlanVniMap(target.intf))
    return fill(*present, value);
  const auto map = create<Vxlan::VlanVniMap>(target.intf);
  fill(*map, value);
  vlanVniMaps->vlanVniMapIs(map);
}

void StateStore::del(const VlanVniTables& target) { vlanVniMaps->vlanVniMapDel(target.intf); }

void StateStore::set(const ControllerEntry& target, const ControllerEntry::Value& value) {
  if (controllerStatusBaseDir->entityPtr(target.name))
    return controllerStatusBaseDir->entryStateIs(target.name, value.instantiated);
  Ptr<Moru::Entity> entity;
  if (value.type == ControllerEntry::Type::other)
    entity = create<OtherEntity>();
  else
    entity = create<VniFdbStatusV2>();
  controllerStatusBaseDir->entityPtrIs(target.name, entity, value.instantiated);
}

void StateStore::del(const ControllerEntry& target) {
  controllerStatusBaseDir->entityPtrDel(target.name);
}

// The VNI's tables if the entry is there and is of that type.
Ptr<VniFdbStatusV2> StateStore::vniPresent(const Moru::Name& name) const {
  return Moru::dynamicPtrCast<VniFdbStatusV2>(controllerStatusBaseDir->entityPtr(name));
}

// An entry that is made for its first host or list is announced before that is written.
Ptr<VniFdbStatusV2> StateStore::vniMade(const Moru::Name& name) {
  if (Ptr<VniFdbStatusV2> present = vniPresent(name)) return present;
  if (controllerStatusBaseDir->entityPtr(name))
    throw InputError("controller/" + name.stringValue() +
                     " is of another type: expected one that has hosts and lists");
  auto vni = create<VniFdbStatusV2>();
  controllerStatusBaseDir->entityPtrIs(name, vni);
  return vni;
}

void StateStore::set(const ControllerHost& target, const ControllerHost::Value& value) {
  const VxlanController::MacVtepV2 host{target.mac, value.vtep, value.moveCount, value.hostKind};
  vniMade(target.name)->macVtepTableIs(target.mac, host);
}

void StateStore::del(const ControllerHost& target) {
  if (const auto vni = vniPresent(target.name)) vni->macVtepTableDel(target.mac);
}

void StateStore::set(const ControllerMultiPath& target, const ControllerMultiPath::Value& value) {
  VxlanController::MacVtepMultiPathV2 multiPath(target.mac);
  for (const Vorn::IpAddr& vtep : value) multiPath.vtepIpList[vtep] = true;
  vniMade(target.name)->macVtepMultiPathTableIs(target.mac, multiPath);
}

void StateStore::del(const ControllerMultiPath& target) {
  if (const auto vni = vniPresent(target.name)) vni->macVtepMultiPathTableDel(target.mac);
}

void StateStore::set(const ControllerFlood& target, const ControllerFlood::Value& value) {
  const Ptr<VniFdbStatusV2> vni = vniMade(target.name);
  const Ptr<MacVtepFloodListV2 const> present = vni->macVtepFloodListTable(target.mac);
  if (present && !value.replace) return fill(*writable(present), value.vteps);
  const auto list = create<MacVtepFloodListV2>();
  fill(*list, value.vteps);
  vni->macVtepFloodListTableIs(target.mac, list);
}

void StateStore::del(const ControllerFlood& target) {
  if (const auto vni = vniPresent(target.name)) vni->macVtepFloodListTableDel(target.mac);
}

void StateStore::set(const ControllerState& target, const ControllerState::Value& value) {
  const auto present = Moru::staticPtrCast<ZepStateV2>(zepStateBaseDir->entityPtr(target.name));
  if (present) {
    present->convergenceInProgressIs(value.convergenceInProgress);
    return zepStateBaseDir->entryStateIs(target.name, value.instantiated);
  }
  const auto state = create<ZepStateV2>();
  state->convergenceInProgressIs(value.convergenceInProgress);
  zepStateBaseDir->entityPtrIs(target.name, state, value.instantiated);
}

void StateStore::del(const ControllerState& target) { zepStateBaseDir->entityPtrDel(target.name); }

void StateStore::set(const HwBum&, const HwBum::Value& value) {
  bumStatusModeIs(vxlanHwStatusDir->bumStatus, vxlanHwStatusDir->bumStatusIs, value);
}

void StateStore::del(const HwBum&) { vxlanHwStatusDir->bumStatusIs(nullptr); }

void StateStore::set(const MlagPairState&, const MlagPairState::Value& value) {
  mlagStatus->mlagStateIs(value);
}

void StateStore::del(const MlagPairState&) { mlagStatus->mlagStateIs(Mlag::MlagState::disabled); }

void StateStore::set(const PeerBum&, const PeerBum::Value& value) {
  bumStatusModeIs(mlagVxlanStatus->peerBumStatus, mlagVxlanStatus->peerBumStatusIs, value);
}

void StateStore::del(const PeerBum&) { mlagVxlanStatus->peerBumStatusIs(nullptr); }

void StateStore::set(const PeerVlanFlood& target, const PeerVlanFlood::Value&) {
  peerSourceDirEntry_->vlanFloodSetIs(target.vlan);
}

void StateStore::del(const PeerVlanFlood& target) {
  peerSourceDirEntry_->vlanFloodSetDel(target.vlan);
}

void StateStore::set(const PeerFlood& target, const PeerFlood::Value& value) {
  floodSetIs(*peerSourceDirEntry_, target.vlan, target.mac, value);
}

void StateStore::del(const PeerFlood& target) {
  floodSetDel(*peerSourceDirEntry_, target.vlan, target.mac);
}

void StateStore::set(const MlagVtepTypeAddr& target, const MlagVtepTypeAddr::Value& value) {
  mlagVxlanStatus->vtepTypeAddrIs(target.type, value);
}

void StateStore::del(const MlagVtepTypeAddr& target) {
  mlagVxlanStatus->vtepTypeAddrDel(target.type);
}

void StateStore::set(const RibHost& target, const RibHost::Value& value) {
  L2Rib::Host host;
  host.key = {target.mac, target.vlan};
  host.moveCount = value.moveCount;
  host.kind = value.hostKind;
  host.time = value.time;
  host.source = value.source;
  host.dest = L2Rib::CiDest(L2Rib::DestType::vtep);
  host.dest.intfIdIs(value.vti);
  host.dest.vtepAddrIs(0, value.vtep);
  l2RibZepInput->hostIs(host);
}

void StateStore::del(const RibHost& target) {
  l2RibZepInput->hostDel(Bridging::MacVlanPair{target.mac, target.vlan});
}

void StateStore::set(const RibFlood& target, const RibFlood::Value& value) {
  floodSetIs(*zepSde, target.vlan, target.mac, value);
}

void StateStore::del(const RibFlood& target) { floodSetDel(*zepSde, target.vlan, target.mac); }

}  // namespace Agent
