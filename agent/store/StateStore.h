// The state store of a replay: all entities that a client reads and writes, in memory. It outlives
// the clients that are built over it.
//
// Changes are written in a fixed order, each write notifying before the next: what a client sees of
// a change is the same in every run. A new entity is filled before it is added to its directory or
// collection; only a controller entry that is made for its first host or list comes before them. In
// a list that is given whole, members whose value stays are not written again.
#pragma once

#include "Vxlan/ClientInputs.h"
#include "agent/store/Change.h"
#include "agent/store/Inputs.h"
#include "framework/Moru/Dir.h"
#include "framework/Moru/Ptr.h"
#include "model/L2Rib/HostInput.h"
#include "model/L2Rib/SourceDirEntry.h"
#include "model/Mlag/Status.h"
#include "model/Mlag/VxlanStatus.h"
#include "model/Vxlan/VlanVniMaps.h"
#include "model/Vxlan/VtiStatusDir.h"
#include "model/Vxlan/VxlanClientConvergenceStatus.h"
#include "model/Vxlan/VxlanHwStatusDir.h"
#include "model/VxlanController/VniFdbStatusV2.h"
#include "model/VxlanController/ZepStateClientViewV2.h"

namespace Agent {

class StateStore {
  template <class E>
  using Ptr = Moru::Ptr<E>;

 public:
  // The MLAG peer's source directory entry is there, empty; BUM statuses are not.
  StateStore();

  // Makes a change. Removing what is not there does nothing. Throws InputError, and writes
  // nothing, for a table of a controller entry whose entity is of another type. What a watcher
  // throws passes through: the writes before it stay, the ones behind it are not made, and the
  // store takes further changes.
  void apply(const Change& change);

  // What a client is built over: all of the entities below, but for those that are to be absent.
  Vxlan::ClientInputs inputs(const InputSet& absent = {}) const;

  // Inputs. An entry of the controller status base directory is a VxlanController::VniFdbStatusV2
  // under the VNI's name, or of another type; one of the controller state base directory a
  // VxlanController::ZepStateV2.
  const Ptr<Vxlan::VtiStatusDir> vtiStatusDir;
  const Ptr<Moru::Dir> controllerStatusBaseDir;
  const Ptr<Vxlan::VxlanHwStatusDir> vxlanHwStatusDir;
  const Ptr<Mlag::Status> mlagStatus;
  const Ptr<Mlag::VxlanStatus> mlagVxlanStatus;
  const Ptr<Moru::Dir> zepStateBaseDir;
  const Ptr<Vxlan::VlanVniMaps> vlanVniMaps;

  // What the client writes.
  const Ptr<VxlanController::ZepStateClientViewV2> zepStateClientView;
  const Ptr<L2Rib::SourceDirEntry> zepSde;
  const Ptr<L2Rib::HostInput> l2RibZepInput;
  const Ptr<Vxlan::VxlanClientConvergenceStatus> zepConvergenceStatus;

 private:
  void set(const Vti& target, const Vti::Value& value);
  void set(const VlanVni& target, const VlanVni::Value& value);
  void set(const VlanVniTables& target, const VlanVniTables::Value& value);
  void set(const ControllerEntry& target, const ControllerEntry::Value& value);
  void set(const ControllerHost& target, const ControllerHost::Value& value);
  void set(const ControllerMultiPath& target, const ControllerMultiPath::Value& value);
  void set(const ControllerFlood& target, const ControllerFlood::Value& value);
  void set(const ControllerState& target, const ControllerState::Value& value);
  void set(const HwBum& target, const HwBum::Value& value);
  void set(const MlagPairState& target, const MlagPairState::Value& value);
  void set(const PeerBum& target, const PeerBum::Value& value);
  void set(const PeerVlanFlood& target, const PeerVlanFlood::Value& value);
  void set(const PeerFlood& target, const PeerFlood::Value& value);
  void set(const MlagVtepTypeAddr& target, const MlagVtepTypeAddr::Value& value);
  void set(const RibHost& target, const RibHost::Value& value);
  void set(const RibFlood& target, const RibFlood::Value& value);

  void del(const Vti& target);
  void del(const VlanVni& target);
  void del(const VlanVniTables& target);
  void del(const ControllerEntry& target);
  void del(const ControllerHost& target);
  void del(const ControllerMultiPath& target);
  void del(const ControllerFlood& target);
  void del(const ControllerState& target);
  void del(const HwBum& target);
  void del(const MlagPairState& target);
  void del(const PeerBum& target);
  void del(const PeerVlanFlood& target);
  void del(const PeerFlood& target);
  void del(const MlagVtepTypeAddr& target);
  void del(const RibHost& target);
  void del(const RibFlood& target);

  Ptr<VxlanController::VniFdbStatusV2> vniPresent(const Moru::Name& name) const;
  Ptr<VxlanController::VniFdbStatusV2> vniMade(const Moru::Name& name);

  const Ptr<L2Rib::SourceDirEntry> peerSourceDirEntry_;
};

}  // namespace Agent
