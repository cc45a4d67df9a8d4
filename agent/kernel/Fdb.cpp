#include "agent/kernel/Fdb.h"

#include <algorithm>
#include <cerrno>
#include <linux/rtnetlink.h>

namespace Agent::Kernel {

namespace {

using Netlink::FdbEntry;
using Netlink::Refusal;

Route routeOf(const FdbEntry& entry) { return {entry.dst, entry.nexthop}; }

void insert(std::vector<Vorn::IpAddr>& vteps, const Vorn::IpAddr& vtep) {
  const auto at = std::ranges::lower_bound(vteps, vtep);
  if (at == vteps.end() || *at != vtep) vteps.insert(at, vtep);
}

// Told of what is there, or no longer there.
void follow(FloodRoute& route, const Route& told, bool isThere) {
  if (told.group != 0)
    route.group = isThere ? told.group : 0;
  else if (isThere)
    insert(route.vteps, told.vtep);
  else
    std::erase(route.vteps, told.vtep);
}

// An entry is put back so often within so many seconds, and then waits.
constexpr int mostPutBacks = 5;
constexpr double putBackWindow = 10;

std::string placeOf(const Vxlan::VniExt& vni) {
  return "kernel: VNI " + std::to_string(vni.value()) + ": FDB";
}

}  // namespace

Fdb::Fdb(Netlink::Requests& requests, Groups& groups, Problems& problems, Events events)
    : requests_(requests), groups_(groups), problems_(problems), events_(std::move(events)) {}

// --- Counting and holding ---

void Fdb::count(const Unicast& entry, int by) {
  if (entry.wanted.isNone()) return;
  const auto add = [by](std::size_t& number) { number += static_cast<std::size_t>(by); };
  add(counts_.wanted);
  if (entry.isRefused)
    add(counts_.refused);
  else if (entry.programmed == entry.wanted)
    add(counts_.programmed);
}

template <class Change>
void Fdb::change(Unicast& entry, Change change) {
  const GroupId before = entry.programmed.group;
  count(entry, -1);
  change(entry);
  count(entry, 1);
  hold(before, entry.programmed.group);
}

// New before old: it may be the same.
void Fdb::hold(GroupId from, GroupId to) {
  if (to != 0) groups_.hold(to);
  if (from != 0) groups_.drop(from);
}

void Fdb::wantGroup(GroupId from, GroupId to) {
  hold(from, to);
  if (to != 0) ++wanters_[to];
  if (from != 0 && --wanters_[from] == 0) wanters_.erase(from);
}

std::size_t Fdb::wanters(GroupId group) const {
  const auto at = wanters_.find(group);
  return at == wanters_.end() ? 0 : at->second;
}

Fdb::Unicast& Fdb::unicastOf(Vni& vni, const Vorn::EthAddr& mac) {
  if (Unicast* const entry = vni.unicasts.find(mac)) return *entry;
  vni.unicasts.is(mac, {});
  return *vni.unicasts.find(mac);
}

// The entry of either kind, if there is one.
template <class Vnis, class Visit>
void Fdb::visit(Vnis& vnis, const Key& key, Visit visit) {
  const auto at = vnis.find(key.first);
  if (at == vnis.end()) return;
  if (!isFlood(key.second)) {
    if (auto* const entry = at->second.unicasts.find(key.second)) visit(*entry);
    return;
  }
  const auto flood = at->second.floods.find(key.second);
  if (flood != at->second.floods.end()) visit(flood->second);
}

// --- What is wanted ---

template <class Entry>
void Fdb::enqueue(const Key& key, Entry& entry) {
  if (std::exchange(entry.isQueued, true)) return;
  (entry.wanted.isNone() ? deletions_ : changes_).push_back(key);
}

void Fdb::unicastIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const Route& route) {
  Vni& all = vnis_[vni];
  if (route.isNone() && !all.unicasts.contains(mac)) return;
  Unicast& entry = unicastOf(all, mac);
  if (entry.wanted == route) return;
  wantGroup(entry.wanted.group, route.group);
  change(entry, [&route](Unicast& each) { each.wanted = route; });
  enqueue({vni, mac}, entry);
}

void Fdb::floodIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const FloodRoute& route) {
  Flood& entry = vnis_[vni].floods[mac];
  if (entry.wanted == route) return;
  wantGroup(entry.wanted.group, route.group);
  entry.wanted = route;
  enqueue({vni, mac}, entry);
}

