#include "agent/trace/HostStatements.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "agent/trace/MethodName.h"

namespace Agent {

namespace {

using enum HostStatement;

// A statement as it is written.
struct Spelled {
  std::string_view method;
  std::string_view shape;  // the labels, and % for a value
  HostStatement statement;
};

constexpr auto spelled = std::to_array<Spelled>(
    {{"ZepPerVniFdbStatusSm::handleZepHostTable", "macAddr: % datapathLearningMode %", handling},
     {"ZepPerVniFdbStatusSm::handleZepHostTable", "Returning as no valid vlan-vni map found",
      notMapped},
     {"ZepPerVniFdbStatusSm::handleZepHostTable", "vniId: %vlanId: %", mapped},
     {"ZepPerVniFdbStatusSm::handleZepHostTable",
      "Ignoring since it's a local entry, received vtepIp: %", ownVtep},
     {"ZepPerVniFdbStatusSm::handleZepHostTable", " delete stale macVtepPair %", stale},
     {"ZepPerVniFdbStatusSm::handleZepHostTable",
      "Evaluating delete of remote host entry for mac: % vlan: %", withdrawal},
     {"ZepPerVniFdbStatusSm::handleZepHostTable",
      "Adding remote host entry for mac: % vlan: % vtepIp: % moveCount: %", announcement},
     {"VxlanControllerClientSm::deferDeleteReceivedTableEntry", "defer delete of % old vtep: %",
      mark},
     {"VxlanControllerClientSm::deleteReceivedTableEntry", " deleting %", deletion},
     {"VxlanControllerClientSm::deleteRemoteMacFromController", "% Vlan: % deferDel %", cleanup},
     {"VxlanControllerClientSm::cleanupZepPerVniFdbStatusSm",
      " Delete remote mac entries for vni %", vniCleanup},
     {"VxlanControllerClientSm::updateControllerClientMode",
      " Deleting remote MACs learnt from ZEP", learning},
     {"ReceivedHostTableToL2RibHostInputSm::handleReceivedHostEntry", " key %", mirror},
     {"VxlanControllerClientSm::handleConvergenceInProgress", " init % convergence state %",
      convergence},
     {"ReceivedHostTableToL2RibHostInputSm::handleInitialized", " Init? %", clientStart},
     {"ReceivedHostTableToL2RibHostInputSm::handleReceivedHostEntry",
      " deleting L2Rib input entries that are not in received host table", staleCopies},
     {"VxlanControllerClientSm::updateControllerClientMode",
      " init? % datapathLearning is % vxlanControllerClientMode is %", modes},
     {"VxlanControllerClientSm::handleControllerVniBaseDir", " entry subdir added %", vniAdded},
     {"VxlanControllerClientSm::handleControllerVniBaseDir",
      " entry subdir added, but not instantiated %", vniNotInstantiated},
     {"VxlanControllerClientSm::handleControllerVniBaseDir", " entry subdir deleted for %",
      vniDeleted}});

}  // namespace

HostStatement hostStatementOf(const Ringlog::Site& site) {
  if (site.facility != "Vxlan") return other;
  std::string shape;
  for (const Ringlog::Site::Item& item : site.items)
    shape += item.kind == Ringlog::Kind::label ? item.label : "%";
  const std::string_view method = methodOf(site);
  const auto* const found = std::ranges::find_if(
      spelled, [&](const Spelled& each) { return each.method == method && each.shape == shape; });
  return found != spelled.end() ? found->statement : other;
}

}  // namespace Agent
