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

std::string textOf(const L2Rib::Dest& each) {
  const bool isVtep = each.tag() == L2Rib::DestTag::vxlan && !each.vxlan().vtepAddr.isIp6();
  const std::uint32_t number = isVtep ? numberOf(each.vxlan().vtepAddr.ip4()) : 0;
  return each == dest(number) ? std::to_string(number)
                              : each.stringValue() + '#' + std::to_string(traceValue(each.id()));
}

template <class Dests>
std::string floodSetText(L2Rib::FloodSetType type, const Dests& destinations) {
  std::set<std::string> texts;
  for (const auto& [each, flag] : destinations)
    if (flag) texts.insert(textOf(each));
  std::ostringstream text;
  if (type == L2Rib::FloodSetType::sendToAll)
    text << "all";
  else if (type == L2Rib::FloodSetType::sendToAny)
    text << "any";
  else
    text << type << ':';
  for (const std::string& each : texts) text << ' ' << each;
  return text.str();
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
      sets[{vlan.value(), numberOf(address)}] =
          floodSetText(floodSet->floodSetType(), floodSet->destSet());
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

// Where the VTIs map a VNI to; nowhere unless all of that is imported.
std::vector<std::pair<IntfId, VlanId>> placesOf(const World& world, VniExt vni) {
  std::vector<std::pair<IntfId, VlanId>> places;
  for (const auto& [intf, map] : world.vlanVniMaps->vlanVniMap()) {
    if (!map->vniToVlan(vni)) continue;
    const VlanId vlan(map->vniToVlan(vni).value());
    bool imported = false;
    for (const auto& [name, vti] : world.vtiStatusDir->vtiStatus())
      imported = imported || vti->vccImportVlans(vlan);
    if (!imported) return {};
    places.emplace_back(intf, vlan);
  }
  return places;
}

// What the controller publishes for one VNI, in one place.
void expectVni(const World& world, const VxlanController::VniFdbStatusV2& status,
               const IntfId& intf, const VlanId& vlan, Expected& expected) {
  const auto put = [&](const EthAddr& address, L2Rib::FloodSetType type, const auto& list) {
    std::vector<std::pair<L2Rib::Dest, bool>> dests;
    for (const auto& [ip, flag] : list) dests.emplace_back(dest(numberOf(ip)), true);
    expected.floodSets[{vlan.value(), numberOf(address)}] = floodSetText(type, dests);
  };
  const auto vti = world.vtiStatusDir->vtiStatus(intf);
  for (const auto& [address, host] : status.macVtepTable())
    if (!vti || (host.vtepIp != vti->localVtepAddr() && host.vtepIp != vti->vArpVtepAddr()))
      expected.hosts.insert(remote(static_cast<unsigned>(numberOf(address)), vlan.value(),
                                   intf.stringValue().c_str(), numberOf(host.vtepIp),
                                   host.moveCount, traceValue(host.hostKind)));
  for (const auto& [address, list] : status.macVtepFloodListTable())
    put(address, L2Rib::FloodSetType::sendToAll, list->vtepIpFloodList());
  for (const auto& [address, entry] : status.macVtepMultiPathTable())
    if (entry.vtepIpLists() != 0) put(address, L2Rib::FloodSetType::sendToAny, entry.vtepIpList);
}

}  // namespace

Expected expectedOf(const World& world) {
  Expected expected;
  bool controllerMode = false;
  bool learning = true;
  for (const auto& [intf, vti] : world.vtiStatusDir->vtiStatus()) {
    controllerMode = controllerMode || vti->controllerClientMode();
    learning = learning && vti->datapathLearning();
  }
  if (!controllerMode) return expected;
  for (const auto& [name, entry] : world.controllerStatusBaseDir->entityPtr()) {
    const VniExt vni(std::stoll(name.stringValue()));
    const auto places = placesOf(world, vni);
    if (places.empty()) continue;
    expected.vnis.push_back(vni.value());
    const auto status = Moru::staticPtrCast<VxlanController::VniFdbStatusV2 const>(entry.entityPtr);
    for (const auto& [intf, vlan] : places) expectVni(world, *status, intf, vlan, expected);
  }
  std::sort(expected.vnis.begin(), expected.vnis.end());
  if (learning) expected.hosts.clear();
  if (world.bumStatus->bumReplicationMode() != Vxlan::BumReplicationMode::controller)
    expected.floodSets.clear();
  return expected;
}

}  // namespace Test
