#include "agent/gate/WithdrawalGate.h"

#include <algorithm>
#include <limits>

#include "framework/Moru/ActivityFacility.h"

namespace Agent {

namespace {

double now() { return Moru::ActivityFacility::current()->now(); }

const Vorn::IntfId& vti() {
  static const Vorn::IntfId intf(vtiName);
  return intf;
}

}  // namespace

class WithdrawalGate::MoruClock final : public Moru::Clock::NotifieeConst {
 public:
  explicit MoruClock(WithdrawalGate& gate) : gate_(gate) {
    notifierIs(Moru::ActivityFacility::current()->clock());
    hasNotificationActiveIs(true);
  }

  void onAttribute(Moru::AttributeId, const void*) override { gate_.letThrough(); }

 private:
  WithdrawalGate& gate_;
};

WithdrawalGate::WithdrawalGate(const GateOptions& options, Sink sink)
    : options_(options), sink_(std::move(sink)), clock_(Moru::create<MoruClock>(*this)) {
  convergingIs(true);
}

WithdrawalGate::~WithdrawalGate() = default;

template <class Target>
void WithdrawalGate::set(Target target, typename Target::Value value) {
  sink_(Set<Target>{std::move(target), std::move(value)});
}

template <class Target>
void WithdrawalGate::del(Target target) {
  sink_(Del<Target>{std::move(target)});
}

void WithdrawalGate::convergingIs(bool converging) {
  if (converging == converging_) return;
  converging_ = converging;
  if (converging) convergingSince_ = now();
  set(ControllerState{controllerName}, {converging, true});
}

// --- The batch ---

// All of a batch has one time: a message is one event, however long it takes to be evaluated.
void WithdrawalGate::openBatch() {
  if (isBatchOpen_) return;
  isBatchOpen_ = true;
  time_ = now();
}

void WithdrawalGate::changed() {
  isBatchEmpty_ = false;
  lastChange_ = time_;
}

void WithdrawalGate::commit() {
  openBatch();
  flushVnis();
  isBatchOpen_ = false;
  if (!isBatchEmpty_) lastChange_ = now();
  isBatchEmpty_ = true;
  judge();
  letThrough();
}

void WithdrawalGate::judge() {
  const double most = options_.holdAbove * static_cast<double>(hosts_);
  if (hold_ || counting_ <= options_.holdMin || static_cast<double>(counting_) <= most) return;
  hold_ = HoldState{now()};
  ++holds_;
  if (events_.hold) events_.hold(true);
  convergingIs(true);
}

// --- VNIs ---

void WithdrawalGate::vniIs(const Vxlan::VniExt& vni, const Bridging::VlanId& vlan) {
  openBatch();
  const Vni& known = vnis_[vni];
  const bool isThere = known.vlan == vlan && known.entry != Entry::none;
  if (isThere && known.withdrawal == none) return;
  changed();
  if (known.vlan && known.vlan != vlan) displace(vni);
  const auto tenant = vlans_.find(vlan);
  if (tenant != vlans_.end() && tenant->second != vni) displace(Vxlan::VniExt(tenant->second));
  Vni& entry = vnis_[vni];
  entry.withdrawal = none;
  entry.isDue = false;
  if (isThere) return;
  if (!entry.vlan) {
    entry.vlan = vlan;
    vlans_[vlan] = vni;
    set(VlanVni{vti(), vlan}, vni);
  }
  entry.entry = Entry::pending;
  newVnis_.push_back(vni);
  areVnisChanged_ = true;
}

// The cause is of no matter: only hosts count.
void WithdrawalGate::vniDel(const Vxlan::VniExt& vni, Cause) {
  openBatch();
  const auto found = vnis_.find(vni);
  if (found == vnis_.end() || found->second.entry == Entry::none) return;
  Vni& entry = found->second;
  if (entry.withdrawal != none) return;
  changed();
  entry.withdrawal = enqueue(vniQueue_, vni);
}

// Brings the changes of VNIs to the import list, once for all of them, and then to their entries.
void WithdrawalGate::flushVnis() {
  if (!areVnisChanged_) return;
  areVnisChanged_ = false;
  std::vector<Bridging::VlanId> vlans;
  for (const auto& [vlan, vni] : vlans_)
    if (vnis_.at(vni).entry != Entry::none) vlans.push_back(vlan);
  if (vlans != importVlans_) {
    importVlans_ = vlans;
    Vti::Value value;
    value.vccImportVlans = std::move(vlans);
    set(Vti{vti()}, std::move(value));
  }
  for (const Vxlan::VniExt& vni : std::exchange(newVnis_, {})) {
    const auto found = vnis_.find(vni);
    if (found == vnis_.end() || found->second.entry != Entry::pending) continue;
    found->second.entry = Entry::written;
    set(ControllerEntry{entryName(vni)}, {});
  }
  for (const auto& [vni, luggage] : std::exchange(luggage_, {})) {
    const auto found = vnis_.find(vni);
    if (found == vnis_.end() || found->second.entry == Entry::none) continue;
    for (const auto& [mac, list] : luggage.lists) listIs(vni, mac, list);
    for (const auto& [mac, vtep] : luggage.hosts) hostIs(vni, mac, vtep);
  }
}

// Takes a VNI off its VLAN at once. What is not withdrawn itself waits for the VNI to be announced
// on another one, later in the batch.
void WithdrawalGate::displace(const Vxlan::VniExt& vni) {
  Vni& entry = vnis_.at(vni);
  Luggage& luggage = luggage_[vni];
  for (const auto& [mac, host] : entry.hosts)
    if (host.withdrawal == none && !host.adopted) luggage.hosts.emplace_back(mac, host.vtep);
  for (const auto& [mac, list] : entry.lists) {
    if (list.withdrawal != none) continue;
    luggage.lists.emplace_back(mac, FloodList{list.type, {}});
    for (const Member& member : list.members)
      if (member.withdrawal == none) luggage.lists.back().second.vteps.push_back(member.vtep);
  }
  budget_ = std::numeric_limits<std::size_t>::max();
  withdrawContents(vni, entry);
  withdrawMap(vni);
}

// Hosts, lists and entry of a VNI; false if the turn was over before the hosts were. The client
// takes the lists of an entry for its own to delete: while converging it puts that off, which it
// would not do for a list that is deleted by itself.
bool WithdrawalGate::withdrawContents(const Vxlan::VniExt& vni, Vni& entry) {
  for (auto host = entry.hosts.begin(); host; ++host) {
    if (budget_ == 0) return false;
    --budget_;
    del(ControllerHost{entryName(vni), host.key()});
    hostGone(entry, host.key());
  }
  if (!converging_)
    for (const auto& [mac, list] : entry.lists) deleteList(vni, mac, list.type);
  entry.lists.clear();
  if (entry.entry == Entry::written) del(ControllerEntry{entryName(vni)});
  entry.entry = Entry::none;
  areVnisChanged_ = true;
  return true;
}

void WithdrawalGate::withdrawMap(const Vxlan::VniExt& vni) {
  const auto found = vnis_.find(vni);
  del(VlanVni{vti(), *found->second.vlan});
  vlans_.erase(*found->second.vlan);
  missing_ -= found->second.missing->size();
  vnis_.erase(found);
}

// --- Hosts ---

void WithdrawalGate::adopt(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac,
                           const Vorn::IpAddr& vtep) {
  auto& hosts = vnis_[vni].hosts;
  if (hosts.contains(mac)) return;
  Host host{vtep};
  host.adopted = true;
  hosts.is(mac, host);
  ++hosts_;
  hasAdopted_ = true;
}

void WithdrawalGate::hostIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac,
                            const Vorn::IpAddr& vtep) {
  openBatch();
  flushVnis();
  Vni& entry = vnis_[vni];
  Host* const host = entry.hosts.find(mac);
  const bool isWritten = host != nullptr && !host->adopted && host->vtep == vtep;
  if (isWritten && host->withdrawal == none) return;
  changed();
  if (host != nullptr) {
    if (hold_ && host->withdrawal != none && host->cause == Cause::controller)
      hold_->cameBack = true;
    if (host->withdrawal != none && events_.cameBack) events_.cameBack(vni, mac);
    stopWaiting(*host);
    *host = Host{vtep};
  } else {
    entry.hosts.is(mac, Host{vtep});
    ++hosts_;
    if (entry.missing->del(mac)) {
      --missing_;
      hold_->cameBack = true;
    }
  }
  if (!isWritten) set(ControllerHost{entryName(vni), mac}, {vtep});
}

