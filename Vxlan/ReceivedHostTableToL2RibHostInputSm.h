// Mirrors the received host table into the layer-2 RIB.
//
//   ReceivedHostTable (receivedEntry) ──> ReceivedHostTableToL2RibHostInputSm ──> L2Rib::HostInput
//
// Event source: a change of one entry of the table. Once initialized, the host input holds what the
// table holds; an entry that is marked for deletion stays in both until it leaves the table.
#pragma once

#include "framework/Moru/Children.h"
#include "framework/Moru/Input.h"
#include "model/L2Rib/HostInput.h"
#include "model/Vxlan/ReceivedHostTable.h"

namespace Vxlan {

class ReceivedHostTableToL2RibHostInputSm final : public Moru::Machine {
 public:
  // Reads the table, and is the only one to write the host input. Where one of the two is absent it
  // writes nothing.
  ReceivedHostTableToL2RibHostInputSm(const Moru::Ptr<ReceivedHostTable const>& receivedHostTable,
                                      const Moru::Ptr<L2Rib::HostInput>& l2RibZepInput);
  ~ReceivedHostTableToL2RibHostInputSm() override;

  // Throws NameInUseException unless the machine was made from these.
  void constructorCheck(const Moru::Ptr<ReceivedHostTable const>& receivedHostTable,
                        const Moru::Ptr<L2Rib::HostInput>& l2RibZepInput) const;

  class MoruReceivedHostTable : public Moru::Reactor<ReceivedHostTable::NotifieeConst,
                                                     ReceivedHostTableToL2RibHostInputSm> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
    void moru_handleReceivedHostTable_receivedEntry(Bridging::MacVlanPair key);
  };

  Moru::Input<MoruReceivedHostTable> receivedHostTable{this};
  Moru::Input<MoruReceivedHostTable>::Is receivedHostTableIs{receivedHostTable};
  Moru::Input<MoruReceivedHostTable>::Del receivedHostTableDel{receivedHostTable};

  const Moru::Ptr<L2Rib::HostInput>& l2RibZepInput() const { return l2RibZepInput_; }

  void handleInitialized();

  // One entry.
  void handleReceivedHostEntry(Bridging::MacVlanPair key);

  // All: what the table lacks goes from the host input, then every entry is written anew.
  void handleReceivedHostEntry();

 private:
  void deleteStaleHosts(const ReceivedHostTable& table);

  const Moru::Ptr<L2Rib::HostInput> l2RibZepInput_;
};

Moru::Ptr<ReceivedHostTableToL2RibHostInputSm> receivedHostTableToL2RibHostInputSmFactory(
    const Moru::Ptr<ReceivedHostTable const>& receivedHostTable,
    const Moru::Ptr<L2Rib::HostInput>& l2RibZepInput);

}  // namespace Vxlan
