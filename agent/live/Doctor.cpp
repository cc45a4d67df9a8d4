#include "agent/live/Doctor.h"

#include <algorithm>
#include <array>
#include <compare>
#include <linux/rtnetlink.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "agent/base/JsonText.h"
#include "agent/base/SortOnce.h"
#include "agent/netlink/Dump.h"
#include "agent/netlink/Fdb.h"
#include "agent/netlink/Nexthop.h"
#include "agent/view/Snapshot.h"

namespace Agent {

namespace {

using Kernel::Fdb;

struct Key {
  Vxlan::VniExt vni;
  Vorn::EthAddr mac;
  friend auto operator<=>(const Key&, const Key&) = default;
};

// Where frames to a MAC go.
struct Way {
  enum class To : std::uint8_t { one, all, any };

  To to = To::one;
  bool isOutsideBridge = false;       // of the kernel: the bridge does not know it
  std::vector<Vorn::IpAddr> vteps{};  // ascending
  friend bool operator==(const Way&, const Way&) = default;

  std::string text() const {
    std::string text = to == To::one ? "" : to == To::all ? "all" : "any";
    for (const Vorn::IpAddr& vtep : vteps) text += (text.empty() ? "" : " ") + vtep.stringValue();
    return text + (isOutsideBridge ? ", and not in the bridge" : "");
  }
};

using Ways = std::vector<std::pair<Key, Way>>;

void order(Ways& ways) { std::ranges::sort(ways, {}, &Ways::value_type::first); }

// The way under a key, from a place in the order that is moved behind it.
const Way* wayAt(const Ways& ways, std::size_t& place, const Key& key) {
  if (place == ways.size() || ways[place].first != key) return nullptr;
  return &ways[place++].second;
}

Way::To toOf(L2Rib::FloodSetType type) {
  return type == L2Rib::FloodSetType::sendToAll ? Way::To::all : Way::To::any;
}

// The kernel's forwarding, read a piece at a time.
class KernelReader {
 public:
  explicit KernelReader(const Kernel::DataPlane& plane) : plane_(plane) { beginNexthops(); }

  // False: all is read.
  bool step() {
    const auto state = dump_.step([this](const nlmsghdr& message) { take(message); });
    if (state == Netlink::Dump::State::more) return true;
    if (state == Netlink::Dump::State::interrupted)
      isReadingEntries_ ? beginEntries() : beginNexthops();
    else if (isReadingEntries_)
      return false;
    else
      beginEntries();
    return true;
  }

  Ways ways() {
    Ways ways;
    for (auto& [key, way] : ways_) {
      sortOnce(way.vteps);
      if (way.to == Way::To::one)
        way.isOutsideBridge = plane_.usesBridge(key.vni) && !inBridge_.contains(key);
      ways.emplace_back(key, std::move(way));
    }
    return ways;
  }

 private:
  void beginNexthops() {
    nexthops_.clear();
    dump_.begin(RTM_GETNEXTHOP, Netlink::allNexthops);
  }

  void beginEntries() {
    isReadingEntries_ = true;
    ways_.clear();
    inBridge_.clear();
    dump_.begin(RTM_GETNEIGH, Netlink::allFdbEntries);
  }

  void take(const nlmsghdr& message) {
    if (message.nlmsg_type == RTM_NEWNEXTHOP) {
      const auto nexthop = Netlink::nexthopOf(message);
      nexthops_[nexthop.id] = nexthop;
    } else if (message.nlmsg_type == RTM_NEWNEIGH && Netlink::isFdbEntry(message)) {
      takeEntry(Netlink::fdbEntryOf(message));
    }
  }

  void takeEntry(const Netlink::FdbEntry& entry) {
    const auto vni = plane_.vniOf(entry.index);
    if (!vni) return;
    if (entry.of == Netlink::FdbEntry::Of::bridge) {
      inBridge_.insert({*vni, entry.mac});
      return;
    }
    const Vorn::EthAddr mac = Netlink::floodMac(entry.mac);
    Way& way = ways_[{*vni, mac}];
    way.to = entry.nexthop != 0 ? Way::To::any : Fdb::isFlood(mac) ? Way::To::all : Way::To::one;
    if (entry.nexthop == 0)
      way.vteps.push_back(entry.dst);
    else
      for (const std::uint32_t member : nexthops_[entry.nexthop].members)
        way.vteps.push_back(nexthops_[member].via);
  }

