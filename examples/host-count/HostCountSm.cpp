#include "examples/host-count/HostCountSm.h"

#include <utility>

#include "framework/Moru/Trace.h"

namespace Example {

inline constinit Moru::TraceFacility traceFacility{"Example"};

HostCountSm::HostCountSm(const Moru::Ptr<Vxlan::ReceivedHostTable const>& table,
                         Moru::Ptr<HostCounts> hostCounts)
    : hostCounts_(std::move(hostCounts)) {
  hostTableIs(table);
  publishClockIs(Moru::ActivityFacility::current()->clock());
  handleInitialized();
}

HostCountSm::~HostCountSm() { moruDoZombieReactors(true); }

void HostCountSm::MoruHostTable::onAttribute(Moru::AttributeId attribute, const void* key) {
  switch (attribute) {
    case Moru::idOf<&Vxlan::ReceivedHostTable::receivedEntry>:
      forward(&MoruHostTable::moru_handleHostTable_receivedEntry,
              Moru::keyOf<&Vxlan::ReceivedHostTable::receivedEntry>(key));
  }
}

void HostCountSm::MoruHostTable::moru_handleHostTable_receivedEntry(Bridging::MacVlanPair key) {
  machine()->handleReceivedEntry(key);
}

void HostCountSm::MoruPublishClock::onAttribute(Moru::AttributeId attribute, const void*) {
  switch (attribute) {
    case Moru::Clock::timeMinId:
      forward(&MoruPublishClock::moru_handlePublishClock_timeMin);
  }
}

void HostCountSm::MoruPublishClock::moru_handlePublishClock_timeMin() {
  machine()->handlePublishClock();
}

void HostCountSm::handleInitialized() {
  MORU_TRACE(8, " init? ", initialized());
  initializedIs(true);
  // A table tells of changes from now on; what stands in it already is for its reader to fetch.
  for (auto entry = hostTable()->receivedEntry().begin(); entry; ++entry)
    handleReceivedEntry(entry.key());
}

void HostCountSm::handleReceivedEntry(const Bridging::MacVlanPair& key) {
  if (!initialized()) return;
  const Vxlan::ReceivedEntry entry = hostTable()->receivedEntry(key);
  MORU_TRACE(8, " host ", key, " vtep ", entry.vtepAddr);
  moveHost(key, entry.vtepAddr);
  auto& clock = *publishClock.reactor();
  if (clock.timeMin() == Moru::Clock::never)
    clock.timeMinIs(Moru::ActivityFacility::current()->now() + publishInterval);
}

void HostCountSm::moveHost(const Bridging::MacVlanPair& key, const Vorn::IpGenAddr& vtep) {
  // The address that no VTEP has stands for no host here: of an entry that has gone, and of none
  // yet.
  const Vorn::IpGenAddr none;
  const Vorn::IpGenAddr before = vtepOfHost_.value(key);
  if (vtep == before) return;
  if (before != none) --*hostsOfVtep_.find(before);
  if (vtep != none) {
    hostsOfVtep_.is(vtep, hostsOfVtep_.value(vtep) + 1);
    vtepOfHost_.is(key, vtep);
  } else {
    vtepOfHost_.del(key);
  }
}

void HostCountSm::handlePublishClock() {
  MORU_TRACE(8, " hosts ", vtepOfHost_.size());
  for (auto vtep = hostsOfVtep_.begin(); vtep; ++vtep) {
    if (vtep.value() != 0) {
      hostCounts_->countIs(vtep.key(), vtep.value());
    } else {
      hostCounts_->countDel(vtep.key());
      hostsOfVtep_.del(vtep.key());  // the walk goes on from here
    }
  }
}

}  // namespace Example
