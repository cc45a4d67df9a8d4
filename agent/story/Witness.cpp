#include "agent/story/Witness.h"

#include <charconv>
#include <string>
#include <utility>
#include <variant>

namespace Agent {

namespace {

// The VNI of a controller's entry: the number that its name begins with, 0 if it is none.
std::uint32_t vniOf(const Moru::Name& name) {
  const std::string& text = name.stringValue();
  std::uint32_t vni = 0;
  std::from_chars(text.data(), text.data() + text.size(), vni);
  return vni;
}

template <class Number>
std::uint32_t numberOf(Number number) {
  return static_cast<std::uint32_t>(number);
}

// What a change tells. Nothing for those that restore what an earlier run has written, and for the
// MLAG peer's flood sets: what the client makes of these is told.
template <class Target>
std::optional<Event> eventOf(const Target&, const typename Target::Value&) {
  return std::nullopt;
}

std::optional<Event> eventOf(const ControllerHost& host, const ControllerHost::Value& value) {
  return Event{.mac = host.mac,
               .kind = EventKind::announced,
               .vni = vniOf(host.name),
               .vtep = value.vtep,
               .number = value.moveCount};
}

std::optional<Event> eventOf(const ControllerFlood& list, const ControllerFlood::Value& value) {
  return Event{.mac = list.mac,
               .kind = EventKind::flooded,
               .vni = vniOf(list.name),
               .number = numberOf(value.vteps.size())};
}

std::optional<Event> eventOf(const ControllerMultiPath& entry,
                             const ControllerMultiPath::Value& value) {
  return Event{.mac = entry.mac,
               .kind = EventKind::multiPath,
               .vni = vniOf(entry.name),
               .number = numberOf(value.size())};
}

std::optional<Event> eventOf(const ControllerEntry& entry, const ControllerEntry::Value& value) {
  return Event{.kind = EventKind::vniIs, .flag = value.instantiated, .vni = vniOf(entry.name)};
}

std::optional<Event> eventOf(const VlanVni& map, const VlanVni::Value& value) {
  return Event{
      .vlan = map.vlan.value(), .kind = EventKind::mapIs, .vni = value.value(), .vti = map.intf};
}

std::optional<Event> eventOf(const VlanVniTables& map, const VlanVniTables::Value&) {
  return Event{.kind = EventKind::mapIs, .vti = map.intf};
}

std::optional<Event> eventOf(const Vti& vti, const Vti::Value& value) {
  std::uint32_t parts = 0;
  if (const auto mode = value.controllerClientMode)
    parts |= *mode ? VtiPart::controllerMode : VtiPart::noControllerMode;
  if (const auto learning = value.datapathLearning)
    parts |= *learning ? VtiPart::learning : VtiPart::noLearning;
  if (value.localVtepAddr) parts |= VtiPart::address;
  if (value.vArpVtepAddr) parts |= VtiPart::vArpAddress;
  if (value.vccImportVlans) parts |= VtiPart::imports;
  return Event{.kind = EventKind::vtiIs, .vti = vti.intf, .number = parts};
}

std::optional<Event> eventOf(const HwBum&, const HwBum::Value& mode) {
  return Event{.kind = EventKind::bumMode, .number = numberOf(mode)};
}

std::optional<Event> eventOf(const MlagPairState&, const MlagPairState::Value& state) {
  return Event{.kind = EventKind::mlagState, .number = numberOf(state)};
}

std::optional<Event> eventOf(const MlagVtepTypeAddr&, const MlagVtepTypeAddr::Value& vtep) {
  return Event{.kind = EventKind::ownVtep, .vtep = vtep};
}

template <class Target>
std::optional<Event> eventOf(const Target&) {
  return std::nullopt;
}

std::optional<Event> eventOf(const ControllerHost& host) {
  return Event{.mac = host.mac, .kind = EventKind::withdrawn, .vni = vniOf(host.name)};
}

std::optional<Event> eventOf(const ControllerFlood& list) {
  return Event{.mac = list.mac, .kind = EventKind::notFlooded, .vni = vniOf(list.name)};
}

std::optional<Event> eventOf(const ControllerMultiPath& entry) {
  return Event{.mac = entry.mac, .kind = EventKind::noMultiPath, .vni = vniOf(entry.name)};
}

std::optional<Event> eventOf(const ControllerEntry& entry) {
  return Event{.kind = EventKind::vniDel, .vni = vniOf(entry.name)};
}

std::optional<Event> eventOf(const VlanVni& map) {
  return Event{.vlan = map.vlan.value(), .kind = EventKind::mapDel, .vti = map.intf};
}

std::optional<Event> eventOf(const VlanVniTables& map) {
  return Event{.kind = EventKind::mapDel, .vti = map.intf};
}

std::optional<Event> eventOf(const Vti& vti) {
  return Event{.kind = EventKind::vtiDel, .vti = vti.intf};
}

std::optional<Event> eventOf(const HwBum&) { return Event{.kind = EventKind::bumMode}; }

std::optional<Event> eventOf(const MlagPairState&) { return Event{.kind = EventKind::mlagState}; }

template <class Target>
std::optional<Event> eventOf(const Set<Target>& set) {
  return eventOf(set.target, set.value);
}

template <class Target>
std::optional<Event> eventOf(const Del<Target>& del) {
  return eventOf(del.target);
}

}  // namespace

class Witness::Watch final : public Moru::Machine {
 public:
  explicit Watch(const Witness& witness) : witness_(witness) {
    const StateStore& store = witness.embedded_.store();
    hostsIs_(store.l2RibZepInput);
    viewIs_(store.zepStateClientView);
  }
  ~Watch() override { moruDoZombieReactors(true); }

