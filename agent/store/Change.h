// The changes that a journal makes to the state store, one struct for each thing that a path names.
// The struct is the path's own parts; `Value` is what is written there.
//
// VLANs, VNIs and addresses are already what the data model takes: a change that has been made can
// be written. Lists are in ascending order, with nothing twice.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "framework/Moru/Name.h"
#include "model/Bridging/VlanId.h"
#include "model/Bridging/VlanIdOrNone.h"
#include "model/L2Rib/FloodSetType.h"
#include "model/Mlag/MlagState.h"
#include "model/Vorn/EthAddr.h"
#include "model/Vorn/IntfId.h"
#include "model/Vorn/IpAddr.h"
#include "model/Vxlan/BumReplicationMode.h"
#include "model/Vxlan/VniExt.h"
#include "model/Vxlan/VtepType.h"
#include "model/VxlanController/HostKind.h"

namespace Agent {

template <class Key, class Value>
using Table = std::vector<std::pair<Key, Value>>;

// VTEPs, each a member of the list when its flag is true.
using VtepFlags = Table<Vorn::IpAddr, bool>;

struct Vti {
  // Only what is given changes.
  struct Value {
    std::optional<bool> controllerClientMode;
    std::optional<bool> datapathLearning;
    std::optional<Vorn::IpAddr> localVtepAddr;
    std::optional<Vorn::IpAddr> vArpVtepAddr;
    std::optional<std::vector<Bridging::VlanId>> vccImportVlans;
  };
  Vorn::IntfId intf;
};

struct VlanVni {
  using Value = Vxlan::VniExt;
  Vorn::IntfId intf;
  Bridging::VlanId vlan;
};

// The two directions of a whole map, which may disagree.
struct VlanVniTables {
  struct Value {
    std::optional<Table<Bridging::VlanId, Vxlan::VniExt>> vlanToVsp;
    std::optional<Table<Vxlan::VniExt, Bridging::VlanIdOrNone>> vniToVlan;
  };
  Vorn::IntfId intf;
};

struct ControllerEntry {
  enum class Type : std::uint8_t {
    vni,    // a VNI's tables
    other,  // an entity that the client does not know
  };
  struct Value {
    bool instantiated = true;
    Type type = Type::vni;
  };
  Moru::Name name;
};

// The name of a VNI's entry.
inline Moru::Name entryName(const Vxlan::VniExt& vni) { return std::to_string(vni.value()); }

struct ControllerHost {
  struct Value {
    Vorn::IpAddr vtep;
    std::uint32_t moveCount = 0;
    VxlanController::HostKind hostKind = VxlanController::HostKind::standard;
  };
  Moru::Name name;
  Vorn::EthAddr mac;
};

struct ControllerMultiPath {
  using Value = std::vector<Vorn::IpAddr>;
  Moru::Name name;
  Vorn::EthAddr mac;
};

struct ControllerFlood {
  struct Value {
    VtepFlags vteps;
    bool replace = false;  // by a new list, where there is one
  };
  Moru::Name name;
  Vorn::EthAddr mac;
};

struct ControllerState {
  struct Value {
    bool convergenceInProgress = false;
    bool instantiated = true;
  };
  Moru::Name name;
};

struct HwBum {
  using Value = Vxlan::BumReplicationMode;
};

struct MlagPairState {
  using Value = Mlag::MlagState;
};

struct PeerBum {
  using Value = Vxlan::BumReplicationMode;
};

struct PeerVlanFlood {
  struct Value {};
  Bridging::VlanId vlan;
};

struct FloodSetValue {
  L2Rib::FloodSetType type = L2Rib::FloodSetType::none;
  VtepFlags dests;
};

struct PeerFlood {
  using Value = FloodSetValue;
  Bridging::VlanId vlan;
  Vorn::EthAddr mac;
};

struct MlagVtepTypeAddr {
  using Value = Vorn::IpAddr;
  Vxlan::VtepType type{};
};

struct RibHost {
  struct Value {
    Vorn::IpAddr vtep;
    Vorn::IntfId vti;
    std::uint32_t moveCount = 0;
    double time = 0;  // seconds
    std::uint32_t hostKind = 16;
    std::uint32_t source = 10;
  };
  Vorn::EthAddr mac;
  Bridging::VlanId vlan;
};

struct RibFlood {
  using Value = FloodSetValue;
  Bridging::VlanId vlan;
  Vorn::EthAddr mac;
};

template <class Target>
struct Set {
  Target target;
  typename Target::Value value;
};

template <class Target>
struct Del {
  Target target;
};

// Set<Vti>, Del<Vti>, and so on.
template <class... Targets>
using ChangeOf = std::variant<Set<Targets>..., Del<Targets>...>;

// All that a path may name.
template <template <class...> class Of>
using OfTargets = Of<ControllerHost, ControllerFlood, ControllerMultiPath, ControllerEntry,
                     ControllerState, VlanVni, VlanVniTables, Vti, HwBum, MlagPairState, PeerBum,
                     PeerFlood, PeerVlanFlood, MlagVtepTypeAddr, RibHost, RibFlood>;

using Change = OfTargets<ChangeOf>;

}  // namespace Agent
