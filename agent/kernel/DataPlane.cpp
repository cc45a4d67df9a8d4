#include "agent/kernel/DataPlane.h"

#include <algorithm>
#include <chrono>
#include <linux/rtnetlink.h>
#include <system_error>

#include "agent/base/SortOnce.h"
#include "framework/Moru/ActivityFacility.h"

namespace Agent::Kernel {

namespace {

// More changes than this are written without being told of them: the socket could not hold it.
constexpr std::size_t mostTold = 1024;

double now() { return Moru::ActivityFacility::current()->now(); }

std::string placeOf(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) {
  return "kernel: VNI " + std::to_string(vni.value()) + ": " + mac.stringValue();
}

}  // namespace

// A turn of the loop is all that it is for.
class DataPlane::MoruClock final : public Moru::Clock::NotifieeConst {
 public:
  MoruClock() {
    notifierIs(Moru::ActivityFacility::current()->clock());
    hasNotificationActiveIs(true);
  }

  void onAttribute(Moru::AttributeId, const void*) override {}
};

DataPlane::DataPlane(const DataPlaneOptions& options, const Rib& rib, Problems& problems,
                     Events events)
    : managesLinks_(options.links.manages),
      rib_(rib),
      problems_(problems),
      events_(std::move(events)),
      clock_(Moru::create<MoruClock>()),
      monitor_(options.monitorBuffer),
      links_(
          options.links, requests_, problems,
          {.deviceIs = [this](const Vxlan::VniExt& vni,
                              const std::optional<Device>& device) { fdb_.deviceIs(vni, device); },
           .tell = [this](const std::string& what) { events_.tell(what); }}),
      groups_(requests_, problems,
              {.lost = [this](GroupId group) { fdb_.groupLost(group); },
               .putBack =
                   [this](const std::string& what) {
                     ++groupsPutBack_;
                     events_.tell("put right: " + what);
                   }}),
      fdb_(requests_, groups_, problems, {events_.known, events_.happened}) {
  Netlink::requirePermission(requests_);
  takeAll();
  watch_ = Moru::create<RibWatch>(rib_);
}

DataPlane::~DataPlane() = default;

void DataPlane::attachmentsAre(const Attachments& attachments) {
  links_.portsAre(attachments.ports);
  if (attachments.ownAddresses == databaseAddresses_) return;
  databaseAddresses_ = attachments.ownAddresses;
  isOwnChanged_ = true;
}

void DataPlane::calmIs(bool isCalm) {
  if (isCalm == isCalm_) return;
  isCalm_ = isCalm;
  links_.calmIs(isCalm);
  fdb_.calmIs(isCalm);
}

// --- What there is in the kernel ---

void DataPlane::take(const nlmsghdr& message) {
  switch (message.nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
      if (const auto link = Netlink::linkOf(message))
        message.nlmsg_type == RTM_NEWLINK ? links_.linkIs(*link) : links_.linkDel(*link);
      else if (const auto port = Netlink::bridgePortOf(message))
        links_.portIs(*port);
      break;
    case RTM_NEWADDR:
    case RTM_DELADDR:
      if (const auto address = Netlink::addressOf(message))
        message.nlmsg_type == RTM_NEWADDR ? links_.addressIs(*address)
                                          : links_.addressDel(*address);
      break;
    case RTM_NEWNEXTHOP:
      groups_.nexthopIs(Netlink::nexthopOf(message));
      break;
    case RTM_DELNEXTHOP:
      groups_.nexthopDel(Netlink::nexthopOf(message));
      break;
    case RTM_NEWNEIGH:
    case RTM_DELNEIGH:
      if (!Netlink::isFdbEntry(message)) break;
      if (message.nlmsg_type == RTM_NEWNEIGH)
        fdb_.entryIs(Netlink::fdbEntryOf(message));
      else
        fdb_.entryDel(Netlink::fdbEntryOf(message));
      break;
    default:
      break;
  }
}

// What an agent before us has left is taken over before anything is asked for.
void DataPlane::takeAll() {
  for (beginReading(Reading::links); reading_ != Reading::nothing;) readPiece();
  fdb_.judge(now());
}

void DataPlane::beginReading(Reading what) {
  reading_ = what;
  switch (what) {
    case Reading::links:
      links_.beginAll();
      return dump_.begin(RTM_GETLINK, Netlink::allLinks);
    case Reading::addresses:
      return dump_.begin(RTM_GETADDR, Netlink::allAddresses);
    case Reading::nexthops:
      groups_.beginAll();
      return dump_.begin(RTM_GETNEXTHOP, Netlink::allNexthops);
    case Reading::entries:
      fdb_.beginAll();
      return dump_.begin(RTM_GETNEIGH, Netlink::allFdbEntries);
    case Reading::nothing:
      return;
  }
}

// Entries are read when the links are known that they are of.
void DataPlane::readPiece() {
  switch (dump_.step([this](const nlmsghdr& message) { take(message); })) {
    case Netlink::Dump::State::more:
      return;
    case Netlink::Dump::State::interrupted:
      return beginReading(reading_ == Reading::addresses ? Reading::links : reading_);
    case Netlink::Dump::State::ended:
      return endReading();
  }
}

void DataPlane::endReading() {
  if (reading_ == Reading::addresses) links_.endAll();
  if (reading_ == Reading::nexthops) groups_.endAll();
  if (reading_ == Reading::entries) {
    fdb_.endAll();
    reading_ = Reading::nothing;
    for (const auto& message : std::exchange(postponed_, {}))
      take(*reinterpret_cast<const nlmsghdr*>(message.data()));
    return;
  }
  beginReading(static_cast<Reading>(static_cast<int>(reading_) + 1));
}

void DataPlane::readAgain(const std::string& why) {
  ++readAgain_;
  events_.tell(why + ": all is read again");
  monitor_.forget();
  postponed_.clear();
  beginReading(Reading::links);
}

// True: all that has happened is known. What happens while all is being read comes behind that: a
// piece of it may be older than the news.
bool DataPlane::listen() {
  const auto state = monitor_.drain([this](const nlmsghdr& message) {
    if (reading_ == Reading::nothing) return take(message);
    const auto* const bytes = reinterpret_cast<const char*>(&message);
    postponed_.emplace_back(bytes, bytes + message.nlmsg_len);
  });
  if (state == Netlink::Monitor::State::overrun) readAgain("news of the kernel are lost");
  return state == Netlink::Monitor::State::drained;
}

// --- What there is to be ---

void DataPlane::takeChanges() {
  auto changes = watch_->take();
  if (changes.vtis || std::exchange(isOwnChanged_, false)) takeOwnAddresses(changes);
  if (changes.maps) takeMaps(changes);
  takeHosts(changes.hosts);
  if (!changes.floodSets.empty()) takeFloodSets(changes.floodSets);
}

// A host or a member of a list behind our own VTEP is not programmed: all are looked at again.
void DataPlane::takeOwnAddresses(RibWatch::Changes& changes) {
  Vorn::IpAddr local;
  std::vector<Vorn::IpAddr> own = databaseAddresses_;
  for (const auto& [intf, vti] : rib_.vtis->vtiStatus()) {
    const Vorn::IpAddr address = vti->localVtepAddr();
    if (address == Vorn::IpAddr()) continue;
    own.push_back(address);
    if (local == Vorn::IpAddr() || address < local) local = address;
  }
  links_.localAddressIs(local);
  sortOnce(own);
  if (own == ownAddresses_) return;
  ownAddresses_ = own;
  for (const auto& [key, host] : rib_.hosts->host()) changes.hosts.push_back(key);
  for (const auto& [vlan, vni] : vnis_) noteFloodSets(vlan, changes);
}

// A VLAN has one VNI, and a VNI one VLAN: where the maps say otherwise, the lowest.
void DataPlane::takeMaps(RibWatch::Changes& changes) {
  std::map<Bridging::VlanId, Vxlan::VniExt> all;
  for (const auto& [intf, map] : rib_.vlanVniMaps->vlanVniMap())
    for (const auto& [vlan, pair] : map->vlanToVsp()) {
      if (!pair) continue;
      const auto [at, isNew] = all.try_emplace(vlan, pair.vni());
      if (!isNew) at->second = std::min(at->second, pair.vni());
    }
  std::set<Vxlan::VniExt> vnis;
  std::erase_if(all, [&vnis](const auto& each) { return !vnis.insert(each.second).second; });
  const auto former = std::exchange(vnis_, std::move(all));
  for (const auto& [vlan, vni] : former) {
    const auto at = vnis_.find(vlan);
    if (at != vnis_.end() && at->second == vni) continue;
    withdraw(vlan, vni, changes);
    if (!vnis.contains(vni)) links_.vniDel(vni);
  }
  for (const auto& [vlan, vni] : vnis_) {
    const auto at = former.find(vlan);
    if (at != former.end() && at->second == vni) continue;
    links_.vniIs(vni);
    noteFloodSets(vlan, changes);
    if (const auto hosts = unmapped_.extract(vlan); !hosts.empty())
      for (const Vorn::EthAddr& mac : hosts.mapped()) changes.hosts.push_back({mac, vlan});
  }
}

// What has been programmed under a VNI is looked at again under its VLAN.
void DataPlane::withdraw(const Bridging::VlanId& vlan, const Vxlan::VniExt& vni,
                         RibWatch::Changes& changes) {
  for (const Vorn::EthAddr& mac : fdb_.wanted(vni)) {
    if (Fdb::isFlood(mac))
      fdb_.floodIs(vni, mac, {});
    else
      fdb_.unicastIs(vni, mac, {});
    changes.hosts.push_back({mac, vlan});
  }
  noteFloodSets(vlan, changes);
}

void DataPlane::noteFloodSets(const Bridging::VlanId& vlan, RibWatch::Changes& changes) const {
  if (const auto sets = rib_.floodSets->vlanFloodSet(vlan))
    for (const auto& [mac, floodSet] : sets->floodSet()) changes.floodSets.emplace(vlan, mac);
}

void DataPlane::takeHosts(const std::vector<Bridging::MacVlanPair>& keys) {
  for (const Bridging::MacVlanPair& key : keys) {
    if (Fdb::isFlood(key.mac)) continue;
    const auto at = vnis_.find(key.vlan);
    if (at != vnis_.end())
      fdb_.unicastIs(at->second, key.mac, wantedRoute(at->second, key));
    else if (rib_.hosts->host().contains(key))
      unmapped_[key.vlan].insert(key.mac);
    else if (const auto unmapped = unmapped_.find(key.vlan); unmapped != unmapped_.end())
      unmapped->second.erase(key.mac);
  }
}

// A host goes before a flood set of its MAC.
Route DataPlane::wantedRoute(const Vxlan::VniExt& vni, const Bridging::MacVlanPair& key) {
  if (const L2Rib::Host* const host = rib_.hosts->host().find(key)) {
    const Vorn::IpGenAddr vtep = host->dest.vtepAddr(0);
    if (vtep.isIp6()) return cannot(vni, key.mac, vtep.stringValue(), "the IPv4 address of a VTEP");
    can(vni, key.mac);
    return isOwnAddress(vtep.ip4()) ? Route() : Route{vtep.ip4(), 0};
  }
  const auto floodSet = floodSetOf(key.vlan, key.mac);
  const auto vteps = floodSet ? vtepsOf(*floodSet) : Groups::Members();
  if (!vteps.empty() && floodSet->floodSetType() == L2Rib::FloodSetType::sendToAll)
    return cannot(vni, key.mac, "to all", "any one of several VTEPs for a unicast MAC, or one");
  can(vni, key.mac);
  if (vteps.empty()) return {};
  return {{}, groups_.of(vteps)};
}

Route DataPlane::cannot(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac,
                        const std::string& value, const std::string& why) {
  impossible_.emplace(vni, mac);
  problems_.raise(placeOf(vni, mac), value, why);
  return {};
}

void DataPlane::can(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) {
  if (!impossible_.empty() && impossible_.erase({vni, mac}) > 0) problems_.cure(placeOf(vni, mac));
}

Moru::Ptr<L2Rib::FloodSet const> DataPlane::floodSetOf(const Bridging::VlanId& vlan,
                                                       const Vorn::EthAddr& mac) const {
  const auto sets = rib_.floodSets->vlanFloodSet(vlan);
  return sets ? sets->floodSet(mac) : nullptr;
}

Groups::Members DataPlane::vtepsOf(const L2Rib::FloodSet& floodSet) const {
  Groups::Members vteps;
  for (const auto& [dest, isMember] : floodSet.destSet()) {
    if (!isMember || dest.tag() != L2Rib::DestTag::vxlan) continue;
    const Vorn::IpGenAddr vtep = dest.vxlan().vtepAddr;
    if (!vtep.isIp6() && !isOwnAddress(vtep.ip4())) vteps.push_back(vtep.ip4());
  }
  sortOnce(vteps);
  return vteps;
}

void DataPlane::takeFloodSets(const std::set<VlanMac>& keys) {
  std::map<VniMac, Groups::Members> toAny;
  for (const auto& [vlan, mac] : keys) {
    const auto at = vnis_.find(vlan);
    if (at == vnis_.end()) continue;
    const auto floodSet = floodSetOf(vlan, mac);
    const auto vteps = floodSet ? vtepsOf(*floodSet) : Groups::Members();
    const bool isToAny =
        !vteps.empty() && floodSet->floodSetType() == L2Rib::FloodSetType::sendToAny;
    if (isToAny && !rib_.hosts->host().contains({mac, vlan}))
      toAny[{at->second, mac}] = vteps;
    else if (Fdb::isFlood(mac))
      fdb_.floodIs(at->second, mac, {vteps, 0});
    else
      takeHosts({{mac, vlan}});
  }
  moveToGroups(toAny);
}

// Where all that use a group come to have the same other VTEPs, the group follows them, and no
// entry is touched.
void DataPlane::moveToGroups(std::map<VniMac, Groups::Members>& sets) {
  std::map<std::pair<GroupId, Groups::Members>, std::size_t> moves;
  for (const auto& [key, members] : sets)
    ++moves[{fdb_.wantedGroup(key.first, key.second), members}];
  for (const auto& [move, users] : moves)
    if (move.first != 0 && users == fdb_.wanters(move.first))
      groups_.repoint(move.first, move.second);
  for (const auto& [key, members] : sets) {
    const auto& [vni, mac] = key;
    can(vni, mac);
    if (Fdb::isFlood(mac))
      fdb_.floodIs(vni, mac, {{}, groups_.of(members)});
    else
      fdb_.unicastIs(vni, mac, {{}, groups_.of(members)});
  }
}

// --- A turn ---

bool DataPlane::work(double seconds) {
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::duration<double>(seconds);
  takeChanges();
  bool isMore = true;
  try {
    while (isMore && Clock::now() < end) isMore = step();
  } catch (const std::system_error& error) {
    readAgain(error.what());
  }
  tellPutBack();
  clock_->timeMinIs(due().value_or(Moru::Clock::never));
  return isMore;
}

void DataPlane::tellPutBack() {
  const std::size_t number = fdb_.putBack() - std::exchange(toldPutBack_, fdb_.putBack());
  if (number == 0) return;
  const auto& [vni, mac] = fdb_.lastPutBack();
  events_.tell("put back " + mac.stringValue() + " of VNI " + std::to_string(vni.value()) +
               (number == 1 ? "" : " and " + std::to_string(number - 1) + " other FDB entries") +
               ", for others had changed them");
}

// What the kernel has told comes before what it is asked for.
bool DataPlane::step() {
  monitor_.oursAreUntold(reading_ == Reading::nothing && fdb_.waiting() > mostTold);
  if (!listen()) return true;
  if (reading_ != Reading::nothing) {
    readPiece();
    return true;
  }
  const double time = now();
  fdb_.judge(time);
  if (links_.work(time) || groups_.work(time)) return true;
  fdb_.work(time);
  return fdb_.waiting() > 0 || groups_.clean(isCalm_);
}

std::optional<double> DataPlane::due() const {
  std::optional<double> first;
  for (const auto& due : {links_.due(), groups_.due(), fdb_.due()})
    if (due) first = std::min(first.value_or(*due), *due);
  return first;
}

DataPlane::Status DataPlane::status() const {
  return {fdb_.counts(),
          links_.devices(),
          groups_.size(),
          fdb_.waiting(),
          fdb_.putBack() + groupsPutBack_,
          readAgain_};
}

std::string DataPlane::whyOther(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) const {
  if (const std::string* const words = fdb_.refusal(vni, mac)) return "refused: " + *words;
  if (impossible_.contains({vni, mac})) return "refused: it has no form in the kernel";
  switch (fdb_.state(vni, mac)) {
    case Fdb::State::noDevice:
      return "waiting for the VNI's device";
    case Fdb::State::waiting:
      return "waiting to be programmed";
    case Fdb::State::left:
      return isCalm_ ? "" : "kept until all is calm";
    case Fdb::State::programmed:
      return usesBridge(vni) && !hasBridge(vni) ? "waiting for the VNI's bridge" : "";
    case Fdb::State::unknown:
      return "";
  }
  return "";
}

bool DataPlane::hasBridge(const Vxlan::VniExt& vni) const {
  const auto device = links_.device(vni);
  return device && device->bridge != 0;
}

// A device that is adopted may do without.
bool DataPlane::usesBridge(const Vxlan::VniExt& vni) const {
  return managesLinks_ || hasBridge(vni);
}

bool DataPlane::isOwnAddress(const Vorn::IpAddr& address) const {
  return std::ranges::binary_search(ownAddresses_, address);
}

}  // namespace Agent::Kernel