std::vector<Vorn::EthAddr> Fdb::wanted(const Vxlan::VniExt& vni) const {
  std::vector<Vorn::EthAddr> macs;
  const auto at = vnis_.find(vni);
  if (at == vnis_.end()) return macs;
  for (const auto& [mac, entry] : at->second.unicasts)
    if (!entry.wanted.isNone()) macs.push_back(mac);
  for (const auto& [mac, entry] : at->second.floods)
    if (!entry.wanted.isNone()) macs.push_back(mac);
  return macs;
}

GroupId Fdb::wantedGroup(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) const {
  GroupId group = 0;
  visit(vnis_, {vni, mac}, [&group](const auto& entry) { group = entry.wanted.group; });
  return group;
}

bool Fdb::isForeign(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const Route& route) const {
  const auto at = vnis_.find(vni);
  return at != vnis_.end() && at->second.foreign.contains({mac, route});
}

Fdb::State Fdb::state(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) const {
  const auto at = vnis_.find(vni);
  if (at == vnis_.end() || !at->second.device) return State::noDevice;
  State state = State::unknown;
  visit(vnis_, {vni, mac}, [&state](const auto& entry) {
    if (entry.wanted.isNone())
      state = State::left;
    else if (entry.isQueued || entry.programmed != entry.wanted)
      state = State::waiting;
    else
      state = State::programmed;
  });
  return state;
}

void Fdb::calmIs(bool isCalm) {
  if (!isCalm) return;
  for (const Key& key : std::exchange(leftovers_, {}))
    visit(vnis_, key, [&](auto& entry) {
      if (entry.wanted.isNone()) enqueue(key, entry);
    });
}

// --- Where it is ---

void Fdb::deviceIs(const Vxlan::VniExt& vni, const std::optional<Device>& device) {
  Vni& entry = vnis_[vni];
  if (entry.device == device) return;
  const auto former = std::exchange(entry.device, device);
  std::erase_if(news_, [&vni](const auto& news) { return news.first.first == vni; });
  if (former) {
    devices_.erase(former->index);
    std::erase_if(bridges_, [&vni](const auto& bridge) { return bridge.second == vni; });
  }
  if (!device || (former && former->index != device->index))
    loseAll(vni, entry);
  else if (former)
    for (const auto& [mac, unicast] : entry.unicasts) entry.unicasts.find(mac)->isInBridge = false;
  if (!device) return;
  devices_.insert_or_assign(device->index, vni);
  if (device->bridge != 0) bridges_.emplace(device->bridge, vni);
  enqueueAll(vni, entry);
}

void Fdb::loseAll(const Vxlan::VniExt& name, Vni& vni) {
  for (const auto& [mac, unicast] : vni.unicasts) {
    Unicast& entry = *vni.unicasts.find(mac);
    accept({name, mac});
    change(entry, [](Unicast& each) { each.programmed = {}; });
    entry.isInBridge = false;
    if (entry.wanted.isNone() && !entry.isQueued) vni.unicasts.del(Vorn::EthAddr(mac));
  }
  for (auto& [mac, flood] : vni.floods) {
    accept({name, mac});
    hold(flood.programmed.group, 0);
    flood.programmed = {};
  }
  counts_.foreign -= vni.foreign.size();
  vni.foreign.clear();
}

void Fdb::enqueueAll(const Vxlan::VniExt& vni, Vni& entry) {
  for (const auto& [mac, unicast] : entry.unicasts)
    if (!unicast.wanted.isNone()) enqueue({vni, mac}, *entry.unicasts.find(mac));
  for (auto& [mac, flood] : entry.floods)
    if (!flood.wanted.isNone()) enqueue({vni, mac}, flood);
}

void Fdb::groupLost(GroupId group) {
  for (auto& [vni, entry] : vnis_) {
    for (const auto& [mac, unicast] : entry.unicasts)
      if (unicast.programmed.group == group) news_[{vni, mac}].route = Route();
    for (auto& [mac, flood] : entry.floods)
      if (flood.programmed.group == group) floodNews_[{vni, mac}] = {};
  }
}

// --- What there is ---

Fdb::Vni* Fdb::vniAt(int device) {
  const auto at = devices_.find(device);
  return at == devices_.end() ? nullptr : &vnis_.at(at->second);
}

