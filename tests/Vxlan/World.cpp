#include "tests/Vxlan/World.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

#include "Vxlan/Trace.h"
#include "Vxlan/Walk.h"

namespace Test {

namespace {

constexpr Moru::TraceFacility::Levels level8 = 1U << 8;

}  // namespace

World::World(double timePerRead)
    : time(create<Moru::VirtualTime>(0, timePerRead)),
      facility(create<Moru::ActivityFacility>(time)) {
  vxlanHwStatusDir->bumStatusIs(bumStatus);
  mlagVxlanStatus->peerBumStatusIs(peerBumStatus);
  mlagVxlanStatus->peerSourceDirEntryIs(peerSde);
  Moru::ActivityFacility::currentIs(facility);
  Vxlan::traceFacility.streamLevelsIs(level8);
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
  livenessBefore_ = liveness();
  client = Vxlan::vxlanControllerClientSmFactory(Vxlan::ClientInputs{
      vtiStatusDir, controllerStatusBaseDir, zepStateClientView, vxlanHwStatusDir, mlagStatus,
      mlagVxlanStatus, zepStateBaseDir, vlanVniMaps, zepSde, l2RibZepInput, zepConvergenceStatus});
}

// Each entity must be as if there had never been a client. Of those that have come since it was
// made the references are not known.
void World::stop() {
  client = nullptr;
  for (const auto& [entity, counts] : liveness()) {
    EXPECT_EQ(counts.second, 0U) << "a watcher was left behind";
    if (livenessBefore_.contains(entity)) {
      EXPECT_LE(counts.first, livenessBefore_[entity].first) << "a reference was left behind";
    }
  }
  EXPECT_EQ(facility->nextDue(), Moru::Clock::never) << "a clock is armed for nobody";
}

World::Liveness World::liveness() const {
  Liveness counts;
  const auto count = [&counts](const auto&... entities) {
    const auto countOne = [&counts](const auto& entity) {
      if (entity) counts[entity.get()] = {entity->references(), entity->notifiees()};
    };
    (countOne(entities), ...);
  };
  count(vtiStatusDir, controllerStatusBaseDir, zepStateClientView, vxlanHwStatusDir, mlagStatus,
        mlagVxlanStatus, zepStateBaseDir, vlanVniMaps, zepSde, l2RibZepInput, zepConvergenceStatus,
        controllerState_, bumStatus, peerBumStatus, peerSde);
  for (const auto& [intf, status] : Vxlan::vtiStatusesOf(vtiStatusDir)) count(status);
  for (const auto& [intf, map] : Vxlan::vlanVniMapsOf(vlanVniMaps)) count(map);
  if (controllerStatusBaseDir)
    for (const auto& [name, entry] : controllerStatusBaseDir->entityPtr()) count(entry.entityPtr);
  for (const auto& [vlan, vlanFloodSet] : peerSde->vlanFloodSet()) {
    count(vlanFloodSet);
    for (const auto& [address, floodSet] : vlanFloodSet->floodSet()) count(floodSet);
  }
  for (const auto& list : floodLists_) count(list);
  return counts;
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

void World::map(const char* intf, int vlan, std::uint32_t vni) const {
  const auto map = vlanVniMaps->vlanVniMapIs(IntfId(intf));
  const Vxlan::VniSourcePair before = map->vlanToVsp(VlanId(vlan));
  if (!!before && before.vni() != VniExt(vni) &&
      map->vniToVlan(before.vni()) == Bridging::VlanIdOrNone(vlan))
    map->vniToVlanDel(before.vni());
  map->vniToVlanIs(VniExt(vni), Bridging::VlanIdOrNone(vlan));
  map->vlanToVspIs(VlanId(vlan), Vxlan::VniSourcePair(vni));
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
                 std::uint32_t moveCount) {
  publish(vni)->macVtepTableIs(
      mac(macNumber), VxlanController::MacVtepV2{mac(macNumber), vtep(vtepNumber), moveCount});
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

Hosts World::received(bool marked) const {
  Hosts hosts;
  for (const auto& [key, entry] : client->hostTable()->receivedEntry())
    if (entry.markedForDel == marked)
      hosts[key] = {entry.vtiIntfId, entry.vtepAddr, entry.moveCount};
  return hosts;
}

Hosts World::ribHosts() const {
  Hosts hosts;
  for (const auto& [key, host] : l2RibZepInput->host())
    hosts[key] = {host.dest.intfId(), host.dest.vtepAddr(0), host.moveCount};
  return hosts;
}

namespace {

std::string floodSetText(L2Rib::FloodSetType type, const Vteps& vteps) {
  std::ostringstream text;
  if (type == L2Rib::FloodSetType::sendToAll)
    text << "all";
  else if (type == L2Rib::FloodSetType::sendToAny)
    text << "any";
  else
    text << type << ':';
  for (const std::uint32_t number : vteps) text << ' ' << number;
  return text.str();
}

std::uint64_t numberOf(const EthAddr& address) { return address.value() - mac(0).value(); }
std::uint32_t numberOf(const IpAddr& address) { return address.value() - vtep(0).value(); }

}  // namespace

FloodSets floodSetsOf(const L2Rib::SourceDirEntry& sde) {
  FloodSets sets;
  for (const auto& [vlan, vlanFloodSet] : sde.vlanFloodSet()) {
    if (vlanFloodSet->floodSet().empty()) sets[{vlan.value(), 0}] = "empty";
    for (const auto& [address, floodSet] : vlanFloodSet->floodSet()) {
      Vteps vteps;
      for (const auto& [each, flag] : floodSet->destSet())
        if (flag) vteps.insert(numberOf(each.vxlan().vtepAddr.ip4()));
      sets[{vlan.value(), numberOf(address)}] = floodSetText(floodSet->floodSetType(), vteps);
    }
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
  const Hosts marked = received(true);
  ASSERT_EQ(table.markedForDelCount(), marked.size());
  Hosts all = received();
  all.insert(marked.begin(), marked.end());
  ASSERT_EQ(ribHosts(), all) << "the RIB is the table's mirror";
  for (const auto& [key, host] : l2RibZepInput->host()) {
    const Vxlan::ReceivedEntry entry = table.receivedEntry(key);
    ASSERT_TRUE(host.key == key && entry.key == key && host.time == entry.time &&
                host.source == 10 && host.kind == entry.hostKind && host.entryType == 16)
        << host << " of " << entry;
  }
  std::size_t indexed = 0;
  for (int vlan = 1; vlan <= VlanId::max; ++vlan)
    for (auto host = table.receivedEntry().keysOfGroup(VlanId(vlan)); host; ++host) ++indexed;
  ASSERT_EQ(indexed, table.receivedEntrys());
}

void World::batch(int visits) {
  client->maxProcessTimeIs(0.0005 + 0.001 * visits);
  trace();
  facility->fireDue();
}

void World::repair() {
  if (!vti("Vxlan1")) addVti("Vxlan1");
  vti("Vxlan1")->controllerClientModeIs(true);
  vti("Vxlan1")->datapathLearningIs(false);
  mapAndImport("Vxlan1", 10, 100);
  if (client) stop();
  converging(false);
  startAndRest();
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

const std::vector<std::function<void(World&)>>& mishaps() {
  static constexpr auto unknown = Vxlan::BumReplicationMode::unknown;
  static const std::vector<std::function<void(World&)>> all = {
      [](World& world) { world.unpublish(100); },
      [](World& world) { world.withdrawFloodList(100, 1); },
      [](World& world) { world.withdrawMultiPath(100, 2); },
      [](World& world) { world.unmap("Vxlan1", 10); },
      [](World& world) { world.vlanVniMaps->vlanVniMapDel(IntfId("Vxlan1")); },
      [](World& world) { world.vtiStatusDir->vtiStatusDel(IntfId("Vxlan1")); },
      [](World& world) { world.vti("Vxlan1")->controllerClientModeIs(false); },
      [](World& world) { world.vti("Vxlan1")->vccImportVlansDel(VlanId(10)); },
      [](World& world) { world.vti("Vxlan1")->datapathLearningIs(true); },
      [](World& world) { world.zepStateBaseDir->entityPtrDel("controller"); },
      [](World& world) { world.mlag(false); },
      [](World& world) { world.peerSde->vlanFloodSetDel(VlanId(10)); },
      [](World& world) { world.peerSde->vlanFloodSetIs(VlanId(10))->floodSetDel(mac(1)); },
      [](World& world) { world.zepSde->vlanFloodSetDelAll(); },
      [](World& world) { world.bumStatus->bumReplicationModeIs(unknown); },
      [](World& world) { world.peerBumStatus->bumReplicationModeIs(unknown); },
      [](World& world) { world.client = nullptr; },
  };
  return all;
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
        hosts[{address, vlan}] = {intf, host.vtepIp, host.moveCount};
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
