#include "tests/Vxlan/World.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

#include "Vxlan/Trace.h"

namespace Test {

World::World(double timePerRead)
    : time(create<Moru::VirtualTime>(0, timePerRead)),
      facility(create<Moru::ActivityFacility>(time)) {
  vxlanHwStatusDir->bumStatusIs(bumStatus);
  mlagVxlanStatus->peerBumStatusIs(peerBumStatus);
  mlagVxlanStatus->peerSourceDirEntryIs(peerSde);
  Moru::ActivityFacility::currentIs(facility);
  Vxlan::traceFacility.streamLevelsIs(1U << 8);
  Moru::traceSinkIs([this](const Moru::TraceMessage& message) {
    if (message.facility == "Vxlan") trace_.emplace_back(message.text);
  });
}

World::~World() {
  if (client) stop();
  Moru::traceSinkIs({});
  Vxlan::traceFacility.streamLevelsIs(0);
}

void World::start() {
  client = Vxlan::vxlanControllerClientSmFactory(
      vtiStatusDir, controllerStatusBaseDir, zepStateClientView, vxlanHwStatusDir, mlagStatus,
      mlagVxlanStatus, zepStateBaseDir, vlanVniMaps, zepSde, l2RibZepInput, zepConvergenceStatus);
}

void World::stop() {
  client = nullptr;
  std::size_t watchers = 0;
  const auto count = [&watchers](const auto&... entities) {
    ((watchers += entities ? entities->notifiees() : 0), ...);
  };
  count(vtiStatusDir, controllerStatusBaseDir, zepStateClientView, vxlanHwStatusDir, mlagStatus,
        mlagVxlanStatus, zepStateBaseDir, vlanVniMaps, zepSde, l2RibZepInput, zepConvergenceStatus,
        controllerState_, bumStatus, peerBumStatus, peerSde);
  for (const auto& [intf, status] : vtiStatusDir->vtiStatus()) count(status);
  for (const auto& [intf, map] : vlanVniMaps->vlanVniMap()) count(map);
  for (const auto& [name, entry] : controllerStatusBaseDir->entityPtr()) count(entry.entityPtr);
  for (const auto& [vlan, vlanFloodSet] : peerSde->vlanFloodSet()) {
    count(vlanFloodSet);
    for (const auto& [address, floodSet] : vlanFloodSet->floodSet()) count(floodSet);
  }
  for (const auto& list : floodLists_) count(list);
  EXPECT_EQ(watchers, 0U) << "left behind";
  EXPECT_EQ(facility->nextDue(), Moru::Clock::never) << "a clock is armed for nobody";
}

Ptr<Vxlan::VtiStatus> World::addVti(const char* intf, bool controllerClientMode,
                                    bool datapathLearning) {
  auto status = create<Vxlan::VtiStatus>(IntfId(intf));
  status->controllerClientModeIs(controllerClientMode);
  status->datapathLearningIs(datapathLearning);
  status->localVtepAddrIs(vtep(1));
  vtiStatusDir->vtiStatusIs(status);
  return status;
}

void World::mapAndImport(const char* intf, int vlan, std::uint32_t vni) {
  vti(intf)->vccImportVlansIs(VlanId(vlan));
  map(intf, vlan, vni);
}

namespace {

void mapIn(Vxlan::VlanVniMap& map, int vlan, std::uint32_t vni) {
  const Vxlan::VniSourcePair before = map.vlanToVsp(VlanId(vlan));
  if (!!before && before.vni() != VniExt(vni) &&
      map.vniToVlan(before.vni()) == Bridging::VlanIdOrNone(vlan))
    map.vniToVlanDel(before.vni());
  map.vniToVlanIs(VniExt(vni), Bridging::VlanIdOrNone(vlan));
  map.vlanToVspIs(VlanId(vlan), Vxlan::VniSourcePair(vni));
}

}  // namespace

void World::map(const char* intf, int vlan, std::uint32_t vni) const {
  if (const auto present = vlanVniMaps->vlanVniMap(IntfId(intf))) return mapIn(*present, vlan, vni);
  const auto filled = create<Vxlan::VlanVniMap>(IntfId(intf));
  mapIn(*filled, vlan, vni);
  vlanVniMaps->vlanVniMapIs(filled);
}

void World::unmap(const char* intf, int vlan) const {
  const auto map = vlanVniMaps->vlanVniMap(IntfId(intf));
  const Vxlan::VniSourcePair before = map->vlanToVsp(VlanId(vlan));
  if (!!before && map->vniToVlan(before.vni()) == Bridging::VlanIdOrNone(vlan))
    map->vniToVlanDel(before.vni());
  map->vlanToVspDel(VlanId(vlan));
}

Ptr<VxlanController::VniFdbStatusV2> World::publish(std::uint32_t vni) {
  const std::string name = std::to_string(vni);
  if (const auto present = controllerStatusBaseDir->entityPtr(name))
    return Moru::staticPtrCast<VxlanController::VniFdbStatusV2>(present);
  auto status = create<VxlanController::VniFdbStatusV2>();
  controllerStatusBaseDir->entityPtrIs(name, status);
  return status;
}

void World::host(std::uint32_t vni, std::uint64_t macNumber, std::uint32_t vtepNumber,
                 std::uint32_t moveCount, std::uint8_t kind) {
  publish(vni)->macVtepTableIs(
      mac(macNumber), VxlanController::MacVtepV2{mac(macNumber), vtep(vtepNumber), moveCount,
                                                 VxlanController::HostKind(kind)});
}

void World::converging(bool inProgress) {
  if (!controllerState_) {
    controllerState_ = create<VxlanController::ZepStateV2>();
    controllerState_->convergenceInProgressIs(inProgress);
    zepStateBaseDir->entityPtrIs("controller", controllerState_);
  }
  controllerState_->convergenceInProgressIs(inProgress);
}

void World::floodList(std::uint32_t vni, std::uint64_t macNumber, const Vteps& vteps) {
  const auto status = publish(vni);
  if (!status->macVtepFloodListTable(mac(macNumber))) {
    const auto list = floodLists_.emplace_back(create<VxlanController::MacVtepFloodListV2>());
    for (const std::uint32_t number : vteps) list->vtepIpFloodListIs(vtep(number), true);
    status->macVtepFloodListTableIs(mac(macNumber), list);
    return;
  }
  const auto list = floodListOf(vni, macNumber);
  for (auto each = list->vtepIpFloodList().begin(); each; ++each)
    if (!vteps.contains(each.key().value() - vtep(0).value())) list->vtepIpFloodListDel(each.key());
  for (const std::uint32_t number : vteps)
    if (!list->vtepIpFloodList(vtep(number))) list->vtepIpFloodListIs(vtep(number), true);
}

Ptr<VxlanController::MacVtepFloodListV2> World::floodListOf(std::uint32_t vni,
                                                            std::uint64_t macNumber) {
  return *std::find(floodLists_.begin(), floodLists_.end(),
                    publish(vni)->macVtepFloodListTable(mac(macNumber)));
}

void World::multiPath(std::uint32_t vni, std::uint64_t macNumber, const Vteps& vteps) {
  VxlanController::MacVtepMultiPathV2 entry(mac(macNumber));
  for (const std::uint32_t number : vteps) entry.vtepIpList[vtep(number)] = number % 2 == 0;
  publish(vni)->macVtepMultiPathTableIs(mac(macNumber), entry);
}

Hosts::value_type remote(std::uint64_t macNumber, int vlan, const char* intf,
                         std::uint32_t vtepNumber, std::uint32_t moveCount, std::uint8_t kind) {
  const MacVlanPair key{mac(macNumber), VlanId(vlan)};
  return {key, {key, IntfId(intf), 10, vtep(vtepNumber), 0, moveCount, kind, false, 0}};
}

Hosts World::received(bool marked) const {
  Hosts hosts;
  for (const auto& [key, entry] : client->hostTable()->receivedEntry()) {
    if (entry.markedForDel != marked) continue;
    hosts[key] = entry;
    hosts[key].time = 0;
  }
  return hosts;
}

namespace {

std::uint64_t numberOf(const EthAddr& address) { return address.value() - mac(0).value(); }
std::uint32_t numberOf(const IpAddr& address) { return address.value() - vtep(0).value(); }

std::string floodSetText(L2Rib::FloodSetType type, const Vteps& vteps,
                         const std::set<std::string>& others = {}) {
  std::ostringstream text;
  if (type == L2Rib::FloodSetType::sendToAll)
    text << "all";
  else if (type == L2Rib::FloodSetType::sendToAny)
    text << "any";
  else
    text << type << ':';
  for (const std::uint32_t number : vteps) text << ' ' << number;
  for (const std::string& other : others) text << ' ' << other;
  return text.str();
}

std::string floodSetText(const L2Rib::FloodSet& floodSet) {
  Vteps vteps;
  std::set<std::string> others;
  for (const auto& [each, flag] : floodSet.destSet()) {
    if (!flag) continue;
    const bool isVtep = each.tag() == L2Rib::DestTag::vxlan && !each.vxlan().vtepAddr.isIp6();
    const std::uint32_t number = isVtep ? numberOf(each.vxlan().vtepAddr.ip4()) : 0;
    if (each == dest(number))
      vteps.insert(number);
    else
      others.insert(each.stringValue() + '#' + std::to_string(traceValue(each.id())));
  }
  return floodSetText(floodSet.floodSetType(), vteps, others);
}

// What stands in the RIB for an entry.
L2Rib::Host ribHost(const Vxlan::ReceivedEntry& entry) {
  L2Rib::CiDest dest(L2Rib::DestType(1));
  dest.intfIdIs(entry.vtiIntfId);
  dest.vtepAddrIs(0, entry.vtepAddr);
  return {entry.key, entry.moveCount, entry.hostKind, 16, entry.time, 10, {0, 0, 0}, dest};
}

}  // namespace

FloodSets floodSetsOf(const L2Rib::SourceDirEntry& sde) {
  FloodSets sets;
  for (const auto& [vlan, vlanFloodSet] : sde.vlanFloodSet()) {
    if (vlanFloodSet->floodSet().empty()) sets[{vlan.value(), 0}] = "empty";
    for (const auto& [address, floodSet] : vlanFloodSet->floodSet())
      sets[{vlan.value(), numberOf(address)}] = floodSetText(*floodSet);
  }
  return sets;
}

std::vector<std::uint32_t> World::vnis() const {
  std::vector<std::uint32_t> vnis;
  for (const auto& [vni, machine] : client->zepPerVniFdbStatusSm()) vnis.push_back(vni.value());
  std::sort(vnis.begin(), vnis.end());
  return vnis;
}

void World::audit() const {
  const auto& table = *client->hostTable();
  std::map<MacVlanPair, L2Rib::Host> hosts;
  std::map<MacVlanPair, L2Rib::Host> expected;
  std::size_t marked = 0;
  for (const auto& [key, host] : l2RibZepInput->host()) hosts[key] = host;
  for (const auto& [key, entry] : table.receivedEntry()) {
    expected[key] = ribHost(entry);
    marked += entry.markedForDel ? 1 : 0;
  }
  ASSERT_EQ(hosts, expected);
  ASSERT_EQ(table.markedForDelCount(), marked);
  if (client->convergenceInProgress()) {
    ASSERT_FALSE(zepConvergenceStatus->unicastDeferredDeletionInProgress());
    ASSERT_FALSE(zepConvergenceStatus->bumDeferredDeletionInProgress());
  } else if (marked != 0) {
    ASSERT_TRUE(zepConvergenceStatus->unicastDeferredDeletionInProgress());
    ASSERT_NE(facility->nextDue(), Moru::Clock::never);
  }
  for (const auto& [vlan, vlanFloodSet] : zepSde->vlanFloodSet())
    for (const auto& [address, floodSet] : vlanFloodSet->floodSet())
      for (const auto& [each, flag] : floodSet->destSet()) ASSERT_TRUE(flag) << each;
}

std::vector<std::string> World::trace() { return std::exchange(trace_, {}); }

bool World::traced(const std::string& text) {
  return std::any_of(trace_.begin(), trace_.end(), [&](const std::string& message) {
    return message.find(text) != std::string::npos;
  });
}

Settled::Settled(double timePerRead) : world(timePerRead) {
  world.addVti("Vxlan1");
  world.mapAndImport("Vxlan1", 10, 100);
  world.publish(100);
  world.bumModes(Vxlan::BumReplicationMode::controller, Vxlan::BumReplicationMode::unknown);
  world.converging(false);
  world.startAndRest();
}

void furnish(World& world, bool mlag) {
  if (!world.vti("Vxlan1")) world.addVti("Vxlan1");
  world.vti("Vxlan1")->controllerClientModeIs(true);
  world.vti("Vxlan1")->datapathLearningIs(false);
  world.mapAndImport("Vxlan1", 10, 100);
  world.mapAndImport("Vxlan1", 20, 200);
  for (const std::uint64_t number : {1, 2, 3}) world.host(100, number, 2);
  if (mlag) {
    world.peerFloodSet(10, 1)->destSetIs(dest(2), true);
    for (const std::uint32_t number : {4, 5, 6})
      world.peerFloodSet(10, 2)->destSetIs(dest(number), true);
  } else {
    world.floodList(100, 1, {2, 3, 4});
    world.multiPath(100, 2, {2, 3, 4});
  }
  world.mlag(mlag);
  world.bumModes(Vxlan::BumReplicationMode::controller,
                 mlag ? Vxlan::BumReplicationMode::controller : Vxlan::BumReplicationMode::unknown);
  world.converging(false);
}

namespace {

// Whether a client that starts now would follow the VNI.
bool isFollowed(const World& world, VniExt vni) {
  bool mapped = false;
  for (const auto& [intf, map] : world.vlanVniMaps->vlanVniMap()) {
    const Bridging::VlanIdOrNone vlan = map->vniToVlan(vni);
    if (!vlan) continue;
    mapped = true;
    bool imported = false;
    for (const auto& [name, vti] : world.vtiStatusDir->vtiStatus())
      imported = imported || vti->vccImportVlans(VlanId(vlan.value()));
    if (!imported) return false;
  }
  return mapped;
}

// Calls `visit(status, intf, vlan)` for every VNI that is followed and every VTI that maps it.
template <class Visit>
void forEachFollowed(const World& world, Visit&& visit) {
  for (const std::uint32_t vni : expectedVnis(world)) {
    const auto status = Moru::staticPtrCast<VxlanController::VniFdbStatusV2>(
        world.controllerStatusBaseDir->entityPtr(std::to_string(vni)));
    for (const auto& [intf, map] : world.vlanVniMaps->vlanVniMap())
      if (const Bridging::VlanIdOrNone vlan = map->vniToVlan(VniExt(vni)); !!vlan)
        visit(*status, intf, VlanId(vlan.value()));
  }
}

}  // namespace

std::vector<std::uint32_t> expectedVnis(const World& world) {
  std::vector<std::uint32_t> vnis;
  bool controllerMode = false;
  for (const auto& [intf, vti] : world.vtiStatusDir->vtiStatus())
    controllerMode = controllerMode || vti->controllerClientMode();
  if (!controllerMode) return vnis;
  for (const auto& [name, entry] : world.controllerStatusBaseDir->entityPtr()) {
    const VniExt vni(std::stoll(name.stringValue()));
    if (entry.entryState && isFollowed(world, vni)) vnis.push_back(vni.value());
  }
  std::sort(vnis.begin(), vnis.end());
  return vnis;
}

Hosts expectedHosts(const World& world) {
  Hosts hosts;
  bool learning = true;
  for (const auto& [intf, vti] : world.vtiStatusDir->vtiStatus())
    learning = learning && vti->datapathLearning();
  if (learning) return hosts;
  forEachFollowed(world, [&](const auto& status, const IntfId& intf, const VlanId& vlan) {
    const auto vti = world.vtiStatusDir->vtiStatus(intf);
    for (const auto& [address, host] : status.macVtepTable())
      if (!vti || (host.vtepIp != vti->localVtepAddr() && host.vtepIp != vti->vArpVtepAddr()))
        hosts[{address, vlan}] =
            remote(numberOf(address), vlan.value(), intf.stringValue().c_str(),
                   numberOf(host.vtepIp), host.moveCount, traceValue(host.hostKind))
                .second;
  });
  return hosts;
}

FloodSets expectedFloodSets(const World& world) {
  FloodSets sets;
  if (world.bumStatus->bumReplicationMode() != Vxlan::BumReplicationMode::controller) return sets;
  forEachFollowed(world, [&](const auto& status, const IntfId&, const VlanId& vlan) {
    const auto put = [&](const EthAddr& address, L2Rib::FloodSetType type, const auto& list) {
      Vteps vteps;
      for (const auto& [ip, flag] : list) vteps.insert(numberOf(ip));
      sets[{vlan.value(), numberOf(address)}] = floodSetText(type, vteps);
    };
    for (const auto& [address, list] : status.macVtepFloodListTable())
      put(address, L2Rib::FloodSetType::sendToAll, list->vtepIpFloodList());
    for (const auto& [address, entry] : status.macVtepMultiPathTable())
      if (entry.vtepIpLists() != 0) put(address, L2Rib::FloodSetType::sendToAny, entry.vtepIpList);
  });
  return sets;
}

}  // namespace Test