void Fdb::entryIs(const FdbEntry& told) {
  if (told.of == FdbEntry::Of::bridge) return inBridgeIs(told, true);
  Vni* const entry = vniAt(told.index);
  if (!entry) return;
  const Vxlan::VniExt vni = devices_.at(told.index);
  const Vorn::EthAddr mac = Netlink::floodMac(told.mac);
  if (isFlood(mac))
    floodIsThere(vni, *entry, told);
  else
    unicastIsThere(vni, *entry, told);
}

// One that sends to a group of ours is ours, too: who adds to a flood set takes the mark from all
// of it.
bool Fdb::isLeftByUs(const FdbEntry& told) const {
  return !isTakenOver_ && (told.isOurs || !groups_.members(told.nexthop).empty());
}

void Fdb::unicastIsThere(const Vxlan::VniExt& vni, Vni& entry, const FdbEntry& told) {
  const Key key{vni, told.mac};
  const Route route = routeOf(told);
  Unicast* unicast = entry.unicasts.find(told.mac);
  if (isLeftByUs(told) && (!unicast || unicast->programmed.isNone())) {
    if (!unicast) leftovers_.push_back(key);
    unicast = &unicastOf(entry, told.mac);
    change(*unicast, [&](Unicast& each) {
      each.programmed = route;
      each.isMarked = told.isOurs;
    });
    if (route.group == 0) events_.known(vni, told.mac, route.vtep);
  }
  if (unicast && unicast->programmed.isNone() && told.isOurs && unicast->wanted == route)
    change(*unicast, [&route](Unicast& each) { each.programmed = route; });
  if (!unicast || unicast->programmed.isNone()) return foreignIs(entry, told.mac, route, true);
  unicast->seen = telling_;
  const auto news = news_.find(key);
  if (news == news_.end() && route == unicast->programmed && told.isOurs == unicast->isMarked)
    return;
  News& latest = news == news_.end() ? news_[key] : news->second;
  latest.route = route;
  latest.isMarked = told.isOurs;
}

void Fdb::floodIsThere(const Vxlan::VniExt& vni, Vni& entry, const FdbEntry& told) {
  const Vorn::EthAddr mac = Netlink::floodMac(told.mac);
  const Key key{vni, mac};
  const Route route = routeOf(told);
  auto flood = entry.floods.find(mac);
  if (isLeftByUs(told)) {
    if (flood == entry.floods.end()) {
      flood = entry.floods.try_emplace(mac).first;
      leftovers_.push_back(key);
    }
    FloodRoute& programmed = flood->second.programmed;
    hold(programmed.group, route.group);
    follow(programmed, route, true);
  }
  if (flood == entry.floods.end() ||
      !(flood->second.wanted.has(route) || flood->second.programmed.has(route)))
    return foreignIs(entry, mac, route, true);
  if (!floodNews_.contains(key) && flood->second.programmed.has(route)) return;
  const auto news = floodNews_.try_emplace(key, flood->second.programmed).first;
  follow(news->second, route, true);
}

void Fdb::entryDel(const FdbEntry& told) {
  if (told.of == FdbEntry::Of::bridge) return inBridgeIs(told, false);
  Vni* const entry = vniAt(told.index);
  if (!entry) return;
  const Vorn::EthAddr mac = Netlink::floodMac(told.mac);
  const Key key{devices_.at(told.index), mac};
  foreignIs(*entry, mac, routeOf(told), false);
  if (isFlood(mac)) {
    const auto flood = entry->floods.find(mac);
    if (flood == entry->floods.end()) return;
    const auto news = floodNews_.try_emplace(key, flood->second.programmed).first;
    follow(news->second, routeOf(told), false);
  } else if (entry->unicasts.find(mac)) {
    news_[key].route = Route();
  }
}

// An entry of a bridge is at one of its ports. One of ours is no longer at ours when it is at
// another, which the bridge has heard it at.
void Fdb::inBridgeIs(const FdbEntry& told, bool isThere) {
  if (isFlood(told.mac)) return;
  const auto tell = [&](const Vxlan::VniExt& vni, bool isAtOurs) {
    Vni& entry = vnis_.at(vni);
    Unicast* unicast = entry.unicasts.find(told.mac);
    if (!unicast && !isTakenOver_ && isAtOurs) {
      unicast = &unicastOf(entry, told.mac);
      leftovers_.emplace_back(vni, told.mac);
    }
    if (!unicast) return;
    if (!isTakenOver_ && isAtOurs) unicast->isInBridge = true;
    if (isAtOurs) unicast->seenInBridge = telling_;
    const Key key{vni, told.mac};
    if (unicast->isInBridge != isAtOurs || news_.contains(key)) news_[key].isInBridge = isAtOurs;
  };
  if (const auto at = devices_.find(told.index); at != devices_.end())
    return tell(at->second, isThere && told.isOurs);
  if (!isThere) return;
  const auto [first, last] = bridges_.equal_range(told.bridge);
  for (auto each = first; each != last; ++each) tell(each->second, false);
}

