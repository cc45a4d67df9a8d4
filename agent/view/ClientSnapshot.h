// What is read of a running client for a snapshot. Of the client's machine only the accessors that
// are named below are needed, so any class that has them will do.
#pragma once

#include <algorithm>

#include "agent/view/Snapshot.h"

namespace Agent {

template <class Client>
ClientSnapshot clientSnapshot(const Client& client) {
  ClientSnapshot snapshot;
  snapshot.vxlanControllerClientMode = client.vxlanControllerClientMode();
  snapshot.datapathLearningMode = client.datapathLearningMode();
  for (auto vlan = client.vccImportVlans().begin(); vlan; ++vlan)
    snapshot.vccImportVlans.push_back(vlan.key());
  std::sort(snapshot.vccImportVlans.begin(), snapshot.vccImportVlans.end());
  for (auto vni = client.zepPerVniFdbStatusSm().begin(); vni; ++vni)
    snapshot.vnis.push_back(vni.key());
  std::sort(snapshot.vnis.begin(), snapshot.vnis.end());
  snapshot.mlagBum = client.zepMlagBumStatusSm() != nullptr;
  snapshot.hostTable = hostTableSnapshot(*client.hostTable());
  return snapshot;
}

}  // namespace Agent
