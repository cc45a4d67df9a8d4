// The trace statements of the client that tell of hosts, and of what happens around them.
#pragma once

#include <cstdint>

#include "framework/Ringlog/Site.h"

namespace Agent {

enum class HostStatement : std::uint8_t {
  other,
  // Of a MAC address, which they have as a value.
  handling,      // what the controller has of it is looked at
  withdrawal,    // the controller has it no more
  announcement,  // it is taken
  mark,          // its deletion is deferred
  deletion,      // it goes, if it is there
  cleanup,       // it goes with its VLAN, deferred or not
  mirror,        // its entry has changed, and the RIB follows
  // Behind `handling`, of the same one.
  mapped,     // its VNI has a VLAN in a VTI
  notMapped,  // it has none
  ownVtep,    // it is not taken: the VTEP is ours
  stale,      // and what the table has of it is deleted
  // Of none.
  vniCleanup,  // a VNI is no longer followed: what it has goes
  learning,    // the data path learns: all goes
  convergence,
  clientStart,
  staleCopies,  // what stands in the RIB and not in the table goes
  modes,
  vniAdded,
  vniNotInstantiated,
  vniDeleted
};

constexpr bool namesMac(HostStatement statement) {
  return statement >= HostStatement::handling && statement <= HostStatement::mirror;
}
constexpr bool isOfHandling(HostStatement statement) {
  return statement >= HostStatement::mapped && statement <= HostStatement::stale;
}

// By method and labels.
HostStatement hostStatementOf(const Ringlog::Site& site);

}  // namespace Agent