  void tableIs(const Moru::Ptr<Vxlan::ReceivedHostTable const>& table) { tableIs_(table); }
  const Moru::Ptr<Vxlan::ReceivedHostTable const>& table() const { return table_(); }

 private:
  class MoruHosts : public Moru::Reactor<L2Rib::HostInput::NotifieeConst, Watch> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId, const void* key) override {
      machine()->witness_.hostChanged(*Moru::keyOf<&L2Rib::HostInput::host>(key));
    }
  };

  class MoruTable : public Moru::Reactor<Vxlan::ReceivedHostTable::NotifieeConst, Watch> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override {
      using Table = Vxlan::ReceivedHostTable;
      if (attribute == Moru::idOf<&Table::receivedEntry>)
        machine()->witness_.entryChanged(*Moru::keyOf<&Table::receivedEntry>(key));
    }
  };

  class MoruView
      : public Moru::Reactor<VxlanController::ZepStateClientViewV2::NotifieeConst, Watch> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId, const void*) override {
      machine()->witness_.convergenceChanged();
    }
  };

  const Witness& witness_;
  Moru::Input<MoruHosts> hosts_{this};
  Moru::Input<MoruHosts>::Is hostsIs_{hosts_};
  Moru::Input<MoruTable> table_{this};
  Moru::Input<MoruTable>::Is tableIs_{table_};
  Moru::Input<MoruView> view_{this};
  Moru::Input<MoruView>::Is viewIs_{view_};
};

Witness::Witness(const EmbeddedClient& embedded, const std::optional<Vorn::EthAddr>& mac,
                 std::function<Moment()> moment, Sinks sinks)
    : embedded_(embedded),
      mac_(mac),
      moment_(std::move(moment)),
      sinks_(std::move(sinks)),
      floodDests_(embedded.store().zepSde,
                  [this](const FloodDests::Change& change) {
                    if (isOf(change.mac))
                      tell({.mac = change.mac,
                            .vlan = change.vlan.value(),
                            .kind = change.isPresent ? EventKind::destIs : EventKind::destDel,
                            .vtep = change.vtep});
                  }),
      batches_(
          embedded, floodDests_, [this] { return moment_().at; },
          [this](const Batch& batch) {
            if (sinks_.batch) sinks_.batch(batch);
          }),
      watch_(Moru::create<Watch>(*this)) {}

Witness::~Witness() = default;

void Witness::comes(const Change& change) {
  std::visit(
      [this](const auto& each) {
        if constexpr (requires { each.target.mac; })
          if (!isOf(each.target.mac)) return;
        if (const auto event = eventOf(each)) tell(*event);
      },
      change);
}

// What the client has taken in while it was built could not be seen.
void Witness::clientChanged() {
  const auto& client = embedded_.client();
  tell({.kind = client ? EventKind::clientStarted : EventKind::clientStopped});
  watch_->tableIs(client ? client->hostTable() : nullptr);
  if (!client) return;
  for (const auto& [key, entry] : client->hostTable()->receivedEntry())
    if (isOf(key.mac)) tellReceived(entry);
}

void Witness::tell(Event event) const {
  const Moment moment = moment_();
  event.at = moment.at;
  event.line = moment.line;
  if (event.kind == EventKind::dropped || event.kind == EventKind::removed ||
      event.kind == EventKind::destDel)
    event.flag = batches_.isInBatch();
  sinks_.event(event);
}

void Witness::tellReceived(const Vxlan::ReceivedEntry& entry) const {
  tell({.mac = entry.key.mac,
        .vlan = entry.key.vlan.value(),
        .kind = EventKind::received,
        .flag = entry.markedForDel,
        .vtep = entry.vtepAddr.ip4(),
        .vti = entry.vtiIntfId});
}

void Witness::entryChanged(const Bridging::MacVlanPair& key) const {
  if (!isOf(key.mac)) return;
  const auto* const entry = watch_->table()->receivedEntry().find(key);
  if (entry != nullptr)
    tellReceived(*entry);
  else
    tell({.mac = key.mac, .vlan = key.vlan.value(), .kind = EventKind::dropped});
}

void Witness::hostChanged(const Bridging::MacVlanPair& key) const {
  if (!isOf(key.mac)) return;
  const auto* const host = embedded_.store().l2RibZepInput->host().find(key);
  if (host == nullptr)
    return tell({.mac = key.mac, .vlan = key.vlan.value(), .kind = EventKind::removed});
  tell({.mac = key.mac,
        .vlan = key.vlan.value(),
        .kind = EventKind::copied,
        .vtep = host->dest.vtepAddr(0).ip4()});
}

void Witness::convergenceChanged() const {
  const bool isConverging = embedded_.store().zepStateClientView->convergenceInProgress();
  tell({.kind = isConverging ? EventKind::converging : EventKind::converged});
}

}  // namespace Agent
