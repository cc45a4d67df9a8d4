#include "Vxlan/FloodDemand.h"

#include <algorithm>

namespace Vxlan {

bool FloodDemand::has(const Vorn::EthAddr& mac) const {
  return std::any_of(machines_.begin(), machines_.end(), [&](const auto& machine) {
    return machine->multiPath(mac) != nullptr || machine->floodList(mac) != nullptr;
  });
}

bool FloodDemand::has(const Vorn::EthAddr& mac, const L2Rib::Dest& dest) const {
  return std::any_of(machines_.begin(), machines_.end(),
                     [&](const auto& machine) { return machine->isDestAskedFor(mac, dest); });
}

std::vector<FloodDemand::DestCount> FloodDemand::destCounts(const L2Rib::FloodSet& floodSet) const {
  std::vector<DestCount> counts;
  for (const auto& machine : machines_) {
    // The multipath entry where there are both: the flood list waits behind it.
    if (const auto* const entry = machine->multiPath(floodSet.macAddr()))
      counts.push_back({floodSet.destSets(), entry->vtepIpLists(), true});
    else if (const auto* const list = machine->floodList(floodSet.macAddr()))
      counts.push_back({floodSet.destSets(), list->vtepIpFloodLists(), false});
  }
  return counts;
}

// As who reads traces knows them, down to the blanks.
std::string_view FloodDemand::DestCount::atLeastText() const {
  return isMultiPath ? "fsIter->destSets() >= vniFdbStatus->macVtepMultiPathTable( macAddr )"
                       ".vtepIpLists()"
                     : "fsIter->destSets() >= vniFdbStatus->macVtepFloodListTable( macAddr ) "
                       "->vtepIpFloodLists()";
}

std::string_view FloodDemand::DestCount::equalText() const {
  return isMultiPath ? "fsIter->destSets() == vniFdbStatus->macVtepMultiPathTable( macAddr ) "
                       ".vtepIpLists()"
                     : "fsIter->destSets() == vniFdbStatus->macVtepFloodListTable( macAddr ) "
                       "->vtepIpFloodLists()";
}

}  // namespace Vxlan
