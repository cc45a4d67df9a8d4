// The smallest program that embeds the client: its entities, a poll() loop, and commands on
// standard input that play the controller. CMakeLists.txt says how it is built; then try
//
//   printf 'host 02:00:00:00:00:01 10.0.0.2\nflood 10.0.0.2\nshow\n' | build/embed/embed
#include <array>
#include <iostream>
#include <poll.h>
#include <sstream>
#include <string>
#include <unistd.h>

#include "Vxlan/VxlanControllerClientSm.h"
#include "framework/Moru/ActivityFacility.h"
#include "framework/Moru/Dir.h"
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

namespace {

using Moru::create;
using Moru::Ptr;

const Vorn::IntfId vti("Vxlan1");
const Bridging::VlanId vlan(10);
const Vxlan::VniExt vni(10010);
const Vorn::EthAddr broadcast = Vorn::EthAddr::fromValue(0xffffffffffff);

// What an agent shares with its neighbours. Whoever writes an entity has the client react before
// the call returns.
struct Store {
  // Inputs: the switch's own state, and what the controller publishes.
  Ptr<Vxlan::VtiStatusDir> vtiStatusDir = create<Vxlan::VtiStatusDir>();
  Ptr<Vxlan::VlanVniMaps> vlanVniMaps = create<Vxlan::VlanVniMaps>();
  Ptr<Vxlan::VxlanHwStatusDir> vxlanHwStatusDir = create<Vxlan::VxlanHwStatusDir>();
  Ptr<Mlag::Status> mlagStatus = create<Mlag::Status>();
  Ptr<Mlag::VxlanStatus> mlagVxlanStatus = create<Mlag::VxlanStatus>();
  Ptr<Moru::Dir> controllerStatusBaseDir = create<Moru::Dir>();
  Ptr<Moru::Dir> zepStateBaseDir = create<Moru::Dir>();

  // Outputs: the client writes them, and nobody else does.
  Ptr<L2Rib::HostInput> hosts = create<L2Rib::HostInput>();
  Ptr<L2Rib::SourceDirEntry> floodSets = create<L2Rib::SourceDirEntry>();
  Ptr<VxlanController::ZepStateClientViewV2> clientView =
      create<VxlanController::ZepStateClientViewV2>();
  Ptr<Vxlan::VxlanClientConvergenceStatus> convergenceStatus =
      create<Vxlan::VxlanClientConvergenceStatus>();

  Vxlan::ClientInputs inputs() const {
    Vxlan::ClientInputs inputs;
    inputs.vtiStatusDir = vtiStatusDir;
    inputs.controllerStatusBaseDir = controllerStatusBaseDir;
    inputs.zepStateClientView = clientView;
    inputs.vxlanHwStatusDir = vxlanHwStatusDir;
    inputs.mlagStatus = mlagStatus;
    inputs.mlagVxlanStatus = mlagVxlanStatus;
    inputs.zepStateBaseDir = zepStateBaseDir;
    inputs.vlanVniMaps = vlanVniMaps;
    inputs.zepSde = floodSets;
    inputs.l2RibZepInput = hosts;
    inputs.zepConvergenceStatus = convergenceStatus;
    return inputs;
  }
};

// One VTI that takes its hosts from the controller, one VLAN, and hardware that replicates as the
// controller says.
void configure(Store& store) {
  const auto status = create<Vxlan::VtiStatus>(vti);
  status->localVtepAddrIs(*Vorn::IpAddr::parse("10.0.0.1"));
  status->vccImportVlansIs(vlan);
  status->controllerClientModeIs(true);
  store.vtiStatusDir->vtiStatusIs(status);

  const auto map = create<Vxlan::VlanVniMap>(vti);
  map->vniToVlanIs(vni, Bridging::VlanIdOrNone(vlan.value()));
  map->vlanToVspIs(vlan, Vxlan::VniSourcePair(vni));
  store.vlanVniMaps->vlanVniMapIs(map);

  const auto bum = create<Vxlan::BumStatus>();
  bum->bumReplicationModeIs(Vxlan::BumReplicationMode::controller);
  store.vxlanHwStatusDir->bumStatusIs(bum);
}

void show(const Store& store) {
  for (const auto& [key, host] : store.hosts->host()) std::cout << "host " << host << '\n';
  for (const auto& [floodVlan, macs] : store.floodSets->vlanFloodSet())
    for (const auto& [mac, floodSet] : macs->floodSet())
      for (const auto& [dest, present] : floodSet->destSet())
        if (present)
          std::cout << "flood vlan " << floodVlan << ' ' << mac << " to " << dest << '\n';
  std::cout << std::flush;
}

// The controller's end of the store: what it publishes for the VNI.
class Controller {
 public:
  explicit Controller(Store& store) : store_(store) {
    store_.controllerStatusBaseDir->entityPtrIs(std::to_string(vni.value()), fdb_);
  }

  // host MAC VTEP | gone MAC | flood VTEP | show
  void run(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    std::string first;
    std::string second;
    words >> command >> first >> second;
    const auto mac = Vorn::EthAddr::parse(first);
    if (command == "show")
      show(store_);
    else if (const auto vtep = Vorn::IpAddr::parse(second); command == "host" && mac && vtep)
      fdb_->macVtepTableIs(*mac, VxlanController::MacVtepV2{.macAddr = *mac, .vtepIp = *vtep});
    else if (command == "gone" && mac)
      fdb_->macVtepTableDel(*mac);
    else if (const auto member = Vorn::IpAddr::parse(first); command == "flood" && member)
      flood(*member);
    else
      std::cerr << "expected: host MAC VTEP, gone MAC, flood VTEP or show\n";
  }

 private:
  void flood(const Vorn::IpAddr& vtep) {
    floodList_->vtepIpFloodListIs(vtep, true);
    if (!fdb_->macVtepFloodListTable(broadcast))
      fdb_->macVtepFloodListTableIs(broadcast, floodList_);
  }

  Store& store_;
  Ptr<VxlanController::VniFdbStatusV2> fdb_ = create<VxlanController::VniFdbStatusV2>();
  Ptr<VxlanController::MacVtepFloodListV2> floodList_ =
      create<VxlanController::MacVtepFloodListV2>();
};

// Reads what has arrived and runs the lines that are complete. False at the end of the input.
bool readCommands(Controller& controller, std::string& pending) {
  std::array<char, 4096> buffer{};
  const ssize_t got = read(STDIN_FILENO, buffer.data(), buffer.size());
  if (got <= 0) return false;
  pending.append(buffer.data(), static_cast<std::size_t>(got));
  for (auto end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
    controller.run(pending.substr(0, end));
    pending.erase(0, end + 1);
  }
  return true;
}

}  // namespace

int main() {
  // Clocks come from the current facility, so it is set before the client is made.
  const auto facility = create<Moru::ActivityFacility>(create<Moru::SteadyTime>());
  Moru::ActivityFacility::currentIs(facility);

  Store store;
  configure(store);
  const auto client = Vxlan::vxlanControllerClientSmFactory(store.inputs());
  Controller controller(store);

  std::string pending;
  for (bool more = true; more;) {
    pollfd input{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
    if (poll(&input, 1, facility->pollTimeout()) > 0) more = readCommands(controller, pending);
    facility->fireDue();
  }
  show(store);
}