void WithdrawalGate::hostDel(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, Cause cause) {
  openBatch();
  flushVnis();
  Host* const host = findHost(vni, mac);
  if (host == nullptr || host->withdrawal != none) return;
  changed();
  startWaiting(vni, mac, *host, cause);
}

WithdrawalGate::Host* WithdrawalGate::findHost(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) {
  const auto found = vnis_.find(vni);
  return found != vnis_.end() ? found->second.hosts.find(mac) : nullptr;
}

bool WithdrawalGate::isWaiting(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) const {
  const auto found = vnis_.find(vni);
  if (found == vnis_.end()) return false;
  const Host* const host = found->second.hosts.find(mac);
  return host != nullptr && host->withdrawal != none;
}

bool WithdrawalGate::isListWaiting(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac) const {
  const auto entry = vnis_.find(vni);
  if (entry == vnis_.end()) return false;
  const auto at = entry->second.lists.find(mac);
  if (at == entry->second.lists.end()) return false;
  const List& list = at->second;
  return list.withdrawal != none || list.isDue ||
         std::ranges::any_of(list.members,
                             [](const Member& each) { return each.withdrawal != none; });
}

void WithdrawalGate::startWaiting(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, Host& host,
                                  Cause cause) {
  host.withdrawal = enqueue(cause == Cause::meant ? meantHostQueue_ : hostQueue_, vni, mac);
  host.cause = cause;
  ++waiting_;
  if (events_.waits) events_.waits(vni, mac, hold_.has_value());
  if (cause == Cause::meant) return;
  ++counting_;
  lastTaken_ = time_;
}

