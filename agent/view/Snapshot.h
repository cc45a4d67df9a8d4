// A picture of what the client has made, at one moment: plain data that the views print and
// compare, and that stays as it is while the client goes on.
//
//   const auto snapshot = takeSnapshot("after-restart", 12.0, outputs, clientSnapshot(*client));
//
// What was handed to the client as absent is nullopt, and so is the client where none runs.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/store/EmbeddedClient.h"
#include "agent/view/Filter.h"
#include "framework/Moru/Ptr.h"
#include "model/Bridging/VlanId.h"
#include "model/L2Rib/FloodSet.h"
#include "model/L2Rib/FloodSetType.h"
#include "model/L2Rib/Host.h"
#include "model/L2Rib/HostInput.h"
#include "model/L2Rib/SourceDirEntry.h"
#include "model/Vorn/EthAddr.h"
#include "model/Vorn/IpGenAddr.h"
#include "model/Vxlan/ReceivedEntry.h"
#include "model/Vxlan/ReceivedHostTable.h"
#include "model/Vxlan/VlanVniMaps.h"
#include "model/Vxlan/VniExt.h"
#include "model/Vxlan/VxlanClientConvergenceStatus.h"
#include "model/VxlanController/ZepStateClientViewV2.h"

namespace Agent {

struct HostTableSnapshot {
  std::uint32_t markedForDelCount = 0;          // as the table says, not counted again
  std::vector<Vxlan::ReceivedEntry> entries{};  // by MAC, then VLAN
};

struct ClientSnapshot {
  bool vxlanControllerClientMode = false;
  bool datapathLearningMode = false;
  std::vector<Bridging::VlanId> vccImportVlans{};  // ascending
  std::vector<Vxlan::VniExt> vnis{};               // with a machine of their own; ascending
  bool mlagBum = false;                            // whether there is a machine for the peer's BUM
  HostTableSnapshot hostTable{};
};

struct FloodSetSnapshot {
  Vorn::EthAddr mac;
  L2Rib::FloodSetType type = L2Rib::FloodSetType::none;
  // The destinations that are present, their flag being true.
  std::vector<Vorn::IpGenAddr> vteps{};  // ascending
  std::vector<std::string> others{};     // what is no VTEP, as a text: "tunnel 7"; ascending

  bool hasDests() const { return !vteps.empty() || !others.empty(); }

  friend bool operator==(const FloodSetSnapshot&, const FloodSetSnapshot&) = default;
};

// A flood set with its VLAN; of a VLAN that has an entry and no flood set in it, the VLAN alone.
struct VlanFloodSetSnapshot {
  Bridging::VlanId vlan;
  std::optional<FloodSetSnapshot> floodSet{};

  // What they are sorted by: a VLAN alone comes first.
  using Key = std::pair<Bridging::VlanId, std::optional<Vorn::EthAddr>>;
  Key key() const { return {vlan, floodSet ? std::optional(floodSet->mac) : std::nullopt}; }

  friend bool operator==(const VlanFloodSetSnapshot&, const VlanFloodSetSnapshot&) = default;
};

struct ConvergenceSnapshot {
  bool unicastDeferredDeletionInProgress = false;
  bool bumDeferredDeletionInProgress = false;
};

using VlanToVni = std::map<Bridging::VlanId, Vxlan::VniExt>;

// Where a picture is from: behind a line of a journal, or of a running agent.
struct Origin {
  std::string source{};      // file or socket, where two are compared; else empty
  std::string journal{};     // empty: of a running agent
  std::uint64_t line = 0;    // of the journal, the one applied last; 0 before the first
  std::string switchName{};  // that the running agent follows
};

struct Snapshot {
  std::string label{};
  double at = 0;  // seconds from the start of the recording
  std::optional<ClientSnapshot> client{};
  std::optional<std::vector<L2Rib::Host>> hosts{};               // by MAC, then VLAN
  std::optional<std::vector<VlanFloodSetSnapshot>> floodSets{};  // by VLAN, then MAC
  std::optional<bool> convergenceInProgress{};                   // as the client views it
  std::optional<ConvergenceSnapshot> convergenceStatus{};
  std::optional<VlanToVni> vlanToVni{};  // to read the rest by: no part of what the client has made
  Origin origin{};
  Filter filter{};  // that has left out what is not there
};

FloodSetSnapshot snapshotOf(const L2Rib::FloodSet& floodSet);

// The client's outputs; null where one was handed over as absent.
struct Outputs {
  Moru::Ptr<L2Rib::HostInput const> hosts{};
  Moru::Ptr<L2Rib::SourceDirEntry const> floodSets{};
  Moru::Ptr<VxlanController::ZepStateClientViewV2 const> clientView{};
  Moru::Ptr<Vxlan::VxlanClientConvergenceStatus const> convergenceStatus{};
};

// Copies all that the outputs hold, in the orders given above; `client` is nullopt if none runs.
Snapshot takeSnapshot(std::string label, double at, const Outputs& outputs,
                      std::optional<ClientSnapshot> client);

// Of a store and the client over it, with the VNIs of its VLANs.
Snapshot takeSnapshot(std::string label, double at, const EmbeddedClient& embedded);

// The VNI of each VLAN that has one. Of several VTIs that map a VLAN, the first counts.
VlanToVni vlanToVni(const Vxlan::VlanVniMaps& maps);

std::optional<Vxlan::VniExt> vniOf(const VlanToVni& vlanToVni, const Bridging::VlanId& vlan);

}  // namespace Agent
