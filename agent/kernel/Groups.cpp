#include "agent/kernel/Groups.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Agent::Kernel {

namespace {

std::string textOf(const Groups::Members& members) {
  std::string text;
  for (const Vorn::IpAddr& member : members) text += ' ' + member.stringValue();
  return text;
}

std::string placeOf(GroupId id) { return "kernel: nexthop group " + std::to_string(id); }

}  // namespace

Groups::Groups(Netlink::Requests& requests, Problems& problems, Events events)
    : requests_(requests), problems_(problems), events_(std::move(events)) {}

GroupId Groups::of(const Members& members) {
  if (const auto present = byMembers_.find(members); present != byMembers_.end())
    return present->second;
  const GroupId id = newId();
  groups_[id].members = members;
  byMembers_[members] = id;
  join(members);
  unheld_.insert(id);
  dirty_.insert(id);
  return id;
}

bool Groups::repoint(GroupId group, const Members& members) {
  if (byMembers_.contains(members)) return false;
  Group& target = groups_.at(group);
  byMembers_.erase(target.members);
  byMembers_[members] = group;
  join(members);
  leave(std::exchange(target.members, members));
  dirty_.insert(group);
  return true;
}

void Groups::hold(GroupId group) {
  if (groups_.at(group).holds++ == 0) unheld_.erase(group);
}

void Groups::drop(GroupId group) {
  if (--groups_.at(group).holds == 0) unheld_.insert(group);
}

Groups::Members Groups::members(GroupId group) const {
  const auto at = groups_.find(group);
  return at == groups_.end() ? Members() : at->second.members;
}

std::uint32_t Groups::newId() {
  while (kernel_.contains(nextId_)) ++nextId_;
  return nextId_++;
}

// VTEPs are given numbers as they are needed, and keep them until they are deleted.
void Groups::join(const Members& members) {
  for (const Vorn::IpAddr& member : members) {
    Vtep& vtep = vteps_[member];
    if (vtep.id == 0) vtep.id = newId();
    ++vtep.groups;
    strays_.erase(vtep.id);
  }
}

void Groups::leave(const Members& members) {
  for (const Vorn::IpAddr& member : members) {
    Vtep& vtep = vteps_.at(member);
    if (--vtep.groups == 0) strays_.insert(vtep.id);
  }
}

std::vector<std::uint32_t> Groups::idsOf(const Members& members) const {
  std::vector<std::uint32_t> ids;
  for (const Vorn::IpAddr& member : members) ids.push_back(vteps_.at(member).id);
  return ids;
}

bool Groups::isThere(const Vorn::IpAddr& vtep) const {
  const auto there = kernel_.find(vteps_.at(vtep).id);
  return there != kernel_.end() && there->second.via == vtep;
}

// The kernel may have the members in another order.
bool Groups::isRight(GroupId id, const Group& group) const {
  const auto there = kernel_.find(id);
  if (there == kernel_.end()) return false;
  for (const Vorn::IpAddr& member : group.members)
    if (!isThere(member)) return false;
  auto wanted = idsOf(group.members);
  auto present = there->second.members;
  std::ranges::sort(wanted);
  std::ranges::sort(present);
  return wanted == present;
}

// --- What there is ---

void Groups::nexthopIs(const Netlink::Nexthop& nexthop) {
  kernel_[nexthop.id] = nexthop;
  check(nexthop.id);
  if (!nexthop.members.empty()) return;
  for (const auto& [vtep, entry] : vteps_)
    if (entry.id == nexthop.id && vtep != nexthop.via) checkThoseWith(vtep);
}

void Groups::checkThoseWith(const Vorn::IpAddr& vtep) {
  for (const auto& [id, group] : groups_)
    if (std::ranges::binary_search(group.members, vtep)) check(id);
}

void Groups::nexthopDel(const Netlink::Nexthop& nexthop) {
  kernel_.erase(nexthop.id);
  strays_.erase(nexthop.id);
  if (!groups_.contains(nexthop.id)) return;
  check(nexthop.id);
  events_.lost(nexthop.id);
}

// What we ask for ourselves is right when it is told: what is not has been changed by others.
void Groups::check(GroupId id) {
  const auto at = groups_.find(id);
  if (at == groups_.end() || isRight(id, at->second)) return;
  if (dirty_.insert(id).second && !refused_.why(id)) events_.putBack(placeOf(id));
}

void Groups::beginAll() { former_ = std::exchange(kernel_, {}); }