void WithdrawalGate::stopWaiting(Host& host) {
  if (host.withdrawal == none) return;
  host.withdrawal = none;
  --waiting_;
  if (host.cause == Cause::controller) --counting_;
}

void WithdrawalGate::hostGone(Vni& entry, const Vorn::EthAddr& mac) {
  stopWaiting(*entry.hosts.find(mac));
  entry.hosts.del(mac);
  --hosts_;
}

// --- Lists ---

void WithdrawalGate::listIs(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac,
                            const FloodList& list) {
  openBatch();
  flushVnis();
  List& written = vnis_[vni].lists[mac];
  if (written.withdrawal != none) changed();
  written.withdrawal = none;
  written.isDue = false;
  if (written.type == list.type) {
    // Those who leave together wait under one number.
    Withdrawal withdrawal = none;
    const auto leave = [&] {
      if (withdrawal == none) withdrawal = enqueue(listQueue_, vni, mac);
      return withdrawal;
    };
    if (changeMembers(written, list.vteps, leave)) writeList(vni, mac, written);
    return;
  }
  // Of the other kind. The client prefers a multipath entry to a flood list: in this order there is
  // always one that serves.
  changed();
  const L2Rib::FloodSetType before = std::exchange(written.type, list.type);
  written.members.clear();
  for (const Vorn::IpAddr& vtep : list.vteps) written.members.push_back({vtep});
  writeList(vni, mac, written);
  if (before != L2Rib::FloodSetType::none) deleteList(vni, mac, before);
}

// Members that are no longer among `vteps` begin to wait. True if others have come.
bool WithdrawalGate::changeMembers(List& list, const std::vector<Vorn::IpAddr>& vteps,
                                   const std::function<Withdrawal()>& leave) {
  std::vector<Member> members;
  bool haveCome = false;
  auto old = list.members.begin();
  const auto keepUpTo = [&](auto isBefore) {
    for (; old != list.members.end() && isBefore(old->vtep); ++old) {
      if (old->withdrawal == none) {
        changed();
        old->withdrawal = leave();
      }
      members.push_back(*old);
    }
  };
  for (const Vorn::IpAddr& vtep : vteps) {
    keepUpTo([&vtep](const Vorn::IpAddr& each) { return each < vtep; });
    const bool isNew = old == list.members.end() || old->vtep != vtep;
    if (isNew || old->withdrawal != none) changed();
    haveCome |= isNew;
    members.push_back({vtep});
    if (!isNew) ++old;
  }
  keepUpTo([](const Vorn::IpAddr&) { return true; });
  list.members = std::move(members);
  return haveCome;
}