  const Kernel::DataPlane& plane_;
  Netlink::Dump dump_;
  bool isReadingEntries_ = false;
  std::map<std::uint32_t, Netlink::Nexthop> nexthops_;
  std::map<Key, Way> ways_;
  std::set<Key> inBridge_;
};

class Doctor {
 public:
  explicit Doctor(const Examined& examined) : examined_(examined) { begin(); }

  // A stage does a piece, and returns whether it may have another.
  bool go(std::string& out) {
    static constexpr std::array stages{&Doctor::readKernel, &Doctor::readClient,
                                       &Doctor::orderDatabase, &Doctor::orderClient,
                                       &Doctor::compare};
    if (stage_ < stages.size()) {
      if (!(this->*stages[stage_])()) ++stage_;
      return true;
    }
    if (isAnyUnexplained_ && ++attempts_ < mostAttempts) {
      begin();
      return true;
    }
    out = std::move(lines_);
    return false;
  }

 private:
  static constexpr int mostAttempts = 3;

  void begin() {
    stage_ = 0;
    place_ = {};
    lines_.clear();
    isAnyUnexplained_ = false;
    database_.clear();
    client_.clear();
    kernel_.clear();
    if (examined_.plane) reader_ = std::make_unique<KernelReader>(*examined_.plane);
  }

  bool readKernel() {
    if (!reader_) return false;
    if (reader_->step()) return true;
    kernel_ = reader_->ways();
    return false;
  }

  // What the database says and what the client has are of one moment.
  bool readClient() {
    examined_.database.eachHost(
        [this](const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const Vorn::IpAddr& vtep) {
          database_.emplace_back(Key{vni, mac}, Way{Way::To::one, false, {vtep}});
        });
    examined_.database.eachList(
        [this](const Vxlan::VniExt& vni, const Vorn::EthAddr& mac, const FloodList& list) {
          database_.emplace_back(Key{vni, mac}, Way{toOf(list.type), false, list.vteps});
        });
    const StateStore& store = examined_.embedded.store();
    const VlanToVni vnis = vlanToVni(*store.vlanVniMaps);
    vlans_.clear();
    for (const auto& [vlan, vni] : vnis) vlans_.emplace(vni, vlan);
    for (const auto& [key, host] : store.l2RibZepInput->host())
      if (const auto vni = vnis.find(key.vlan); vni != vnis.end())
        client_.emplace_back(Key{vni->second, key.mac},
                             Way{Way::To::one, false, {host.dest.vtepAddr(0).ip4()}});
    readFloodSets(vnis);
    return false;
  }

  void readFloodSets(const VlanToVni& vnis) {
    const Snapshot snapshot =
        takeSnapshot("", 0, {.floodSets = examined_.embedded.store().zepSde}, {});
    for (const VlanFloodSetSnapshot& each : *snapshot.floodSets) {
      const auto vni = vnis.find(each.vlan);
      if (!each.floodSet || !each.floodSet->hasDests() || vni == vnis.end()) continue;
      Way way{toOf(each.floodSet->type), false, {}};
      for (const Vorn::IpGenAddr& vtep : each.floodSet->vteps) way.vteps.push_back(vtep.ip4());
      sortOnce(way.vteps);
      client_.emplace_back(Key{vni->second, each.floodSet->mac}, std::move(way));
    }
  }

  bool orderDatabase() {
    order(database_);
    return false;
  }

  bool orderClient() {
    order(client_);
    return false;
  }

  bool compare() {
    constexpr int keysAtOnce = 4096;
    for (int i = 0; i < keysAtOnce; ++i) {
      const auto key = nextKey();
      if (!key) return false;
      const Way* const database = wayAt(database_, place_.database, *key);
      const Way* const client = wayAt(client_, place_.client, *key);
      const Way* const kernel = wayAt(kernel_, place_.kernel, *key);
      const auto isSame = [](const Way* left, const Way* right) {
        return left && right ? *left == *right : left == right;
      };
      if (!isSame(database, client) || (examined_.plane && !isSame(client, kernel)))
        tell(*key, database, client, kernel);
    }
    return true;
  }

