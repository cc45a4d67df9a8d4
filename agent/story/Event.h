// What happens to the hosts and flood sets of a client, as plain data: what the controller says,
// what the client makes of it, and what becomes of that in the kernel. A story is put together of
// these (Story.h), a picture is drawn of them.
#pragma once

#include <cstdint>

#include "model/Vorn/EthAddr.h"
#include "model/Vorn/IntfId.h"
#include "model/Vorn/IpAddr.h"

namespace Agent {

enum class EventKind : std::uint8_t {
  // What the controller says of a MAC in a VNI.
  announced,    // mac, vni, vtep, number: the count of its moves
  withdrawn,    // mac, vni; number: 1 where it had been announced before all events
  flooded,      // a flood list: mac, vni, number of VTEPs
  notFlooded,   // the list went: mac, vni
  multiPath,    // a multipath entry: mac, vni, number of VTEPs
  noMultiPath,  // the entry went: mac, vni

  // What the client makes of it in a VLAN.
  received,  // in the host table: mac, vlan, vti, vtep; flag: marked for deletion
  dropped,   // out of the host table: mac, vlan; flag: by the deferred deletion
  copied,    // in the layer-2 RIB: mac, vlan, vtep
  removed,   // out of it: mac, vlan; flag: by the deferred deletion
  ignored,   // not taken, as the VTEP is our own: mac, vlan, vni, vtep; a journal does not tell
  destIs,    // in a flood set of it: mac, vlan, vtep
  destDel,   // out of that: mac, vlan, vtep; flag: by the deferred deletion

  // What happens around them. No MAC.
  clientStarted,
  clientStopped,
  converging,  // the client views the controller so
  converged,
  vniIs,      // vni: the controller publishes it; flag: instantiated
  vniDel,     // vni: it does no longer
  mapIs,      // vti, vlan, vni; vlan and vni 0: several
  mapDel,     // vti, vlan 0: all
  vtiIs,      // vti; number: what of it, the sum of VtiPart
  vtiDel,     // vti
  bumMode,    // number: the replication mode of the hardware
  mlagState,  // number
  ownVtep,    // an address of the MLAG pair: vtep

  // What the live agent does, of a MAC in a VNI: the withdrawal gate, then the kernel.
  waiting,       // a withdrawal waits; flag: in a hold
  notWaiting,    // it has come back meanwhile
  programmed,    // vtep; 0.0.0.0: any of a group
  unprogrammed,  // vtep
  refused,       // by the kernel
  putBack,       // somebody else had changed or removed it
  // And of no MAC.
  holdBegan,
  holdEnded,
};

// What a change of a VTI sets, added up.
struct VtiPart {
  enum : std::uint8_t {
    controllerMode = 1,
    noControllerMode = 2,
    learning = 4,
    noLearning = 8,
    address = 16,
    vArpAddress = 32,
    imports = 64,
  };
};

struct Event {
  double at = 0;           // seconds of the recording, or of the running agent's facility
  std::uint64_t line = 0;  // of the recording, the one applied last; 0 where there is none
  Vorn::EthAddr mac{};
  std::uint16_t vlan = 0;  // 0: none
  EventKind kind{};
  bool flag = false;
  std::uint32_t vni = 0;  // 0: none
  Vorn::IpAddr vtep{};
  Vorn::IntfId vti{};
  std::uint32_t number = 0;

  friend bool operator==(const Event&, const Event&) = default;
};

// Whether events of the kind tell of a MAC.
constexpr bool hasMac(EventKind kind) {
  return kind <= EventKind::destDel || (kind >= EventKind::waiting && kind <= EventKind::putBack);
}

}  // namespace Agent
