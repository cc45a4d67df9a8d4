#include "Vxlan/ReceivedHostTableToL2RibHostInputSm.h"

#include "Vxlan/Trace.h"

namespace Vxlan {

namespace {

// The host of an entry, marked or not: a host that waits for its deletion is forwarded to as
// before.
L2Rib::Host hostOf(const ReceivedEntry& entry) {
  L2Rib::Host host;
  host.key = entry.key;
  host.moveCount = entry.moveCount;
  host.kind = entry.hostKind;
  host.time = entry.time;
  host.source = entry.source;
  host.dest = L2Rib::CiDest(L2Rib::DestType::vtep);
  host.dest.intfIdIs(entry.vtiIntfId);
  host.dest.vtepAddrIs(0, entry.vtepAddr);
  return host;
}

}  // namespace

ReceivedHostTableToL2RibHostInputSm::ReceivedHostTableToL2RibHostInputSm(
    const Moru::Ptr<ReceivedHostTable const>& receivedHostTable,
    const Moru::Ptr<L2Rib::HostInput>& l2RibZepInput)
    : l2RibZepInput_(l2RibZepInput) {
  receivedHostTableIs(receivedHostTable);
  handleInitialized();
}

ReceivedHostTableToL2RibHostInputSm::~ReceivedHostTableToL2RibHostInputSm() {
  moruDoZombieReactors(true);
}

void ReceivedHostTableToL2RibHostInputSm::constructorCheck(
    const Moru::Ptr<ReceivedHostTable const>& receivedHostTable,
    const Moru::Ptr<L2Rib::HostInput>& l2RibZepInput) const {
  Moru::parameterCheck("_receivedHostTable", this->receivedHostTable(), receivedHostTable);
  Moru::parameterCheck("_l2RibZepInput", l2RibZepInput_, l2RibZepInput);
}

void ReceivedHostTableToL2RibHostInputSm::MoruReceivedHostTable::onAttribute(
    Moru::AttributeId attribute, const void* key) {
  switch (attribute) {
    case Moru::idOf<&ReceivedHostTable::receivedEntry>:
      forward(&MoruReceivedHostTable::moru_handleReceivedHostTable_receivedEntry,
              Moru::keyOf<&ReceivedHostTable::receivedEntry>(key));
  }
}

void ReceivedHostTableToL2RibHostInputSm::MoruReceivedHostTable::
    moru_handleReceivedHostTable_receivedEntry(Bridging::MacVlanPair key) {
  machine()->handleReceivedHostEntry(key);
}

void ReceivedHostTableToL2RibHostInputSm::handleInitialized() {
  MORU_TRACE(8, " Init? ", initialized());
  if (initialized()) return;
  initializedIs(true);
  handleReceivedHostEntry();
}

void ReceivedHostTableToL2RibHostInputSm::handleReceivedHostEntry(Bridging::MacVlanPair key) {
  MORU_TRACE(8, " key ", key);
  if (!initialized() || !receivedHostTable() || !l2RibZepInput_) return;
  const ReceivedEntry* const entry = receivedHostTable()->receivedEntry().find(key);
  if (entry == nullptr || !*entry)
    l2RibZepInput_->hostDel(key);
  else
    l2RibZepInput_->hostIs(hostOf(*entry));
}

// What is stale goes before anything is written, so that the host input never holds a key that the
// table has not. Every entry is written, identical ones too: whoever mirrors the host input in turn
// may count on it.
void ReceivedHostTableToL2RibHostInputSm::handleReceivedHostEntry() {
  MORU_TRACE(8);
  if (!initialized()) return;
  const auto table = Moru::held(receivedHostTable());
  MORU_TRACE(8, " deleting L2Rib input entries that are not in received host table");
  if (table && l2RibZepInput_) deleteStaleHosts(*table);
  MORU_TRACE(8, " updating L2Rib input based on existing entries in received host table");
  if (!table) return;
  for (auto entry = table->receivedEntry().begin(); entry; ++entry)
    handleReceivedHostEntry(entry.key());
}

// The record that stands for no host is nobody's, and stays.
void ReceivedHostTableToL2RibHostInputSm::deleteStaleHosts(const ReceivedHostTable& table) {
  for (auto host = l2RibZepInput_->host().begin(); host; ++host)
    if (!!host.value() && !table.receivedEntry().contains(host.key()))
      l2RibZepInput_->hostDel(host.key());
}

Moru::Ptr<ReceivedHostTableToL2RibHostInputSm> receivedHostTableToL2RibHostInputSmFactory(
    const Moru::Ptr<ReceivedHostTable const>& receivedHostTable,
    const Moru::Ptr<L2Rib::HostInput>& l2RibZepInput) {
  return Moru::create<ReceivedHostTableToL2RibHostInputSm>(receivedHostTable, l2RibZepInput);
}

}  // namespace Vxlan