  std::optional<Key> nextKey() const {
    std::optional<Key> first;
    const auto look = [&first](const Ways& ways, std::size_t place) {
      if (place < ways.size() && (!first || ways[place].first < *first)) first = ways[place].first;
    };
    look(database_, place_.database);
    look(client_, place_.client);
    look(kernel_, place_.kernel);
    return first;
  }

  void tell(const Key& key, const Way* database, const Way* client, const Way* kernel) {
    const auto text = [](const Way* way) {
      return way ? nlohmann::ordered_json(way->text()) : nlohmann::ordered_json(nullptr);
    };
    std::string reason = whyDecided(key, database, client);
    if (reason.empty()) reason = whyProgrammed(key, client, kernel);
    if (reason.empty()) isAnyUnexplained_ = true;
    const nlohmann::ordered_json line{{"vni", key.vni.value()},
                                      {"mac", key.mac.stringValue()},
                                      {"database", text(database)},
                                      {"client", text(client)},
                                      {"kernel", text(kernel)},
                                      {"reason", reason.empty() ? nlohmann::ordered_json(nullptr)
                                                                : nlohmann::ordered_json(reason)}};
    lines_ += jsonText(line) + '\n';
  }

  // Why the client has another way than the database.
  std::string whyDecided(const Key& key, const Way* database, const Way* client) const {
    if (isOwn(database) && !client) return "behind our own VTEP";
    if (!client || (database && *database == *client)) return "";
    if (examined_.gate.isWaiting(key.vni, key.mac)) return "waiting in the gate";
    const bool isHeld = examined_.gate.hold().has_value();
    if (!Fdb::isFlood(key.mac)) return isMarked(key) ? isHeld ? "held" : "marked" : "";
    if (isHeld) return "held";
    if (examined_.gate.isListWaiting(key.vni, key.mac)) return "waiting in the gate";
    return examined_.gate.converging() ? "kept until all is calm" : "";
  }

  // Why the kernel has another one than the client.
  std::string whyProgrammed(const Key& key, const Way* client, const Way* kernel) const {
    if (!examined_.plane) return "";
    if (isOwn(client) && !kernel) return "behind our own VTEP";
    if (kernel && isForeign(key, client, *kernel)) return "foreign";
    return examined_.plane->whyOther(key.vni, key.mac);
  }

  bool isOwn(const Way* way) const {
    return way && way->to == Way::To::one && examined_.plane &&
           examined_.plane->isOwnAddress(way->vteps.front());
  }

  // Whether it is others that have made the difference: by the entry itself, or by members of
  // theirs beside all of ours.
  bool isForeign(const Key& key, const Way* client, const Way& kernel) const {
    std::vector<Vorn::IpAddr> ours;
    for (const Vorn::IpAddr& vtep : kernel.vteps)
      if (!examined_.plane->isForeign(key.vni, key.mac, {vtep, 0})) ours.push_back(vtep);
    if (ours.size() == kernel.vteps.size()) return false;
    return kernel.to == Way::To::one || ours == (client ? client->vteps : decltype(ours){});
  }

  bool isMarked(const Key& key) const {
    const auto vlan = vlans_.find(key.vni);
    return vlan != vlans_.end() &&
           examined_.embedded.client()->hostTable()->isMarked({key.mac, vlan->second});
  }

  const Examined examined_;
  std::size_t stage_ = 0;
  int attempts_ = 0;
  std::unique_ptr<KernelReader> reader_;
  Ways database_;
  Ways client_;
  Ways kernel_;
  std::map<Vxlan::VniExt, Bridging::VlanId> vlans_;
  struct {
    std::size_t database = 0;
    std::size_t client = 0;
    std::size_t kernel = 0;
  } place_;
  std::string lines_;
  bool isAnyUnexplained_ = false;
};

}  // namespace

Answer doctorAnswer(const Examined& examined) {
  return
      [doctor = std::make_shared<Doctor>(examined)](std::string& out) { return doctor->go(out); };
}

}  // namespace Agent