void Fdb::foreignIs(Vni& vni, const Vorn::EthAddr& mac, const Route& route, bool isThere) {
  const bool isChanged =
      isThere ? vni.foreign.emplace(mac, route).second : vni.foreign.erase({mac, route}) > 0;
  if (isChanged) counts_.foreign += isThere ? 1 : static_cast<std::size_t>(-1);
}

void Fdb::beginAll() {
  ++telling_;
  isTellingAll_ = true;
  for (auto& [vni, entry] : vnis_)
    for (auto& [mac, flood] : entry.floods)
      if (!flood.programmed.isNone()) floodNews_[{vni, mac}] = {};
}

void Fdb::endAll() {
  isTellingAll_ = false;
  isTakenOver_ = true;
  for (auto& [vni, entry] : vnis_)
    for (const auto& [mac, unicast] : entry.unicasts) {
      if (!unicast.programmed.isNone() && unicast.seen != telling_)
        news_[{vni, mac}].route = Route();
      if (unicast.isInBridge && unicast.seenInBridge != telling_)
        news_[{vni, mac}].isInBridge = false;
    }
}

void Fdb::judge(double now) {
  if (isTellingAll_) return;
  const auto news = std::exchange(news_, {});
  const auto floodNews = std::exchange(floodNews_, {});
  std::map<Vxlan::VniExt, bool> isThere;
  const auto isToBeJudged = [&](const Vxlan::VniExt& vni) {
    const auto [at, isNew] = isThere.try_emplace(vni, false);
    if (isNew) at->second = isDeviceThere(vni);
    return at->second;
  };
  for (const auto& [key, told] : news)
    if (isToBeJudged(key.first)) judgeUnicast(key, told, now);
  for (const auto& [key, told] : floodNews)
    if (isToBeJudged(key.first)) judgeFlood(key, told, now);
}

// The entries of a device that is being deleted go first, and that it has gone itself is told last.
// The kernel answers when it is done with that.
bool Fdb::isDeviceThere(const Vxlan::VniExt& vni) {
  const auto& device = vnis_.at(vni).device;
  if (!device) return false;
  ifinfomsg header{};
  header.ifi_index = device->index;
  Netlink::Batch question;
  question.add(RTM_GETLINK, 0, header);
  return !requests_.send(question);
}

// Whoever changes an entry all the time, a bridge that hears its MAC say, is not to keep us busy.
template <class Entry>
void Fdb::putBack(const Key& key, Entry& entry, double now) {
  std::erase_if(putBacks_,
                [now](const auto& each) { return each.second.since + putBackWindow < now; });
  ++putBack_;
  lastPutBack_ = key;
  tell(Happening::putBack, key);
  PutBack& before = putBacks_.try_emplace(key, PutBack{now, 0}).first->second;
  if (++before.times <= mostPutBacks)
    enqueue(key, entry);
  else
    refuse(key, "others change it again and again", now);
}

void Fdb::judgeUnicast(const Key& key, const News& news, double now) {
  Vni& vni = vnis_.at(key.first);
  Unicast* const entry = vni.unicasts.find(key.second);
  if (!entry) return;
  bool isChanged = false;
  if (news.isInBridge && *news.isInBridge != entry->isInBridge) {
    entry->isInBridge = *news.isInBridge;
    isChanged = true;
  }
  if (news.route && (*news.route != entry->programmed || news.isMarked != entry->isMarked)) {
    isChanged = isChanged || !entry->programmed.isNone();
    change(*entry, [&news](Unicast& each) {
      each.programmed = *news.route;
      each.isMarked = news.isMarked;
    });
  }
  if (!isChanged || entry->isQueued || entry->isRefused) return;
  if (entry->wanted.isNone()) {
    if (entry->programmed.isNone() && !entry->isInBridge) vni.unicasts.del(key.second);
    return;
  }
  putBack(key, *entry, now);
}

