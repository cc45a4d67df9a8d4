#include "agent/kernel/Links.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <iterator>
#include <utility>

namespace Agent::Kernel {

namespace {

using Netlink::Batch;
using Netlink::LinkChange;
using Vxlan::VniExt;

constexpr std::uint16_t vxlanPort = 4789;
constexpr std::uint32_t encapsulation = 50;  // bytes of the outer headers, over IPv4
constexpr std::uint32_t defaultMtu = 1450;
constexpr std::uint32_t leastMtu = 68;
constexpr std::uint32_t mostMtu = 65535;

// Links in a piece of work that are removed, or taken out of a bridge: that takes the kernel some
// twenty milliseconds each.
constexpr int mostRemovals = 2;

// No VNI of a network: stands for the sub-interfaces that no VNI needs any more.
constexpr VniExt noVni(0);

const std::string devicePrefix = "vx";
const std::string bridgePrefix = "br";

std::string nameOf(const std::string& prefix, const VniExt& vni) {
  return prefix + std::to_string(vni.value());
}

// The VNI in a name as nameOf() makes it.
std::optional<VniExt> vniIn(const std::string& name, const std::string& prefix) {
  if (!name.starts_with(prefix)) return std::nullopt;
  std::uint32_t number = 0;
  const char* const end = name.data() + name.size();
  const auto parsed = std::from_chars(name.data() + prefix.size(), end, number);
  if (parsed.ec != std::errc() || parsed.ptr != end || number > VniExt::max) return std::nullopt;
  const VniExt vni(number);
  if (nameOf(prefix, vni) != name) return std::nullopt;
  return vni;
}

std::string placeOf(const VniExt& vni, const std::string& part) {
  return "kernel: VNI " + std::to_string(vni.value()) + ": " + part;
}

std::string devicePlace(const VniExt& vni) { return placeOf(vni, "device"); }
std::string bridgePlace(const VniExt& vni) { return placeOf(vni, "bridge"); }

const std::string underlayPlace = "kernel: address of our VTEP";
const std::string isDown = "it was down";
const std::string aliasDiffers = "it had another alias";

std::string membershipOf(const Netlink::Link& link) {
  return link.master == 0 ? "it was in no bridge" : "it was in another bridge";
}

}  // namespace

Links::Links(LinkOptions options, Netlink::Requests& requests, Problems& problems, Events events)
    : options_(std::move(options)),
      problems_(problems),
      events_(std::move(events)),
      table_(options_.mark),
      requests_(requests, problems) {}

// --- What is wanted ---

void Links::vniIs(const VniExt& vni) {
  if (wanted_.insert(vni).second) dirty_.insert(vni);
}

void Links::vniDel(const VniExt& vni) {
  if (wanted_.erase(vni) == 0) return;
  inOrder_.erase(vni);
  dirty_.insert(vni);
  for (const Attachment& attachment : bindings_.of(vni))
    if (const auto* const link = table_.find(interfaceOf(attachment))) touch(*link);
}

void Links::localAddressIs(const Vorn::IpAddr& address) {
  if (address == local_) return;
  local_ = address;
  touchAll();
}

void Links::portsAre(const std::vector<Attachment>& ports) {
  auto changed = bindings_.portsAre(ports);
  for (const auto& vni : changed.vnis)
    if (const auto at = inOrder_.find(vni); at != inOrder_.end()) at->second.ports.clear();
  dirty_.merge(changed.vnis);
  for (const std::string& interface : changed.interfaces)
    if (const auto* const link = table_.find(interface)) touch(*link);
}

void Links::calmIs(bool isCalm) {
  isCalm_ = isCalm;
  if (isCalm) dirty_.merge(std::exchange(deferred_, {}));
}

// --- What there is ---

void Links::linkIs(const Netlink::Link& link) {
  const auto* const found = table_.find(link.index);
  const auto before = found ? std::optional(*found) : std::nullopt;
  if (!table_.linkIs(link)) return;
  const KnownLink& after = *table_.find(link.index);
  const bool isAnother = !before || before->link.name != after.link.name;
  if (before) touch(*before);
  touch(after);
  if (isAnother || before->isMarked != after.isMarked) touchMembers(link.index);
  if (!isAnother) return;
  for (const auto& vni : bindings_.taggedAt(link.name)) dirty_.insert(vni);
  if (!before) return;
  for (const auto& vni : bindings_.taggedAt(before->link.name)) dirty_.insert(vni);
}

void Links::linkDel(const Netlink::Link& link) {
  const auto* const found = table_.find(link.index);
  if (!found) return;
  const KnownLink gone = *found;
  table_.linkDel(gone.link.index);
  touch(gone);
  touchMembers(gone.link.index);
  for (const auto& vni : bindings_.taggedAt(gone.link.name)) dirty_.insert(vni);
}

void Links::portIs(const Netlink::BridgePort& port) {
  if (table_.portIs(port)) touch(*table_.find(port.index));
}

void Links::addressIs(const Netlink::Address& address) { table_.addressIs(address); }

void Links::addressDel(const Netlink::Address& address) { table_.addressDel(address); }

void Links::beginAll() {
  isRead_ = false;
  table_.beginAll();
}

void Links::endAll() {
  for (const int index : table_.endAll()) linkDel(table_.find(index)->link);
  isRead_ = true;
}

// All that may want something else now that there is news of the link: `link` is how it was before
// the news, or how it is after.
void Links::touch(const KnownLink& link) {
  if (const auto vni = Kernel::vniOf(link.link)) {
    refreshDevice(*vni);
    dirty_.insert(*vni);
  }
  for (const std::string& prefix : {devicePrefix, bridgePrefix})
    if (const auto vni = vniIn(link.link.name, prefix)) dirty_.insert(*vni);
  if (const auto vni = bindings_.vniOf(link.link.name)) dirty_.insert(*vni);
  if (const auto* const master = table_.find(link.link.master))
    if (const auto vni = vniIn(master->link.name, bridgePrefix)) dirty_.insert(*vni);
  if (isOurSubInterface(link) && !isNeeded(link.link.name)) {
    subInterfaces_.insert(link.link.index);
    dirty_.insert(noVni);
  }
}

void Links::touchMembers(int bridge) {
  for (const int index : table_.members(bridge)) touch(*table_.find(index));
}

void Links::touchAll() { dirty_.insert(wanted_.begin(), wanted_.end()); }

void Links::refreshDevice(const VniExt& vni) {
  std::optional<Device> now;
  const KnownLink* device = nullptr;
  if (options_.manages)
    device = ourDevice(vni);
  else if (!table_.vxlans(vni).empty())
    device = table_.find(*table_.vxlans(vni).begin());
  if (device) {
    const auto* const master = table_.find(device->link.master);
    const bool isPort = master && master->link.kind == "bridge";
    now = Device{device->link.index, isPort ? device->link.master : 0};
  }
  if (now == this->device(vni)) return;
  if (now)
    devices_[vni] = *now;
  else
    devices_.erase(vni);
  events_.deviceIs(vni, now);
}

// --- Whose it is ---

// An access port of a VNI that is wanted.
bool Links::isNeeded(const std::string& interface) const {
  const auto vni = bindings_.vniOf(interface);
  return vni && isWanted(*vni);
}

// One that was given another name is the operator's.
bool Links::isOurBridge(const KnownLink& link) const {
  return link.isMarked && link.link.kind == "bridge" && vniIn(link.link.name, bridgePrefix);
}

bool Links::isOurSubInterface(const KnownLink& link) const {
  return link.isMarked && link.link.kind == "vlan";
}

const KnownLink* Links::ourDevice(const VniExt& vni) const {
  for (const int index : table_.vxlans(vni)) {
    const auto* const link = table_.find(index);
    if (link->isMarked && link->link.vxlan->port == vxlanPort) return link;
  }
  return nullptr;
}

const KnownLink* Links::ourBridge(const VniExt& vni) const {
  const auto* const link = table_.find(nameOf(bridgePrefix, vni));
  return link && isOurBridge(*link) ? link : nullptr;
}

// The bridge that the VNI's device and its access ports belong to; nothing: ours is to be made. A
// port that somebody has put into a bridge chooses that.
const KnownLink* Links::bridgeOf(const VniExt& vni) const {
  for (const Attachment& attachment : bindings_.of(vni)) {
    const auto* const port = table_.find(interfaceOf(attachment));
    const auto* const master = port ? table_.find(port->link.master) : nullptr;
    if (!master || port->isPutIn()) continue;
    if (master->link.kind == "bridge" && !isOurBridge(*master)) return master;
  }
  return ourBridge(vni);
}

std::optional<std::uint32_t> Links::underlayMtu() const {
  const auto* const carrier = table_.carrierOf(local_);
  if (!carrier) return std::nullopt;
  const std::uint32_t mtu = std::max(carrier->link.mtu, leastMtu + encapsulation) - encapsulation;
  return std::min(mtu, mostMtu);
}

// --- Work ---

bool Links::work(double now) {
  if (!isRead_) return false;
  const auto begin = std::chrono::steady_clock::now();
  now_ = now;
  removals_ = 0;
  if (options_.manages) followUnderlay();
  dirty_.merge(requests_.takeDue(now));
  for (int i = 0; i < atOnce_ && !dirty_.empty(); ++i) {
    const VniExt vni = *dirty_.begin();
    dirty_.erase(dirty_.begin());
    look(vni);
  }
  requests_.finish(now);
  keepPace(std::chrono::steady_clock::now() - begin);
  dirty_.merge(std::exchange(next_, {}));
  return !dirty_.empty();
}

// The more links there are, the longer the kernel may take for one: with IPv6, tens of milliseconds
// where there are thousands.
void Links::keepPace(std::chrono::duration<double> taken) {
  constexpr std::chrono::milliseconds little(5);
  constexpr std::chrono::milliseconds much(20);
  if (taken > much) atOnce_ = std::max(atOnce_ / 2, 1);
  if (taken < little) atOnce_ = std::min(atOnce_ * 2, mostAtOnce);
}

void Links::followUnderlay() {
  const auto mtu = underlayMtu();
  if (mtu || local_ == Vorn::IpAddr())
    problems_.cure(underlayPlace);
  else
    problems_.raise(underlayPlace, local_.stringValue(), "an address of an interface");
  if (mtu == mtu_) return;
  mtu_ = mtu;
  touchAll();
}

void Links::look(const VniExt& vni) {
  requests_.begin(vni, now_);
  if (vni == noVni) return lookAtSubInterfaces();
  if (!options_.manages) return lookForDevice(vni);
  if (isWanted(vni)) arrange(vni);
  removeWhatIsLeft(vni);
}

void Links::lookForDevice(const VniExt& vni) {
  if (isWanted(vni) && !device(vni))
    requests_.problem(devicePlace(vni), std::to_string(vni.value()),
                      "a vxlan device with this VNI");
}

void Links::arrange(const VniExt& vni) {
  const auto* const bridge = bridgeOf(vni);
  arrangeBridge(vni, bridge);
  arrangeDevice(vni, bridge);
  for (const Attachment& attachment : bindings_.of(vni)) arrangePort(vni, attachment, bridge);
}

void Links::arrangeBridge(const VniExt& vni, const KnownLink* bridge) {
  const std::string place = bridgePlace(vni);
  bool& wasInOrder = inOrder_[vni].bridge;
  if (!bridge) {
    const std::string name = nameOf(bridgePrefix, vni);
    if (make(name, place, wasInOrder, [&name](Batch& batch) { makeBridge(batch, name); }))
      wasInOrder = false;
    return;
  }
  if (!isOurBridge(*bridge)) {
    wasInOrder = false;
    return;
  }
  const bool hasAlias = bridge->link.alias == options_.mark;
  if (!hasAlias) change(*bridge, place, aliasDiffers, wasInOrder, {{.alias = options_.mark}});
  if (!bridge->link.isUp) change(*bridge, place, isDown, wasInOrder, {{.isUp = true}});
  if (hasAlias && bridge->link.isUp) wasInOrder = true;
}

// Going up comes last: of what is changed before, the kernel tells with that.
void Links::arrangeDevice(const VniExt& vni, const KnownLink* bridge) {
  const std::string place = devicePlace(vni);
  InOrder& before = inOrder_[vni];
  const auto* const device = ourDevice(vni);
  const bool hasLocal = local_ != Vorn::IpAddr();
  if (!device) {
    const std::string name = nameOf(devicePrefix, vni);
    const Netlink::Link::Vxlan vxlan{.vni = vni.value(), .local = local_, .port = vxlanPort};
    const std::uint32_t mtu = mtu_.value_or(defaultMtu);
    const auto build = [&](Batch& batch) { makeVxlan(batch, name, vxlan, mtu); };
    if (hasLocal && make(name, place, before.device, build)) before.device = false;
    return;
  }

  const Netlink::Link& link = device->link;
  bool isInOrder = true;
  const auto want = [&](bool isAsWanted, const std::string& how, bool wasInOrder,
                        const std::vector<LinkChange>& what) {
    if (isAsWanted) return;
    isInOrder = false;
    change(*device, place, how, before.device && wasInOrder, what);
  };
  want(link.alias == options_.mark, aliasDiffers, true, {{.alias = options_.mark}});
  want(!hasLocal || link.vxlan->local == local_, "it had another local address",
       before.local == local_, {{.local = local_}});
  want(!link.vxlan->learns, "it learnt", true, {{.learns = false}});
  want(!mtu_ || link.mtu == *mtu_, "it had another MTU", before.mtu == mtu_, {{.mtu = mtu_}});
  const int master = bridge ? bridge->link.index : link.master;
  want(link.master == master, membershipOf(link), before.master == master,
       {{.master = master}, {.portLearns = false}});
  want(link.master != master || link.portLearns != true, "its bridge learnt from it", true,
       {{.portLearns = false}});
  want(link.isUp, isDown, true, {{.isUp = true}});
  if (!isInOrder || !bridge) return;
  before.device = true;
  before.local = local_;
  before.mtu = mtu_;
  before.master = bridge->link.index;
}

void Links::arrangePort(const VniExt& vni, const Attachment& attachment, const KnownLink* bridge) {
  const std::string name = interfaceOf(attachment);
  const std::string place = placeOf(vni, "port " + name);
  InOrder& inOrder = inOrder_[vni];
  const auto* const port = table_.find(name);
  if (!port) return makeSubInterface(attachment, place, inOrder);
  if (bindings_.vniOf(name) != vni)
    return requests_.problem(place, name, "an interface of one port alone");

  const auto before = inOrder.ports.find(name);
  const bool wasHere = before != inOrder.ports.end();
  if (isOurSubInterface(*port) && !port->link.isUp)
    change(*port, place, isDown, wasHere, {{.isUp = true}});
  if (!bridge) return;
  const int index = port->link.index;
  const int wanted = bridge->link.index;
  if (port->link.master == wanted) {
    if (isOurBridge(*bridge)) table_.putIntoIs(index, wanted);
    inOrder.ports[name] = wanted;
    return;
  }
  const auto* const master = table_.find(port->link.master);
  if (port->link.master != 0 && !port->isPutIn() && !(master && isOurBridge(*master)))
    return requests_.problem(place, name, "a port of " + bridge->link.name + ", or of no bridge");
  const std::string how = membershipOf(port->link);
  const std::string told = wasHere && before->second == wanted
                               ? "put right " + name + ": " + how
                               : "put " + name + " into " + bridge->link.name;
  const auto done = [this, index, wanted, told] {
    table_.putIntoIs(index, wanted);
    events_.tell(told);
  };
  requests_.ask({place, name, name + ": " + how, done},
                [&](Batch& batch) { changeLink(batch, index, {.master = wanted}); });
}

void Links::makeSubInterface(const Attachment& attachment, const std::string& place,
                             InOrder& inOrder) {
  const auto* const port = table_.find(attachment.port);
  if (attachment.tag == 0 || !port)
    return requests_.problem(place, attachment.port, "an interface of this name");
  const std::string name = interfaceOf(attachment);
  if (make(name, place, inOrder.ports.contains(name),
           [&](Batch& batch) { makeVlan(batch, name, port->link.index, attachment.tag); }))
    inOrder.ports.erase(name);
}

// What nobody wants any more, when the client is calm. What somebody has put into a bridge of ours
// keeps it.
void Links::removeWhatIsLeft(const VniExt& vni) {
  const bool isWanted = this->isWanted(vni);
  const auto* const device = ourDevice(vni);
  const auto* const bridge = ourBridge(vni);
  const bool isBridgeLeft = bridge && !(isWanted && bridgeOf(vni) == bridge);
  const auto leaving = bridge ? portsThatLeave(*bridge) : std::vector<const KnownLink*>();
  if ((isWanted || !device) && leaving.empty() && !isBridgeLeft) return;
  if (!isCalm_) {
    deferred_.insert(vni);
    return;
  }
  if (!isWanted && device) {
    if (!mayRemove(vni)) return;
    remove(*device, devicePlace(vni));
  }
  for (const auto* const port : leaving) {
    if (!mayRemove(vni)) return;
    const std::string& name = port->link.name;
    const std::string told = "took " + name + " out of " + bridge->link.name;
    requests_.ask({placeOf(vni, "port " + name), name, told, [this, told] { events_.tell(told); }},
                  [&](Batch& batch) { changeLink(batch, port->link.index, {.master = 0}); });
  }
  if (!isBridgeLeft) return;
  const std::size_t own = device && device->link.master == bridge->link.index ? 1 : 0;
  if (table_.members(bridge->link.index).size() == leaving.size() + own && mayRemove(vni))
    remove(*bridge, bridgePlace(vni));
}

std::vector<const KnownLink*> Links::portsThatLeave(const KnownLink& bridge) const {
  std::vector<const KnownLink*> result;
  for (const int index : table_.members(bridge.link.index)) {
    const auto* const port = table_.find(index);
    if (port->isPutIn() && !isNeeded(port->link.name)) result.push_back(port);
  }
  return result;
}

void Links::lookAtSubInterfaces() {
  if (!isCalm_) {
    deferred_.insert(noVni);
    return;
  }
  while (!subInterfaces_.empty()) {
    const auto* const link = table_.find(*subInterfaces_.begin());
    const bool isLeft = link && isOurSubInterface(*link) && !isNeeded(link->link.name);
    if (isLeft && !mayRemove(noVni)) return;
    if (isLeft) remove(*link, "kernel: sub-interface " + link->link.name);
    subInterfaces_.erase(subInterfaces_.begin());
  }
}

// False: the VNI's turn comes in the next piece.
bool Links::mayRemove(const VniExt& vni) {
  if (removals_ == mostRemovals) {
    next_.insert(vni);
    return false;
  }
  ++removals_;
  return true;
}

// --- Requests ---

// The mark comes in the same batch: no link of ours is ever without, whenever we end. It goes by
// the name, so none is sent where somebody else's link is known to have that: the kernel is to
// refuse the new one, and to say why.
bool Links::make(const std::string& name, const std::string& place, bool wasInOrder,
                 const std::function<void(Batch&)>& build) {
  const bool isTaken = table_.find(name) != nullptr;
  const std::string how = name + ": it was gone";
  const auto done = [this, name, told = wasInOrder ? "put right " + how : "made " + name] {
    table_.madeIs(name);
    events_.tell(told);
  };
  return requests_.ask({place, name, how, done}, [&](Batch& batch) {
    build(batch);
    if (!isTaken) changeLink(batch, name, {.alias = options_.mark});
  });
}

void Links::change(const KnownLink& link, const std::string& place, const std::string& how,
                   bool wasInOrder, const std::vector<LinkChange>& what) {
  const std::string reason = link.link.name + ": " + how;
  const auto done = [this, wasInOrder, reason] {
    if (wasInOrder) events_.tell("put right " + reason);
  };
  requests_.ask({place, link.link.name, reason, done}, [&](Batch& batch) {
    for (const LinkChange& each : what) changeLink(batch, link.link.index, each);
  });
}

void Links::remove(const KnownLink& link, const std::string& place) {
  const std::string told = "removed " + link.link.name;
  requests_.ask({place, link.link.name, told, [this, told] { events_.tell(told); }},
                [&](Batch& batch) { deleteLink(batch, link.link.index); });
}

// --- What is asked ---

std::optional<double> Links::due() const { return requests_.due(); }

std::optional<Device> Links::device(const VniExt& vni) const {
  const auto at = devices_.find(vni);
  if (at == devices_.end()) return std::nullopt;
  return at->second;
}

std::optional<VniExt> Links::vniOf(int index) const {
  const auto* const link = table_.find(index);
  const auto vni = link ? Kernel::vniOf(link->link) : std::nullopt;
  const auto found = vni ? device(*vni) : std::nullopt;
  if (!found || found->index != index) return std::nullopt;
  return vni;
}

std::size_t Links::devices() const {
  return static_cast<std::size_t>(
      std::count_if(wanted_.begin(), wanted_.end(),
                    [this](const VniExt& vni) { return device(vni).has_value(); }));
}

}  // namespace Agent::Kernel
