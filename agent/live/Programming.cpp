#include "agent/live/Programming.h"

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <utility>

#include "agent/base/Descriptor.h"

namespace Agent {

namespace {

Kernel::DataPlaneOptions planeOptions(const ProgrammingOptions& options) {
  Kernel::DataPlaneOptions plane;
  plane.links = {options.managesLinks, "vxlan-agent " + options.owner};
  return plane;
}

Kernel::Rib ribOf(const StateStore& store) {
  return {store.l2RibZepInput, store.zepSde, store.vlanVniMaps, store.vtiStatusDir};
}

// The data plane closes its own.
int duplicateOf(int descriptor) {
  const int duplicate = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
  if (duplicate < 0) failWithErrno("cannot listen to the kernel");
  return duplicate;
}

}  // namespace

Programming::Programming(const ProgrammingOptions& options, asio::io_context& io,
                         const EmbeddedClient& embedded, WithdrawalGate& gate, Stories& stories,
                         Problems& problems, Log& log, std::function<void()> wake)
    : options_(options),
      embedded_(embedded),
      gate_(gate),
      wake_(std::move(wake)),
      plane_(planeOptions(options), ribOf(embedded.store()), problems,
             {.tell = [&log](const std::string& what) { log.notice("kernel: " + what); },
              .known = [&gate](const Vxlan::VniExt& vni, const Vorn::EthAddr& mac,
                               const Vorn::IpAddr& vtep) { gate.adopt(vni, mac, vtep); },
              .happened =
                  [&stories](Kernel::Fdb::Happening what, const Vxlan::VniExt& vni,
                             const Vorn::EthAddr& mac, const Vorn::IpAddr& vtep) {
                    stories.kernelHas(what, vni, mac, vtep);
                  }}),
      news_(io, duplicateOf(plane_.descriptor())) {}

bool Programming::work(double seconds, bool isSettled) {
  plane_.calmIs(isSettled && isCalm());
  const bool isMore = plane_.work(seconds);
  listen();
  return isMore;
}

// Nobody will come back, and the client has deleted what it was to delete.
bool Programming::isCalm() const {
  const auto& convergence = embedded_.store().zepConvergenceStatus;
  return !gate_.converging() && !convergence->unicastDeferredDeletionInProgress() &&
         !convergence->bumDeferredDeletionInProgress();
}

// Anew for each turn: what has not been read by then is told again.
void Programming::listen() {
  if (std::exchange(isListening_, true)) return;
  news_.async_wait(asio::posix::stream_descriptor::wait_read, [this](const std::error_code& error) {
    if (error) return;
    isListening_ = false;
    wake_();
  });
}

nlohmann::ordered_json Programming::status() const {
  const auto status = plane_.status();
  const auto& hosts = status.hosts;
  return {{"links", options_.managesLinks ? "manage" : "adopt"},
          {"devices", status.devices},
          {"groups", status.groups},
          {"wanted", hosts.wanted},
          {"programmed", hosts.programmed},
          {"waiting", hosts.waiting()},
          {"refused", hosts.refused},
          {"foreign", hosts.foreign},
          {"putBack", status.putBack},
          {"readAgain", status.readAgain}};
}

}  // namespace Agent