void Fdb::judgeFlood(const Key& key, const FloodRoute& told, double now) {
  auto& floods = vnis_.at(key.first).floods;
  const auto at = floods.find(key.second);
  if (at == floods.end()) return;
  Flood& entry = at->second;
  if (entry.programmed == told) return;
  hold(entry.programmed.group, told.group);
  entry.programmed = told;
  if (entry.isQueued || entry.isRefused || entry.wanted == told || entry.wanted.isNone()) return;
  putBack(key, entry, now);
}

// --- Requests ---

void Fdb::work(double now) {
  for (const Key& key : refused_.takeDue(now))
    visit(vnis_, key, [&](auto& entry) { enqueue(key, entry); });
  while (!changes_.empty() && !batch_.isFull()) next(changes_, false);
  if (batch_.isEmpty())
    while (!deletions_.empty() && !batch_.isFull()) next(deletions_, true);
  send(now);
}

void Fdb::next(std::deque<Key>& queue, bool isDeletion) {
  const Key key = queue.front();
  queue.pop_front();
  Vni& vni = vnis_.at(key.first);
  if (isFlood(key.second)) {
    Flood& flood = vni.floods[key.second];
    flood.isQueued = false;
    if (vni.device && !program(key, vni, flood, isDeletion)) {
      flood.isQueued = true;
      queue.push_front(key);
    } else if (flood.wanted.isNone() && flood.programmed.isNone()) {
      accept(key);
      vni.floods.erase(key.second);
    }
    return;
  }
  Unicast* const entry = vni.unicasts.find(key.second);
  if (!entry) return;
  entry->isQueued = false;
  if (entry->wanted.isNone() && !isDeletion) return enqueue(key, *entry);
  if (vni.device) program(key, vni, *entry);
  if (entry->wanted.isNone()) {
    accept(key);
    vni.unicasts.del(key.second);
  }
}

// Where a VTEP takes the place of a group, or the other way round, the entry goes and comes; so
// does one that others have made theirs, for the kernel does not let it become ours again.
void Fdb::program(const Key& key, Vni& vni, Unicast& entry) {
  const Route wanted = entry.wanted;
  const Route before = entry.programmed;
  if (wanted.isNone()) {
    const Netlink::Sides sides{!before.isNone(), entry.isInBridge};
    if (sides.device || sides.bridge) add({key, &vni, true, sides, before, {}}, 0);
    change(entry, [](Unicast& each) { each.programmed = {}; });
    return;
  }
  const bool isNew = before.isNone() || before.isOtherKind(wanted) || !entry.isMarked;
  const bool isRight = before == wanted && entry.isMarked;
  const Netlink::Sides sides{!isRight, vni.device->bridge != 0 && !entry.isInBridge};
  if (!sides.device && !sides.bridge) return accept(key);
  if (!before.isNone() && isNew) add({key, &vni, true, {true, false}, before, {}}, 0);
  add({key, &vni, false, sides, isNew ? Route() : before, wanted},
      isNew ? NLM_F_CREATE | NLM_F_EXCL : NLM_F_CREATE | NLM_F_REPLACE);
  change(entry, [&wanted](Unicast& each) {
    each.programmed = wanted;
    each.isMarked = true;
  });
  if (sides.bridge) entry.isInBridge = true;
}

// Members are added before others are removed, which comes with the deletions. False: the batch is
// full before all has been asked for.
bool Fdb::program(const Key& key, Vni& vni, Flood& entry, bool isDeletion) {
  const FloodRoute& wanted = entry.wanted;
  FloodRoute& programmed = entry.programmed;
  const std::size_t first = batch_.size();
  const auto ask = [&](const Route& route, bool isThere, int flags) {
    if (batch_.isFull()) return false;
    add({key, &vni, !isThere, {true, false}, {}, route}, static_cast<std::uint16_t>(flags));
    hold(isThere ? 0 : route.group, isThere ? route.group : 0);
    follow(programmed, route, isThere);
    if (isThere) foreignIs(vni, key.second, route, false);  // it may have been: now it is ours, too
    return true;
  };
  const bool isOtherKind = (wanted.group != programmed.group) && !wanted.isNone();
  if (programmed.group != 0 && programmed.group != wanted.group && (isOtherKind || isDeletion) &&
      !ask({{}, programmed.group}, false, 0))
    return false;
  if (isOtherKind || isDeletion)
    for (const Vorn::IpAddr& vtep : std::vector(programmed.vteps))
      if (!wanted.has(vtep) && !ask({vtep, 0}, false, 0)) return false;
  if (wanted.group != programmed.group && wanted.group != 0 &&
      !ask({{}, wanted.group}, true, NLM_F_CREATE | NLM_F_EXCL))
    return false;
  for (const Vorn::IpAddr& vtep : wanted.vteps)
    if (!programmed.has(vtep) && !ask({vtep, 0}, true, NLM_F_CREATE | NLM_F_APPEND)) return false;
  if (programmed != wanted) {
    entry.isQueued = true;
    deletions_.push_back(key);
  } else if (batch_.size() == first) {
    accept(key);
  }
  return true;
}

