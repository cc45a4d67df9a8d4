#include "agent/report/Recorder.h"

#include <utility>

#include "agent/view/Snapshot.h"

namespace Agent {

void Recorder::turnEnded(const Witness::Moment& moment, const EmbeddedClient& embedded) {
  const StateStore& store = embedded.store();
  const auto& client = embedded.client();
  const auto& status = store.zepConvergenceStatus;
  collector_.turnEnded(
      moment,
      {store.l2RibZepInput->host().size(), client ? client->hostTable()->markedForDelCount() : 0,
       status->unicastDeferredDeletionInProgress(), status->bumDeferredDeletionInProgress()});
}

Pieces Recorder::data(ReportHead head, const EmbeddedClient& embedded) const {
  for (const auto& [vlan, vni] : vlanToVni(*embedded.store().vlanVniMaps))
    head.vnis.emplace(vlan, vni.value());
  return dataText(std::move(head), collector_.data());
}

}  // namespace Agent
