// How VxlanControllerClientSm takes back what it has written: hosts that are withdrawn, at once or
// by a mark, and the two runs that delete in batches what a convergence has left stale.
#include "Vxlan/Clocks.h"
#include "Vxlan/FloodSets.h"
#include "Vxlan/Trace.h"
#include "Vxlan/VxlanControllerClientSm.h"
#include "Vxlan/Walk.h"
#include "framework/Moru/Assert.h"
#include "model/Vxlan/HostWalk.h"

namespace Vxlan {

// --- Received hosts ---

// The host stays in the layer-2 RIB. One that is marked already is left alone, so that it counts
// once, however often the controller takes it back.
void VxlanControllerClientSm::deferDeleteReceivedTableEntry(Bridging::MacVlanPair key) {
  const auto table = Moru::held(hostTable_);
  const ReceivedEntry entry = table ? table->receivedEntry(key) : ReceivedEntry();
  if (!entry || entry.markedForDel) return;
  MORU_TRACE(8, "defer delete of ", key, " old vtep: ", entry.vtepAddr);
  table->mark(key);
  MORU_TRACE(8, "new marked for deletion count ", table->markedForDelCount());
}

void VxlanControllerClientSm::deleteReceivedTableEntry(Bridging::MacVlanPair key) {
  MORU_TRACE(8, " deleting ", key);
  const auto table = Moru::held(hostTable_);
  if (!table) return;
  // The count before the entry: a run that is told of the removal must see how much is left.
  if (table->unmark(key))
    MORU_TRACE(8, " new marked for deletion count ", table->markedForDelCount());
  table->receivedEntryDel(key);
}

void VxlanControllerClientSm::deleteRemoteMacFromController(Bridging::VlanId vlan, bool deferDel) {
  if (!initialized()) return;
  MORU_TRACE(8, "deleteRemoteMacFromController vlanId ", vlan, " deferDel ", deferDel);
  if (!hostTable_) return;
  // At the cost of the VLAN's hosts, and not of the table.
  for (auto host = hostsOfVlan(hostTable_, l2RibZepInput_, vlan); host; ++host) {
    MORU_TRACE(8, host.key().mac, " Vlan: ", vlan, " deferDel ", deferDel);
    if (deferDel)
      deferDeleteReceivedTableEntry(host.key());
    else
      deleteReceivedTableEntry(host.key());
  }
}

// --- Deferred deletion of hosts ---

void VxlanControllerClientSm::MoruUnicastDeferredDeleteClock::onAttribute(
    Moru::AttributeId attribute, const void*) {
  switch (attribute) {
    case Moru::Clock::timeMinId:
      forward(&MoruUnicastDeferredDeleteClock::moru_handleUnicastDeferredDeleteClock_timeMin);
  }
}

void VxlanControllerClientSm::MoruUnicastDeferredDeleteClock::
    moru_handleUnicastDeferredDeleteClock_timeMin() {
  machine()->processUnicastDeferredDeletes();
}

void VxlanControllerClientSm::processUnicastDeferredDeletes() {
  const auto table = Moru::held(hostTable_);
  if (!initialized() || !table) return;
  MORU_TRACE(8, " init ", initialized(), " convergence state ", convergenceInProgress(),
             " marked for del count ", table->markedForDelCount());
  if (convergenceInProgress()) {
    // The end of that convergence arms the clock again.
    MORU_TRACE(8, " called but nothing to do - korvo rebooted again?");
    return;
  }
  if (table->markedForDelCount() == 0) {
    endUnicastDeferredDeletes();
    MORU_TRACE(8, " no markedForDel entries");
    return;
  }
  if (unicastDeferredDeleteBookmark_ != Bridging::MacVlanPair())
    MORU_TRACE(8, " starting at bookmark ", unicastDeferredDeleteBookmark_.mac, " vlan ",
               unicastDeferredDeleteBookmark_.vlan);
  else
    MORU_TRACE(8, " no bookmark. start fresh");
  // The default bookmark is the smallest key: the first entry follows. So does the next one, where
  // the bookmarked entry has gone.
  auto entry = hostsFrom(table, l2RibZepInput_, unicastDeferredDeleteBookmark_);
  MORU_TRACE(8, " initial count ", table->markedForDelCount());
  const double deadline = now() + maxProcessTime_;
  while (table->markedForDelCount() != 0) {
    if (!entry) {
      MORU_TRACE(8, " reached end, resume from first entry");
      entry = hostsFrom(table, l2RibZepInput_, Bridging::MacVlanPair());
      Moru::assertThat(static_cast<bool>(entry), "iter");
    }
    // Read before every entry, marked or not: to look at entries takes time, too.
    const double time = now();
    if (time >= deadline) {
      unicastDeferredDeleteBookmarkIs(entry.key());
      MORU_TRACE(8, " reschedule, resume later from ", entry.key().mac, " vlan ", entry.key().vlan,
                 " Remaining count ", table->markedForDelCount());
      // At the current time: that yields to whatever else waits, and adds no delay.
      arm(unicastDeferredDeleteClock, time);
      return;
    }
    // What the controller has announced again meanwhile has lost its mark, and is passed over.
    if (entry.value().markedForDel) {
      deleteReceivedTableEntry(entry.key());
      if (table->markedForDelCount() == 0) break;
    }
    ++entry;
  }
  // Two texts, each in its own place, that tools on either side look for.
  MORU_TRACE_STREAM(8, " unicast mac deferred delete complete.");
  MORU_TRACE_RING(8, " unicast mac deferred del complete");
  endUnicastDeferredDeletes();
}

void VxlanControllerClientSm::endUnicastDeferredDeletes() {
  unicastDeferredDeleteBookmarkIs(Bridging::MacVlanPair());
  unicastDeferredDeletionInProgressIs(false);
}

// --- Deferred deletion of flood sets ---

void VxlanControllerClientSm::MoruBumDeferredDeleteClock::onAttribute(Moru::AttributeId attribute,
                                                                      const void*) {
  switch (attribute) {
    case Moru::Clock::timeMinId:
      forward(&MoruBumDeferredDeleteClock::moru_handleBumDeferredDeleteClock_timeMin);
  }
}

void VxlanControllerClientSm::MoruBumDeferredDeleteClock::
    moru_handleBumDeferredDeleteClock_timeMin() {
  machine()->processBumDeferredDeletes();
}

// Whether what stands in the flood sets is what the controller asks for, rather than the MLAG peer
// or nobody.
bool VxlanControllerClientSm::ownsFloodSets() const {
  return !zepMlagBumStatusSm() && localBumReplicationMode() == BumReplicationMode::controller;
}

void VxlanControllerClientSm::processBumDeferredDeletes() {
  const auto sde = Moru::held(zepSde_);
  const std::size_t floodLists = sde ? sde->vlanFloodSet().size() : 0;
  MORU_TRACE(8, " init: ", initialized(), " convergence in progress: ", convergenceInProgress(),
             " vlan flood list count: ", floodLists,
             " bum replication mode: ", localBumReplicationMode());
  if (!initialized() || convergenceInProgress()) return;  // the end of which arms the clock again
  if (floodLists == 0 || !ownsFloodSets()) {
    MORU_TRACE(8, " no bumDeferredDeletion ");
    endBumDeferredDeletes();
    return;
  }
  const double deadline = now() + maxProcessTime_;
  if (bumDeferredDeleteBookmarkValid_)
    MORU_TRACE(8, " starting at bookmark vlan ", bumDeferredDeleteBookmark_);
  else
    MORU_TRACE(8, " no bookmark. start fresh");
  const Bridging::VlanId startKey = beginBumBatch();
  for (unsigned number = startKey.value(); bumRun_.vlansLeft != 0; ++number, --bumRun_.vlansLeft) {
    if (number > Bridging::VlanId::max) {
      MORU_TRACE(8, " reached end, resume from first entry", " startKey vlan ", startKey);
      number = Bridging::VlanId::min;
    }
    const Bridging::VlanId vlan(number);
    const auto vlanFloodSet = sde->vlanFloodSet(vlan);
    if (!vlanFloodSet) continue;  // a number without flood sets costs nothing, nor a reading
    const double time = now();
    if (time >= deadline) {
      bookmarkBumRun(vlan);
      MORU_TRACE(8, " reschedule, resume later from vlan ", vlan, " Deleted count ",
                 bumRun_.deleted);
      arm(bumDeferredDeleteClock, time);
      return;
    }
    MORU_TRACE(8, " iter vlan ", vlan);
    const FloodDemand demand = floodDemandOf(vlan);
    if (demand.empty()) {
      MORU_TRACE(8, " deleting vlan ", vlan);
      sde->vlanFloodSetDel(vlan);
      ++bumRun_.deleted;
    } else {
      for (const auto& [mac, floodSet] : vlanFloodSet->floodSet()) {
        if (!demand.has(mac)) {
          MORU_TRACE(8, " deleting vlan ", vlan, " mac ", mac);
          vlanFloodSet->floodSetDel(mac);
          ++bumRun_.deleted;
          continue;
        }
        // More than a list asks for is what this run is here for; less should not be.
        for (const auto& count : demand.destCounts(*floodSet)) {
          if (count.dests > count.vteps)
            MORU_TRACE(8, " flood dest count mismatch ", count.dests, " > ", count.vteps);
          if (count.dests < count.vteps) MORU_TRACE(8, count.atLeastText());
        }
        bumRun_.deleted += sweepDests(
            floodSet, [&mac = mac, &demand](const auto& dest) { return demand.has(mac, dest); });
        for (const auto& count : demand.destCounts(*floodSet))
          if (count.dests != count.vteps) MORU_TRACE(8, count.equalText());
      }
    }
    // Who watches what was deleted may have had the controller begin to converge: that has ended
    // the run, and its end will begin another. Or the flood sets have become somebody else's: then
    // there is nothing left to do.
    if (bumRun_.vlansLeft == 0) return;
    if (!ownsFloodSets()) break;
  }
  MORU_TRACE(8, " flood list deferred delete complete. Deleted ", bumRun_.deleted);
  endBumDeferredDeletes();
}

// The VLAN to begin with. A run goes on from the bookmark that it has set itself; any other begins
// a whole round from there, and none at the first VLAN.
Bridging::VlanId VxlanControllerClientSm::beginBumBatch() {
  const Bridging::VlanId start =
      bumDeferredDeleteBookmarkValid_ ? bumDeferredDeleteBookmark_ : Bridging::VlanId();
  const bool goesOn = bumDeferredDeleteBookmarkValid_ && bumRun_.bookmark == start;
  if (!goesOn || bumRun_.vlansLeft == 0) bumRun_ = {start, Bridging::VlanId::max, 0};
  return start;
}

void VxlanControllerClientSm::bookmarkBumRun(Bridging::VlanId vlan) {
  bumRun_.bookmark = vlan;
  bumDeferredDeleteBookmarkIs(vlan);
  bumDeferredDeleteBookmarkValidIs(true);
}

void VxlanControllerClientSm::endBumDeferredDeletes() {
  bumRun_ = {};
  bumDeferredDeleteBookmarkValidIs(false);
  bumDeferredDeletionInProgressIs(false);
}

FloodDemand VxlanControllerClientSm::floodDemandOf(Bridging::VlanId vlan) const {
  FloodDemand::PerVniSms machines;
  for (const auto& [intf, map] : vlanVniMapsOf(vlanVniMaps())) {
    const VniSourcePair vsp = map->vlanToVsp(vlan);
    if (!vsp) continue;
    if (auto machine = zepPerVniFdbStatusSm(vsp.vni())) machines.push_back(std::move(machine));
  }
  return FloodDemand(std::move(machines));
}

}  // namespace Vxlan