void Fdb::add(Sent sent, std::uint16_t flags) {
  FdbEntry entry;
  entry.index = sent.vni->device->index;
  entry.mac = Netlink::kernelMac(sent.key.second);
  entry.dst = sent.route.vtep;
  entry.nexthop = sent.route.group;
  if (sent.isDeletion) entry.nexthop = 0;  // by its MAC
  Netlink::putFdb(batch_, sent.isDeletion ? RTM_DELNEIGH : RTM_NEWNEIGH, flags, entry, sent.sides);
  sent_.push_back(std::move(sent));
}

void Fdb::send(double now) {
  if (batch_.isEmpty()) return;
  const auto all = std::exchange(sent_, {});
  std::vector<std::pair<std::size_t, Refusal>> refusals;
  requests_.send(batch_, [&refusals](std::size_t place, const Refusal& refusal) {
    refusals.emplace_back(place, refusal);
  });
  std::set<Key> wrong;
  for (const auto& [place, refusal] : refusals) wrong.insert(all[place].key);
  for (const Sent& sent : all) {
    if (!wrong.empty() && wrong.contains(sent.key)) continue;
    if (!refused_.isEmpty()) accept(sent.key);
    if (sent.isDeletion)
      tell(Happening::removed, sent.key,
           isFlood(sent.key.second) ? sent.route.vtep : sent.before.vtep);
    else if (sent.sides.device)
      tell(Happening::programmed, sent.key, sent.route.vtep);
  }
  for (const auto& [place, refusal] : refusals) refused(all[place], refusal, now);
}

// What is to be deleted and is not there has been deleted. Where it is not in the bridge, though,
// the kernel has not looked at the device.
void Fdb::refused(const Sent& sent, const Refusal& refusal, double now) {
  const bool isGone = refusal.error == ENOENT || refusal.error == ENODEV;
  const bool isHalf = sent.sides.device && sent.sides.bridge;
  if (sent.isDeletion && isGone && !isHalf) return;
  const auto& [vni, mac] = sent.key;
  if (isFlood(mac)) {
    FloodRoute& programmed = sent.vni->floods[mac].programmed;
    hold(sent.isDeletion ? 0 : sent.route.group, sent.isDeletion ? sent.route.group : 0);
    follow(programmed, sent.route, sent.isDeletion);
    return refuse(sent.key, refusal.text, now);
  }
  Unicast& entry = unicastOf(*sent.vni, mac);
  change(entry, [&sent](Unicast& each) { each.programmed = sent.before; });
  if (sent.sides.bridge) entry.isInBridge = sent.isDeletion && !isGone;
  if (sent.isDeletion && isGone) return enqueue(sent.key, entry);
  refuse(sent.key, refusal.text, now);
}

void Fdb::refusedIs(Unicast& entry, bool isRefused) {
  change(entry, [isRefused](Unicast& each) { each.isRefused = isRefused; });
}

void Fdb::refuse(const Key& key, const std::string& why, double now) {
  Vni& vni = vnis_.at(key.first);
  if (refused_.refuse(key, why, now)) {
    ++vni.refused;
    tell(Happening::refused, key);
    visit(vnis_, key, [this](auto& entry) { this->refusedIs(entry, true); });
  }
  if (vni.refused == 1) problems_.raise(placeOf(key.first), key.second.stringValue(), why);
}

void Fdb::tell(Happening what, const Key& key, const Vorn::IpAddr& vtep) const {
  if (events_.happened) events_.happened(what, key.first, key.second, vtep);
}

void Fdb::accept(const Key& key) {
  if (!refused_.forget(key)) return;
  Vni& vni = vnis_.at(key.first);
  if (--vni.refused == 0) problems_.cure(placeOf(key.first));
  visit(vnis_, key, [this](auto& entry) { this->refusedIs(entry, false); });
}

}  // namespace Agent::Kernel