void WithdrawalGate::listDel(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, Cause) {
  openBatch();
  flushVnis();
  const auto entry = vnis_.find(vni);
  if (entry == vnis_.end()) return;
  const auto list = entry->second.lists.find(mac);
  if (list == entry->second.lists.end() || list->second.withdrawal != none) return;
  changed();
  list->second.withdrawal = enqueue(listQueue_, vni, mac);
}

void WithdrawalGate::writeList(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac,
                               const List& list) {
  if (list.type == L2Rib::FloodSetType::sendToAny) {
    ControllerMultiPath::Value vteps;
    for (const Member& member : list.members) vteps.push_back(member.vtep);
    set(ControllerMultiPath{entryName(vni), mac}, std::move(vteps));
    return;
  }
  ControllerFlood::Value value;
  for (const Member& member : list.members) value.vteps.emplace_back(member.vtep, true);
  set(ControllerFlood{entryName(vni), mac}, std::move(value));
}

void WithdrawalGate::deleteList(const Vxlan::VniExt& vni, const Vorn::EthAddr& mac,
                                L2Rib::FloodSetType type) {
  if (type == L2Rib::FloodSetType::sendToAny)
    del(ControllerMultiPath{entryName(vni), mac});
  else
    del(ControllerFlood{entryName(vni), mac});
}

// --- Withdrawals ---

WithdrawalGate::Withdrawal WithdrawalGate::enqueue(Queue& queue, const Vxlan::VniExt& vni,
                                                   const Vorn::EthAddr& mac) {
  if (++lastWithdrawal_ == none) ++lastWithdrawal_;
  queue.push_back({time_ + options_.withdrawDelay, vni, mac, lastWithdrawal_});
  return lastWithdrawal_;
}

// When the first of a queue is due. A source that has lost sync may only not have been heard: what
// it withdrew before waits anew.
double WithdrawalGate::dueTime(const Queue& queue) const {
  if (queue.empty()) return Moru::Clock::never;
  if (hold_ && &queue == &hostQueue_) return time_;  // the client keeps them
  const double delay = options_.withdrawDelay;
  const double due = std::max(queue.front().at, syncedAt_ + delay);
  if (&queue != &hostQueue_ || counting_ <= options_.holdMin) return due;
  return std::max(due, std::min(lastTaken_ + delay, due + (longestWait - 1) * delay));
}

// Lets through what is due: the clock's turn, and that of whoever may have made something due.
// Hosts first, for a VNI would take them with it.
void WithdrawalGate::letThrough() {
  if (!inSync_ || isBatchOpen_) return;  // which its end makes up for
  time_ = now();
  budget_ = slice;
  withdrawHosts(hostQueue_);
  withdrawHosts(meantHostQueue_);
  withdrawLists();
  withdrawVnis();
  if (budget_ != 0 && holdEnds().value_or(Moru::Clock::never) <= time_) endHold();
  flushVnis();
  arm();
}

void WithdrawalGate::withdrawHosts(Queue& queue) {
  for (; budget_ != 0 && dueTime(queue) <= time_; --budget_, queue.pop_front()) {
    const Due& due = queue.front();
    const Host* const host = findHost(due.vni, due.mac);
    if (host == nullptr || host->withdrawal != due.withdrawal) continue;
    Vni& entry = vnis_.at(due.vni);
    if (hold_ && host->cause == Cause::controller && entry.missing->is(due.mac, {})) ++missing_;
    hostGone(entry, due.mac);
    del(ControllerHost{entryName(due.vni), due.mac});
  }
}

