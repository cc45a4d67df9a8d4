// Counts the hosts that leave the layer-2 RIB.
#pragma once

#include <cstddef>
#include <cstdint>

#include "agent/watch/BatchWatch.h"
#include "framework/Moru/Input.h"
#include "model/L2Rib/HostInput.h"

namespace Agent {

class HostDeletions final : public Moru::Machine {
 public:
  // `batches` must outlive this object.
  HostDeletions(const Moru::Ptr<L2Rib::HostInput const>& hosts, const BatchWatch& batches);
  ~HostDeletions() override;

  // Since it was made: by a batch of the deferred deletion, and otherwise.
  std::uint64_t deferred() const { return deferred_; }
  std::uint64_t atOnce() const { return atOnce_; }

  class MoruHosts : public Moru::Reactor<L2Rib::HostInput::NotifieeConst, HostDeletions> {
   public:
    using Reactor::Reactor;
    void onAttribute(Moru::AttributeId attribute, const void* key) override;
  };

 private:
  Moru::Input<MoruHosts> hosts_{this};
  Moru::Input<MoruHosts>::Is hostsIs_{hosts_};

  const BatchWatch& batches_;
  std::size_t there_;
  std::uint64_t deferred_ = 0;
  std::uint64_t atOnce_ = 0;
};

}  // namespace Agent
