#include "agent/ovsdb/Mapping.h"

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

#include "agent/base/SortOnce.h"
#include "agent/base/Text.h"
#include "model/Vorn/IpGenAddr.h"

namespace Agent::Ovsdb {

namespace {

constexpr std::uint16_t lastVlan = Bridging::VlanId::max;

}  // namespace

Mapping::Mapping(std::string switchName, Rows& rows, Announcements& announcements, Sink sink,
                 PortAttachments::Sink attachments, Problems& problems)
    : switchName_(std::move(switchName)),
      rows_(rows),
      announcements_(announcements),
      sink_(std::move(sink)),
      problems_(problems),
      attachments_(
          rows, [this](Slot slot) { return segments_[slot].attached; }, std::move(attachments),
          problems) {
  rows_.watcherIs(*this);
}

bool Mapping::findSwitch() {
  const auto& switches = rows_.physicalSwitches;
  ownSwitch_ = noSlot;
  for (Slot slot = 0; slot < switches.size(); ++slot) {
    if (!switches[slot].isPresent || switches[slot].row.name != switchName_) continue;
    if (ownSwitch_ == noSlot || switches[slot].uuid < switches[ownSwitch_].uuid) ownSwitch_ = slot;
  }
  const std::string place = "Physical_Switch " + switchName_;
  if (ownSwitch_ == noSlot)
    problems_.raise(place, "", "a row of this name: it is waited for");
  else
    problems_.cure(place);
  return ownSwitch_ != noSlot;
}

bool Mapping::advance() {
  static constexpr std::array steps{
      &Mapping::followLocators, &Mapping::followSets,    &Mapping::collectBindings,
      &Mapping::mapSwitches,    &Mapping::turnContents,  &Mapping::orderLists,
      &Mapping::orderHosts,     &Mapping::withdrawLists, &Mapping::sayLists,
      &Mapping::withdrawHosts,  &Mapping::sayHosts,      &Mapping::withdrawVnis,
      &Mapping::sayAttachments};
  for (; step_ < steps.size(); ++step_)
    if ((this->*steps[step_])()) return true;
  step_ = 0;
  ++evaluation_;
  return false;
}

// What changes of rows mark.

void Mapping::changed(Slot slot, const LogicalSwitch& before, const LogicalSwitch& now) {
  if (before.sendsToAll != now.sendsToAll) markLists(slot);
  switchesChanged_ = true;
}

void Mapping::changed(Slot, const PhysicalPort&, const PhysicalPort&) { bindingsChanged_ = true; }

void Mapping::changed(Slot, const PhysicalSwitch&, const PhysicalSwitch&) {
  bindingsChanged_ = true;
}

void Mapping::changed(Slot slot, const PhysicalLocator& before, const PhysicalLocator& now) {
  LocatorUse& use = locators_[slot];
  if (before.vtep() == now.vtep() || use.changedIn == evaluation_) return;
  use.changedIn = evaluation_;
  changedLocators_.push_back(slot);
  setsChanged_ = true;
}

void Mapping::changed(Slot slot, const PhysicalLocatorSet&, const PhysicalLocatorSet&) {
  setChangedIn_[slot] = evaluation_;
  setsChanged_ = true;
}

void Mapping::changed(Slot slot, const UcastMac& before, const UcastMac& now) {
  if (before.mac != now.mac || before.logicalSwitch != now.logicalSwitch) {
    leaveHost(slot);
    joinHost(slot, now);
  } else if (const Slot host = ucastLinks_[slot].host; host != noSlot) {
    markHost(host);
  }
  if (before.locator == now.locator) return;
  leaveLocator(slot, before.locator);
  joinLocator(slot, now.locator);
}

void Mapping::changed(Slot slot, const McastMac& before, const McastMac& now) {
  if (before.isOfSwitch()) {
    std::erase(segments_[before.logicalSwitch].lists[before.mac].rows, slot);
    markListOf(before);
  }
  if (!now.isOfSwitch()) return;
  const auto [at, isNew] = segments_[now.logicalSwitch].lists.try_emplace(now.mac);
  if (isNew) rows_.logicalSwitches.refer(now.logicalSwitch);
  at->second.rows.push_back(slot);
  markListOf(now);
}

void Mapping::markHost(Slot host) {
  if (std::exchange(hosts_[host].isMarked, true)) return;
  markedHosts_.push_back(host);
}

void Mapping::markList(Slot logicalSwitch, const Vorn::EthAddr& mac, List& list) {
  if (std::exchange(list.isMarked, true)) return;
  markedLists_.emplace_back(logicalSwitch, mac);
}

void Mapping::markLists(Slot logicalSwitch) {
  for (auto& [mac, list] : segments_[logicalSwitch].lists) markList(logicalSwitch, mac, list);
}

void Mapping::markListOf(const McastMac& row) {
  auto& lists = segments_[row.logicalSwitch].lists;
  markList(row.logicalSwitch, row.mac, lists.at(row.mac));
}

Slot Mapping::hostOf(const HostKey& key) {
  if (const Slot present = hostIndex_.find(key); present != noSlot) return present;
  const Slot slot = hosts_.take();
  Segment& segment = segments_[key.logicalSwitch];
  Host& host = hosts_[slot];
  host.logicalSwitch = key.logicalSwitch;
  host.mac = key.mac;
  host.next = segment.firstHost;
  if (host.next != noSlot) hosts_[host.next].previous = slot;
  segment.firstHost = slot;
  hostIndex_.add(key, slot);
  rows_.logicalSwitches.refer(key.logicalSwitch);
  return slot;
}

void Mapping::forgetHost(Slot slot) {
  const Host& host = hosts_[slot];
  if (host.previous != noSlot)
    hosts_[host.previous].next = host.next;
  else
    segments_[host.logicalSwitch].firstHost = host.next;
  if (host.next != noSlot) hosts_[host.next].previous = host.previous;
  hostIndex_.remove({host.logicalSwitch, host.mac});
  rows_.logicalSwitches.unrefer(host.logicalSwitch);
  hosts_.release(slot);
}

void Mapping::joinHost(Slot row, const UcastMac& now) {
  if (!now.isOfSwitch()) return;
  UcastLinks& links = ucastLinks_[row];
  links.host = hostOf({now.logicalSwitch, now.mac});
  links.nextOfHost = std::exchange(hosts_[links.host].firstRow, row);
  markHost(links.host);
}

void Mapping::leaveHost(Slot row) {
  UcastLinks& links = ucastLinks_[row];
  if (links.host == noSlot) return;
  Slot* at = &hosts_[links.host].firstRow;
  while (*at != row) at = &ucastLinks_[*at].nextOfHost;
  *at = links.nextOfHost;
  markHost(links.host);
  links.host = noSlot;
  links.nextOfHost = noSlot;
}

void Mapping::joinLocator(Slot row, Slot locator) {
  if (locator == noSlot) return;
  Slot& first = locators_[locator].firstRow;
  if (first != noSlot) ucastLinks_[first].previousOfLocator = row;
  ucastLinks_[row].nextOfLocator = std::exchange(first, row);
}

void Mapping::leaveLocator(Slot row, Slot locator) {
  if (locator == noSlot) return;
  UcastLinks& links = ucastLinks_[row];
  if (links.previousOfLocator != noSlot)
    ucastLinks_[links.previousOfLocator].nextOfLocator = links.nextOfLocator;
  else
    locators_[locator].firstRow = links.nextOfLocator;
  if (links.nextOfLocator != noSlot)
    ucastLinks_[links.nextOfLocator].previousOfLocator = links.previousOfLocator;
  links.previousOfLocator = noSlot;
  links.nextOfLocator = noSlot;
}

bool Mapping::followLocators() {
  if (cursor_ == noSlot) {
    if (changedLocators_.empty()) return false;
    cursor_ = locators_[changedLocators_.back()].firstRow;
    changedLocators_.pop_back();
    return true;
  }
  const UcastLinks& links = ucastLinks_[cursor_];
  if (links.host != noSlot) markHost(links.host);
  cursor_ = links.nextOfLocator;
  return true;
}

// There are few lists, as a rule: all of them are asked whether their VTEPs have changed.
bool Mapping::followSets() {
  if (!setsChanged_) return false;
  if (position_ == rows_.mcastMacs.size()) {
    position_ = 0;
    setsChanged_ = false;
    return false;
  }
  const McastMac& row = rows_.mcastMacs[static_cast<Slot>(position_++)].row;
  if (!row.isOfSwitch() || row.locatorSet == noSlot) return true;
  const auto& members = rows_.physicalLocatorSets[row.locatorSet].row.locators;
  const auto isChanged = [this](Slot locator) {
    return locators_[locator].changedIn == evaluation_;
  };
  if (setChangedIn_[row.locatorSet] == evaluation_ ||
      (members && std::ranges::any_of(*members, isChanged)))
    markListOf(row);
  return true;
}

// Which switches have which VNIs and VLANs.

bool Mapping::collectBindings() {
  if (!bindingsChanged_) return false;
  if (position_ == 0) {
    wasBound_ = std::exchange(bound_, {});
    for (const Slot slot : wasBound_) segments_[slot].tags.clear();
  }
  if (const auto ports = ownPorts(); position_ < ports.size()) {
    bindPort(ports[position_++]);
    return true;
  }
  position_ = 0;
  bindingsChanged_ = false;
  switchesChanged_ = true;
  return false;
}

std::span<const Slot> Mapping::ownPorts() const {
  if (ownSwitch_ == noSlot) return {};
  const auto& ports = rows_.physicalSwitches[ownSwitch_].row.ports;
  return ports ? std::span<const Slot>(*ports) : std::span<const Slot>();
}

void Mapping::bindPort(Slot port) {
  eachBinding(rows_.physicalPorts[port].row, [this](std::uint16_t tag, Slot logicalSwitch) {
    auto& tags = segments_[logicalSwitch].tags;
    if (tags.empty()) {
      bound_.push_back(logicalSwitch);
      rows_.logicalSwitches.refer(logicalSwitch);
    }
    tags.push_back(tag);
  });
}

bool Mapping::mapSwitches() {
  if (!switchesChanged_) return false;
  switchesChanged_ = false;
  findOwnAddresses();
  for (const Slot slot : wasBound_) {
    if (!segments_[slot].tags.empty()) continue;
    segments_[slot].assigned = 0;
    segments_[slot].attached = 0;
    accept(slot);
  }
  countTags();
  turnTo(withVlans(chooseByVni()));
  chooseAttachments();
  for (const Slot slot : wasBound_) rows_.logicalSwitches.unrefer(slot);
  wasBound_.clear();
  return true;
}

void Mapping::findOwnAddresses() {
  const std::string place = "Physical_Switch " + switchName_ + ": tunnel_ips";
  if (ownSwitch_ == noSlot) return problems_.cure(place);
  std::string wrong;
  std::vector<Vorn::IpAddr> addresses;
  for (const std::string& text :
       rows_.physicalSwitches[ownSwitch_].row.tunnelIps.value_or(std::vector<std::string>())) {
    const auto address = Vorn::IpAddr::parse(text);
    if (address && isVtepAddress(*address)) {
      addresses.push_back(*address);
    } else if (wrong.empty() && (address || !Vorn::IpGenAddr::parse(text))) {
      wrong = text;
    }
  }
  if (addresses.empty())
    problems_.raise(place, beginningOf(wrong), "the IPv4 address of our VTEP: the last one stays");
  else if (!wrong.empty())
    problems_.raise(place, beginningOf(wrong), "addresses of our VTEP");
  else
    problems_.cure(place);
  if (addresses.empty() || addresses == ownAddresses_) return;
  const bool isMoved = ownAddresses_.empty() || addresses.front() != ownAddresses_.front();
  ownAddresses_ = std::move(addresses);
  for (const Slot slot : bound_) markLists(slot);
  if (!isMoved) return;
  Set<Vti> change{Vti{Vorn::IntfId(vtiName)}, {}};
  change.value.localVtepAddr = ownAddresses_.front();
  sink_(change);
}

void Mapping::countTags() {
  tagUsers_.assign(lastVlan + 1, 0);
  for (const Slot slot : bound_) {
    auto& tags = segments_[slot].tags;
    sortOnce(tags);
    for (const std::uint16_t tag : tags) ++tagUsers_[tag];
  }
}

// Of switches with one VNI: who has had it, or else the lowest name.
std::vector<Mapping::Choice> Mapping::chooseByVni() {
  std::vector<Choice> choices;
  const auto& switches = rows_.logicalSwitches;
  for (const Slot slot : bound_) {
    if (const std::uint32_t vni = switches[slot].row.vni; vni != 0)
      choices.push_back({slot, vni, 0});
    else
      accept(slot);
  }
  const auto rank = [&](const Choice& choice) {
    const auto& entry = switches[choice.logicalSwitch];
    const bool isOther = segments_[choice.logicalSwitch].vni != choice.vni;
    return std::tuple<std::uint32_t, bool, std::string_view, Uuid>(choice.vni, isOther,
                                                                   entry.row.name, entry.uuid);
  };
  std::ranges::sort(choices, {}, rank);
  std::vector<Choice> first;
  for (const Choice& choice : choices) {
    if (first.empty() || first.back().vni != choice.vni) {
      first.push_back(choice);
      continue;
    }
    const auto& holder = switches[first.back().logicalSwitch];
    refuse(choice.logicalSwitch, "a VNI of its own: it is that of " + beginningOf(holder.row.name) +
                                     ", " + holder.uuid.stringValue());
  }
  return first;
}

std::uint16_t Mapping::ownTag(const Segment& segment) const {
  for (const std::uint16_t tag : segment.tags)
    if (tag != 0 && tagUsers_[tag] == 1) return tag;
  return 0;
}

std::vector<Mapping::Choice> Mapping::withVlans(const std::vector<Choice>& choices) {
  std::vector<bool> isTaken(lastVlan + 1);
  for (std::size_t tag = 0; tag < isTaken.size(); ++tag) isTaken[tag] = tagUsers_[tag] != 0;
  for (const Slot slot : bound_) {
    Segment& segment = segments_[slot];
    if (segment.assigned == 0) continue;
    if (isTaken[segment.assigned] || ownTag(segment) != 0)
      segment.assigned = 0;
    else
      isTaken[segment.assigned] = true;
  }
  std::vector<Choice> mapped;
  std::uint16_t next = lastVlan;
  for (Choice choice : choices) {
    Segment& segment = segments_[choice.logicalSwitch];
    choice.vlan = ownTag(segment);
    if (choice.vlan == 0 && segment.assigned == 0) {
      while (next > 0 && isTaken[next]) --next;
      segment.assigned = next;
      isTaken[next] = true;
    }
    if (choice.vlan == 0) choice.vlan = segment.assigned;
    if (choice.vlan == 0) {
      refuse(choice.logicalSwitch, "a VLAN that is free for it: all of them are in use");
      continue;
    }
    accept(choice.logicalSwitch);
    mapped.push_back(choice);
  }
  return mapped;
}

void Mapping::refuse(Slot logicalSwitch, const std::string& why) {
  segments_[logicalSwitch].isRefused = true;
  const auto& entry = rows_.logicalSwitches[logicalSwitch];
  problems_.raise("Logical_Switch " + entry.uuid.stringValue() + ": VNI",
                  std::to_string(entry.row.vni), why);
}

void Mapping::accept(Slot logicalSwitch) {
  if (!std::exchange(segments_[logicalSwitch].isRefused, false)) return;
  const auto& entry = rows_.logicalSwitches[logicalSwitch];
  problems_.cure("Logical_Switch " + entry.uuid.stringValue() + ": VNI");
}

void Mapping::turnTo(const std::vector<Choice>& choices) {
  for (const Slot slot : wasBound_) segments_[slot].chosen = 0;
  for (const Slot slot : bound_) segments_[slot].chosen = 0;
  for (const Choice& choice : choices) {
    segments_[choice.logicalSwitch].chosen = choice.vni;
    std::uint16_t& vlan = saidVnis_[choice.vni];
    if (vlan == choice.vlan) continue;
    vlan = choice.vlan;
    announcements_.vniIs(Vxlan::VniExt(choice.vni), Bridging::VlanId(choice.vlan));
  }
  for (const Slot slot : wasBound_) turn(slot);
  for (const Slot slot : bound_) turn(slot);
  for (const Choice& choice : choices) lostVnis_.erase(choice.vni);
}

// Ports stay attached while the VNI of their switch is gone for a moment, unless it is another's
// now.
void Mapping::chooseAttachments() {
  const auto isTaken = [this](std::uint32_t vni) {
    return saidVnis_.contains(vni) && !lostVnis_.contains(vni);
  };
  for (const Slot slot : bound_) {
    Segment& segment = segments_[slot];
    const bool isGone = rows_.logicalSwitches[slot].row.vni == 0;
    if (!isGone || isTaken(segment.attached)) segment.attached = segment.chosen;
  }
  const auto ports = ownPorts();
  attachments_.begin({ports.begin(), ports.end()}, ownAddresses_);
}

// Once a switch: a second time there is nothing to do.
void Mapping::turn(Slot logicalSwitch) {
  Segment& segment = segments_[logicalSwitch];
  if (segment.vni == segment.chosen) return;
  if (segment.vni != 0) lostVnis_.emplace(segment.vni, causeOf(logicalSwitch, true));
  turns_.push_back({std::exchange(segment.vni, segment.chosen), logicalSwitch});
}

// A binding is the operator's, and a controller that sees one go takes back what it was for: where
// both come in one message, that is meant. What a whole state lacks may also have been lost,
// though, binding and all: there, what it was for must still be wanted.
Cause Mapping::causeOf(Slot logicalSwitch, bool isWanted) {
  if (!segments_[logicalSwitch].tags.empty()) return Cause::controller;
  const bool isThere = isWanted && rows_.logicalSwitches[logicalSwitch].row.vni != 0;
  return isThere || !isWhole_ ? Cause::meant : Cause::controller;
}

// What a switch that has another VNI holds is withdrawn under the old one, and evaluated anew.
bool Mapping::turnContents() {
  if (position_ == turns_.size()) {
    turns_.clear();
    position_ = 0;
    return false;
  }
  const auto [from, logicalSwitch] = turns_[position_];
  Segment& segment = segments_[logicalSwitch];
  if (cursor_ == noSlot) {
    for (auto& [mac, list] : segment.lists)
      if (!list.said.vteps.empty()) lostLists_.add({from, logicalSwitch, mac.value()});
    markLists(logicalSwitch);
    cursor_ = segment.firstHost;
  } else {
    const Host& host = hosts_[cursor_];
    if (host.said != Vorn::IpAddr()) lostHosts_.add({from, cursor_, host.mac.value()});
    markHost(cursor_);
    cursor_ = host.next;
  }
  if (cursor_ == noSlot) ++position_;
  return true;
}

// Saying it.

bool Mapping::orderLists() {
  if (markedLists_.empty()) return false;
  const auto& [logicalSwitch, mac] = markedLists_.back();
  lists_.add({segments_[logicalSwitch].vni, logicalSwitch, mac.value()});
  markedLists_.pop_back();
  return true;
}

bool Mapping::orderHosts() {
  if (markedHosts_.empty()) return false;
  const Slot slot = markedHosts_.back();
  const Host& host = hosts_[slot];
  listedHosts_.add({segments_[host.logicalSwitch].vni, slot, host.mac.value()});
  markedHosts_.pop_back();
  return true;
}

bool Mapping::withdrawLists() {
  if (lostLists_.isEmpty()) return false;
  const auto [vni, slot, macValue] = lostLists_.take();
  const auto mac = Vorn::EthAddr::fromValue(macValue);
  List& list = segments_[slot].lists.at(mac);
  const bool isWanted = !wantedList(slot, list).vteps.empty();
  announcements_.listDel(Vxlan::VniExt(vni), mac, causeOf(slot, isWanted));
  list.said = {};
  return true;
}

bool Mapping::sayLists() {
  if (lists_.isEmpty()) return false;
  const auto [vni, slot, macValue] = lists_.take();
  const auto mac = Vorn::EthAddr::fromValue(macValue);
  auto& lists = segments_[slot].lists;
  const auto at = lists.find(mac);
  List& list = at->second;
  list.isMarked = false;
  if (vni != 0) {
    FloodList wanted = wantedList(slot, list);
    if (wanted.vteps.empty() && !list.said.vteps.empty())
      announcements_.listDel(Vxlan::VniExt(vni), mac, Cause::controller);
    else if (!wanted.vteps.empty() && wanted != list.said)
      announcements_.listIs(Vxlan::VniExt(vni), mac, wanted);
    list.said = std::move(wanted);
    list.saidVni = vni;
  }
  if (!list.rows.empty()) return true;
  lists.erase(at);
  rows_.logicalSwitches.unrefer(slot);
  return true;
}

FloodList Mapping::wantedList(Slot logicalSwitch, const List& list) const {
  FloodList wanted;
  wanted.type = rows_.logicalSwitches[logicalSwitch].row.sendsToAll
                    ? L2Rib::FloodSetType::sendToAll
                    : L2Rib::FloodSetType::sendToAny;
  for (const Slot row : list.rows) {
    const Slot set = rows_.mcastMacs[row].row.locatorSet;
    if (set == noSlot) continue;
    const auto& members = rows_.physicalLocatorSets[set].row.locators;
    if (!members) continue;
    for (const Slot member : *members) {
      const Vorn::IpAddr vtep = rows_.physicalLocators[member].row.vtep();
      const bool isOurs = std::ranges::find(ownAddresses_, vtep) != ownAddresses_.end();
      if (vtep != Vorn::IpAddr() && !isOurs) wanted.vteps.push_back(vtep);
    }
  }
  sortOnce(wanted.vteps);
  return wanted;
}

bool Mapping::withdrawHosts() {
  if (lostHosts_.isEmpty()) return false;
  const auto [vni, slot, mac] = lostHosts_.take();
  Host& host = hosts_[slot];
  const bool isWanted = wantedVtep(host) != Vorn::IpAddr();
  announcements_.hostDel(Vxlan::VniExt(vni), host.mac, causeOf(host.logicalSwitch, isWanted));
  host.said = {};
  return true;
}

bool Mapping::sayHosts() {
  if (listedHosts_.isEmpty()) return false;
  const auto [vni, slot, mac] = listedHosts_.take();
  Host& host = hosts_[slot];
  host.isMarked = false;
  if (vni != 0) {
    const Vorn::IpAddr wanted = wantedVtep(host);
    if (wanted == Vorn::IpAddr() && host.said != wanted)
      announcements_.hostDel(Vxlan::VniExt(vni), host.mac, Cause::controller);
    else if (host.said != wanted)
      announcements_.hostIs(Vxlan::VniExt(vni), host.mac, wanted);
    host.said = wanted;
    host.saidVni = vni;
  }
  if (host.firstRow == noSlot) forgetHost(slot);
  return true;
}

// The lowest address of its rows' VTEPs.
Vorn::IpAddr Mapping::wantedVtep(const Host& host) {
  Vorn::IpAddr wanted;
  for (Slot row = host.firstRow; row != noSlot; row = ucastLinks_[row].nextOfHost) {
    const Slot locator = rows_.ucastMacs[row].row.locator;
    if (locator == noSlot) continue;
    const Vorn::IpAddr vtep = rows_.physicalLocators[locator].row.vtep();
    if (vtep != Vorn::IpAddr() && (wanted == Vorn::IpAddr() || vtep < wanted)) wanted = vtep;
  }
  return wanted;
}

bool Mapping::withdrawVnis() {
  if (lostVnis_.empty()) return false;
  const auto first = lostVnis_.begin();
  announcements_.vniDel(Vxlan::VniExt(first->first), first->second);
  saidVnis_.erase(first->first);
  lostVnis_.erase(first);
  return true;
}

bool Mapping::sayAttachments() { return attachments_.advance(); }

// What has been said.

void Mapping::eachHost(const HostVisitor& visit) const {
  for (Slot slot = 0; slot < hosts_.size(); ++slot) {
    const Host& host = hosts_[slot];
    if (host.said != Vorn::IpAddr()) visit(Vxlan::VniExt(host.saidVni), host.mac, host.said);
  }
}

void Mapping::eachList(const ListVisitor& visit) const {
  for (const Segment& segment : segments_.all())
    for (const auto& [mac, list] : segment.lists)
      if (!list.said.vteps.empty()) visit(Vxlan::VniExt(list.saidVni), mac, list.said);
}

}  // namespace Agent::Ovsdb