void Groups::endAll() {
  const auto former = std::exchange(former_, {});
  if (!std::exchange(isTakenOver_, true)) takeOver();
  for (const auto& [id, nexthop] : former)
    if (!kernel_.contains(id)) nexthopDel(nexthop);
}

// Groups of ours from before are taken over with their VTEPs, as far as these are ours.
void Groups::takeOver() {
  std::map<std::uint32_t, Vorn::IpAddr> addresses;
  for (const auto& [id, nexthop] : kernel_) {
    if (!nexthop.isOurs || nexthop.via == Vorn::IpAddr()) continue;
    addresses[id] = nexthop.via;
    vteps_.try_emplace(nexthop.via, Vtep{id, 0});
    strays_.insert(id);
  }
  for (const auto& [id, nexthop] : kernel_) {
    if (!nexthop.isOurs || nexthop.members.empty()) continue;
    Members members;
    for (const std::uint32_t member : nexthop.members)
      if (const auto at = addresses.find(member); at != addresses.end())
        members.push_back(at->second);
    std::ranges::sort(members);
    if (members.empty()) {
      strays_.insert(id);
      continue;
    }
    groups_[id] = {members, 0, true};
    byMembers_.try_emplace(members, id);
    join(members);
    unheld_.insert(id);
  }
}

// --- What is to be ---

bool Groups::work(double now) {
  for (const GroupId id : refused_.takeDue(now)) dirty_.insert(id);
  while (!dirty_.empty() && !batch_.isFull()) {
    const GroupId id = *dirty_.begin();
    dirty_.erase(dirty_.begin());
    const auto at = groups_.find(id);
    if (at != groups_.end() && !isRight(id, at->second)) add(id, at->second);
  }
  send(now);
  return !dirty_.empty();
}

// A group whose VTEPs do not fit into the rest of the batch comes again.
void Groups::add(GroupId id, const Group& group) {
  for (const Vorn::IpAddr& member : group.members) {
    const std::uint32_t nexthop = vteps_.at(member).id;
    if (isThere(member)) continue;
    if (batch_.isFull()) {
      dirty_.insert(id);
      return;
    }
    Netlink::putNexthop(batch_, NLM_F_REPLACE, {nexthop, true, member, {}});
    kernel_[nexthop] = {nexthop, true, member, {}};
    sent_.push_back(id);
  }
  if (batch_.isFull()) {
    dirty_.insert(id);
    return;
  }
  Netlink::putNexthop(batch_, NLM_F_REPLACE, {id, true, {}, idsOf(group.members)});
  sent_.push_back(id);
}

void Groups::send(double now) {
  const auto all = std::exchange(sent_, {});
  std::set<GroupId> done(all.begin(), all.end());
  requests_.send(batch_, [&](std::size_t place, const Netlink::Refusal& refusal) {
    const GroupId id = all[place];
    if (!done.erase(id)) return;
    refused_.refuse(id, refusal.text, now);
    const Members members = this->members(id);
    problems_.raise(placeOf(id), textOf(members), refusal.text);
    for (const Vorn::IpAddr& member : members) kernel_.erase(vteps_.at(member).id);
  });
  for (const GroupId id : done)
    if (refused_.forget(id)) problems_.cure(placeOf(id));
}

bool Groups::clean(bool isCalm) {
  if (!dirty_.empty()) return false;  // a VTEP may still be in use
  for (auto next = unheld_.begin(); next != unheld_.end() && !batch_.isFull();) {
    const GroupId id = *next;
    const auto at = groups_.find(id);
    if (at->second.isFromBefore && !isCalm) {
      ++next;
      continue;
    }
    next = unheld_.erase(next);
    remove(at);
    Netlink::deleteNexthop(batch_, id);
  }
  for (auto next = strays_.begin(); isCalm && next != strays_.end() && !batch_.isFull();) {
    const std::uint32_t id = *next;
    next = strays_.erase(next);
    std::erase_if(vteps_, [id](const auto& vtep) { return vtep.second.id == id; });
    Netlink::deleteNexthop(batch_, id);
  }
  const bool isMore = batch_.isFull();
  requests_.send(batch_, [](std::size_t, const Netlink::Refusal&) {});  // it is gone already
  return isMore;
}

void Groups::remove(std::map<GroupId, Group>::iterator at) {
  const auto [id, group] = *at;
  groups_.erase(at);
  if (const auto named = byMembers_.find(group.members);
      named != byMembers_.end() && named->second == id)
    byMembers_.erase(named);
  leave(group.members);
  if (refused_.forget(id)) problems_.cure(placeOf(id));
}

}  // namespace Agent::Kernel
