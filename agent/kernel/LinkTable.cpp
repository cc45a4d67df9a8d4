#include "agent/kernel/LinkTable.h"

namespace Agent::Kernel {

namespace {

template <class Map, class Key>
const std::set<int>& indicesOf(const Map& map, const Key& key) {
  static const std::set<int> none;
  const auto at = map.find(key);
  return at == map.end() ? none : at->second;
}

template <class Map, class Key>
void removeFrom(Map& map, const Key& key, int index) {
  const auto at = map.find(key);
  if (at == map.end()) return;
  at->second.erase(index);
  if (at->second.empty()) map.erase(at);
}

}  // namespace

std::optional<Vxlan::VniExt> vniOf(const Netlink::Link& link) {
  if (!link.vxlan || link.vxlan->isExternal) return std::nullopt;
  return Vxlan::VniExt(link.vxlan->vni);
}

bool LinkTable::linkIs(const Netlink::Link& link) {
  Entry& entry = links_[link.index];
  KnownLink& known = entry.known;
  entry.round = round_;
  const KnownLink before = known;
  if (known.link.kind != link.kind) known.isMarked = false;
  const bool isMade = made_.erase(link.name) > 0;
  if (isMade || (!link.kind.empty() && link.alias == mark_)) known.isMarked = true;
  if (known.isPutIn() && link.master != known.putInto) known.putInto = 0;
  forget(known.link);
  known.link = link;
  index(known.link);
  return known.link != before.link || known.isMarked != before.isMarked;
}

bool LinkTable::portIs(const Netlink::BridgePort& port) {
  const auto at = links_.find(port.index);
  if (at == links_.end()) return false;
  std::optional<bool>& learns = at->second.known.link.portLearns;
  if (!learns || *learns == port.learns) return false;
  learns = port.learns;
  return true;
}

void LinkTable::linkDel(int index) {
  const auto at = links_.find(index);
  if (at == links_.end()) return;
  forget(at->second.known.link);
  links_.erase(at);
}

void LinkTable::index(const Netlink::Link& link) {
  byName_[link.name] = link.index;
  if (const auto vni = vniOf(link)) byVni_[*vni].insert(link.index);
  if (link.master != 0) byMaster_[link.master].insert(link.index);
}

// The name may be another link's already.
void LinkTable::forget(const Netlink::Link& link) {
  const auto named = byName_.find(link.name);
  if (named != byName_.end() && named->second == link.index) byName_.erase(named);
  if (const auto vni = vniOf(link)) removeFrom(byVni_, *vni, link.index);
  removeFrom(byMaster_, link.master, link.index);
}

void LinkTable::addressIs(const Netlink::Address& address) {
  addresses_[{address.address, address.index}] = round_;
}

void LinkTable::addressDel(const Netlink::Address& address) {
  addresses_.erase({address.address, address.index});
}

void LinkTable::putIntoIs(int index, int bridge) {
  const auto at = links_.find(index);
  if (at != links_.end()) at->second.known.putInto = bridge;
}

// What is read now tells of all marks.
void LinkTable::beginAll() {
  ++round_;
  made_.clear();
}

std::vector<int> LinkTable::endAll() {
  std::erase_if(addresses_, [this](const auto& entry) { return entry.second != round_; });
  std::vector<int> gone;
  for (const auto& [index, entry] : links_)
    if (entry.round != round_) gone.push_back(index);
  return gone;
}

const KnownLink* LinkTable::find(int index) const {
  const auto at = links_.find(index);
  return at == links_.end() ? nullptr : &at->second.known;
}

const KnownLink* LinkTable::find(const std::string& name) const {
  const auto at = byName_.find(name);
  return at == byName_.end() ? nullptr : find(at->second);
}

const std::set<int>& LinkTable::vxlans(const Vxlan::VniExt& vni) const {
  return indicesOf(byVni_, vni);
}

const std::set<int>& LinkTable::members(int master) const { return indicesOf(byMaster_, master); }

const KnownLink* LinkTable::carrierOf(const Vorn::IpAddr& address) const {
  for (auto at = addresses_.lower_bound({address, 0});
       at != addresses_.end() && at->first.first == address; ++at)
    if (const KnownLink* const link = find(at->first.second)) return link;
  return nullptr;
}

}  // namespace Agent::Kernel