// Members leave a list at any time, the client keeps them while it is told to. A whole list it
// would not keep.
void WithdrawalGate::withdrawLists() {
  for (; budget_ != 0 && dueTime(listQueue_) <= time_; --budget_, listQueue_.pop_front()) {
    const Due& due = listQueue_.front();
    const auto entry = vnis_.find(due.vni);
    if (entry == vnis_.end()) continue;
    const auto found = entry->second.lists.find(due.mac);
    if (found == entry->second.lists.end()) continue;
    List& list = found->second;
    if (list.withdrawal == due.withdrawal) {
      list.isDue = hold_.has_value();
      if (list.isDue) continue;
      deleteList(due.vni, due.mac, list.type);
      entry->second.lists.erase(found);
    } else if (std::erase_if(list.members, [&due](const Member& member) {
                 return member.withdrawal == due.withdrawal;
               }) != 0) {
      writeList(due.vni, due.mac, list);
    }
  }
}

void WithdrawalGate::withdrawVnis() {
  std::vector<Vxlan::VniExt> gone;
  for (; budget_ != 0 && dueTime(vniQueue_) <= time_; vniQueue_.pop_front()) {
    --budget_;
    const Due& due = vniQueue_.front();
    const auto found = vnis_.find(due.vni);
    if (found == vnis_.end() || found->second.withdrawal != due.withdrawal) continue;
    found->second.isDue = hold_.has_value();
    if (found->second.isDue) continue;
    if (!withdrawContents(due.vni, found->second)) break;
    gone.push_back(due.vni);
  }
  for (const Vxlan::VniExt& vni : gone) withdrawMap(vni);
}

// --- Holds ---

std::optional<WithdrawalGate::Hold> WithdrawalGate::hold() const {
  if (!hold_) return std::nullopt;
  return Hold{hold_->since, missing_ + counting_, holdEnds()};
}

// A source that is not in sync cannot bring anything back: only what it says then tells.
std::optional<double> WithdrawalGate::holdEnds() const {
  if (!hold_ || !inSync_) return std::nullopt;
  if (hold_->released) return hold_->since;
  double ends = Moru::Clock::never;
  if (options_.holdTime > 0) ends = std::max(hold_->since, syncedAt_) + options_.holdTime;
  if (hold_->cameBack) ends = std::min(ends, std::max(lastChange_, syncedAt_) + options_.settle);
  return ends == Moru::Clock::never ? std::nullopt : std::optional(ends);
}

// The VNIs' withdrawals have waited for this, and go while the client still converges: it then
// deletes their hosts and flood sets in its batches. A VLAN without a VNI it empties at once, so
// the maps stay a little longer.
void WithdrawalGate::endHold() {
  for (auto& [vni, entry] : vnis_)
    if (entry.isDue && !withdrawContents(vni, entry)) return;
  flushVnis();
  convergingIs(false);
  hold_.reset();
  if (events_.hold) events_.hold(false);
  missing_ = 0;
  Queue lists;
  for (auto& [vni, entry] : vnis_) {
    entry.missing.emplace();
    if (std::exchange(entry.isDue, false)) entry.withdrawal = enqueue(vniQueue_, vni);
    for (auto& [mac, list] : entry.lists)
      if (std::exchange(list.isDue, false)) lists.push_back({time_, vni, mac, list.withdrawal});
  }
  listQueue_.insert(listQueue_.begin(), lists.begin(), lists.end());
}

void WithdrawalGate::release() {
  if (hold_) hold_->released = true;
  letThrough();
}

void WithdrawalGate::inSyncIs(bool inSync) {
  if (inSync == inSync_) return;
  inSync_ = inSync;
  if (!inSync) return convergingIs(true);
  time_ = syncedAt_ = now();
  if (std::exchange(hasAdopted_, false))
    for (auto& [vni, entry] : vnis_)
      for (const auto& [mac, host] : entry.hosts)
        if (host.adopted && host.withdrawal == none)
          startWaiting(vni, mac, *entry.hosts.find(mac), Cause::controller);
  judge();
  if (!hold_) convergingIs(false);
  letThrough();
}

void WithdrawalGate::arm() {
  clock_->timeMinIs(std::min({dueTime(hostQueue_), dueTime(meantHostQueue_), dueTime(listQueue_),
                              dueTime(vniQueue_), holdEnds().value_or(Moru::Clock::never)}));
}

}  // namespace Agent
